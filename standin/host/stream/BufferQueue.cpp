// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Moves buffers from list to list.

#include "standin/host/stream/BufferQueue.h"

#include <new>
#include <utility>

#include "standin/host/stream/CallFrame.h"

namespace XAPEL2 {
namespace StandIn {

bool CBufferQueue::isOpen() const {
    const std::lock_guard<std::mutex> lock(m_mtx);
    return m_bOpen;
}

void CBufferQueue::open() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bOpen = true;
}

void CBufferQueue::close() {
    Buffer::List lstRevoked;
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        m_bOpen = false;
        for (Buffer::List* pList : {&m_lstIdle, &m_lstQueued, &m_lstHeld, &m_lstFilling, &m_lstFilled}) {
            lstRevoked.splice(lstRevoked.end(), *pList);
        }
        for (const auto& pBuffer : lstRevoked) {
            pBuffer->eState.store(eBufferRevoked, std::memory_order_relaxed);
        }
    }
    for (const auto& pBuffer : lstRevoked) {
        CBufferTable::instance().remove(pBuffer->hBuffer);
    }
}

int CBufferQueue::announce(void* pMemory, std::size_t nBytes, BufferHandle* phBuffer) {
    if (phBuffer == nullptr || nBytes == 0) {
        return GC_ERR_INVALID_PARAMETER;
    }
    try {
        auto pBuffer = std::make_shared<Buffer>();
        if (pMemory == nullptr) {
            pBuffer->pOwned = std::make_unique<std::byte[]>(nBytes);
            pMemory = pBuffer->pOwned.get();
        }
        pBuffer->pBase = pMemory;
        pBuffer->nBytes = nBytes;
        pBuffer->pStream = m_pOwner;
        Buffer::List lstNew{pBuffer};
        pBuffer->itPlace = lstNew.begin();

        const std::lock_guard<std::mutex> lock(m_mtx);
        if (!m_bOpen) {
            return GC_ERR_INVALID_HANDLE;
        }
        CBufferTable::instance().add(pBuffer);
        m_lstIdle.splice(m_lstIdle.end(), lstNew);
        *phBuffer = pBuffer->hBuffer;
        return GC_ERR_SUCCESS;
    } catch (const std::bad_alloc&) {
        return GC_ERR_ERROR;
    }
}

std::shared_ptr<Buffer> CBufferQueue::ofThisStream(BufferHandle hBuffer) const {
    std::shared_ptr<Buffer> pBuffer = CBufferTable::instance().find(hBuffer);
    if (pBuffer == nullptr || pBuffer->pStream != m_pOwner || pBuffer->eState == eBufferRevoked) {
        return nullptr;
    }
    return pBuffer;
}

Buffer::List& CBufferQueue::listOf(eBufferState eState) {
    switch (eState) {
        case eBufferQueued:
            return m_lstQueued;
        case eBufferHeld:
            return m_lstHeld;
        case eBufferFilling:
            return m_lstFilling;
        case eBufferFilled:
            return m_lstFilled;
        default:
            return m_lstIdle;
    }
}

void CBufferQueue::move(Buffer& rBuffer, eBufferState eState) {
    Buffer::List& rTo = listOf(eState);
    rTo.splice(rTo.end(), listOf(rBuffer.eState.load(std::memory_order_relaxed)), rBuffer.itPlace);
    rBuffer.eState.store(eState, std::memory_order_relaxed);
}

int CBufferQueue::revoke(BufferHandle hBuffer) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    const std::shared_ptr<Buffer> pBuffer = ofThisStream(hBuffer);
    if (pBuffer == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    const eBufferState eState = pBuffer->eState.load(std::memory_order_relaxed);
    if (eState == eBufferFilling || eState == eBufferHeld) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    listOf(eState).erase(pBuffer->itPlace);
    pBuffer->eState.store(eBufferRevoked, std::memory_order_relaxed);
    CBufferTable::instance().remove(hBuffer);
    return GC_ERR_SUCCESS;
}

int CBufferQueue::queue(BufferHandle hBuffer, std::size_t nPayload) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    const std::shared_ptr<Buffer> pBuffer = ofThisStream(hBuffer);
    if (pBuffer == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (pBuffer->eState != eBufferIdle) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    if (pBuffer->nBytes < nPayload) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    pBuffer->correction.reset();
    move(*pBuffer, eBufferQueued);
    hand(*pBuffer);
    return GC_ERR_SUCCESS;
}

// True when there is a camera that keeps the buffer.
bool CBufferQueue::hand(Buffer& rBuffer) {
    if (m_pCamera == nullptr || !m_pCamera->hand({rBuffer.pBase, rBuffer.nBytes, &rBuffer})) {
        return false;
    }
    move(rBuffer, eBufferHeld);
    return true;
}

int CBufferQueue::flush() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    for (const Buffer::List* pList : {&m_lstQueued, &m_lstFilled}) {
        while (!pList->empty()) {
            move(*pList->front(), eBufferIdle);
        }
    }
    return GC_ERR_SUCCESS;
}

BufferHandle CBufferQueue::takeFilled(CCallFrame* pFrame) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    if (m_lstFilled.empty()) {
        return nullptr;
    }
    Buffer& rBuffer = *m_lstFilled.front();
    if (pFrame != nullptr) {
        pFrame->keep(m_lstFilled.front());
    }
    move(rBuffer, eBufferIdle);
    ++m_counts.nDelivered;
    return rBuffer.hBuffer;
}

void CBufferQueue::attach(ICameraStream& rStream) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_counts = Counts{};
    m_pCamera = &rStream;
    while (!m_lstQueued.empty() && hand(*m_lstQueued.front())) {
    }
}

void CBufferQueue::detach() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_pCamera = nullptr;
}

void CBufferQueue::takeBack(const Buffer* pFilled) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    Buffer::List lstBack;
    for (auto it = m_lstHeld.begin(); it != m_lstHeld.end();) {
        const auto itEach = it++;
        if (itEach->get() != pFilled) {
            (*itEach)->eState.store(eBufferQueued, std::memory_order_relaxed);
            lstBack.splice(lstBack.end(), m_lstHeld, itEach);
        }
    }
    m_lstQueued.splice(m_lstQueued.begin(), lstBack);
}

bool CBufferQueue::take(CameraBuffer& rBuffer) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    if (m_lstQueued.empty()) {
        return false;
    }
    Buffer& rTaken = *m_lstQueued.front();
    move(rTaken, eBufferFilling);
    ++m_counts.nStarted;
    rBuffer = {rTaken.pBase, rTaken.nBytes, &rTaken};
    return true;
}

void CBufferQueue::missed(uint64_t nFrames) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_counts.nUnderrun += nFrames;
}

void CBufferQueue::deliver(Buffer& rBuffer, NamedFrameInfo& rInfo) {
    const bool bIncomplete = rInfo.bIncomplete;
    CBufferTable::instance().setInfo(rBuffer, rInfo);
    const std::lock_guard<std::mutex> lock(m_mtx);
    // A frame that was written ahead is heard of only now.
    m_counts.nStarted += rBuffer.eState == eBufferHeld ? 1 : 0;
    m_counts.nIncomplete += bIncomplete ? 1 : 0;
    move(rBuffer, eBufferFilled);
}

CBufferQueue::Counts CBufferQueue::counts() const {
    const std::lock_guard<std::mutex> lock(m_mtx);
    Counts counts = m_counts;
    // What the camera holds is queued too: nobody knows which one it is writing to.
    counts.nQueued = m_lstQueued.size() + m_lstHeld.size();
    counts.nFilled = m_lstFilled.size();
    counts.nAnnounced = m_lstIdle.size() + counts.nQueued + m_lstFilling.size() + counts.nFilled;
    return counts;
}

}  // namespace StandIn
}  // namespace XAPEL2
