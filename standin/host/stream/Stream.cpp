// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Opening, closing, and the buffers of a stream.

#include "standin/host/stream/Stream.h"

#include <new>
#include <utility>
#include <vector>

#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

std::atomic<uint64_t> CStream::s_uCancels{0};

CStream::CStream(std::shared_ptr<CCamera> pCamera, DataStream* pShell, std::string strId)
    : m_pCamera(std::move(pCamera)), m_pShell(pShell), m_strId(std::move(strId)) {}

CStream::~CStream() {
    close();
}

bool CStream::isOpen() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_bOpen;
}

bool CStream::open() {
    std::lock_guard<std::mutex> control(m_mtxControl);
    std::lock_guard<std::mutex> lock(m_mtx);
    if (std::exchange(m_bOpen, true)) {
        return false;
    }
    m_iFailure = 0;
    return true;
}

int CStream::close() {
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    std::lock_guard<std::mutex> control(m_mtxControl);
    stopProducer();
    Buffer::List lstRevoked;
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        if (!std::exchange(m_bOpen, false)) {
            return GC_ERR_INVALID_HANDLE;
        }
        // Whoever came before the close ends, however the cancel is set to behave.
        endFetchesBegun();
        m_nSticky = 0;
        m_cvFilled.notify_all();
        for (Buffer::List* pList : {&m_lstIdle, &m_lstQueued, &m_lstFilling, &m_lstFilled}) {
            lstRevoked.splice(lstRevoked.end(), *pList);
        }
        for (const auto& pBuffer : lstRevoked) {
            pBuffer->eState.store(eBufferRevoked, std::memory_order_relaxed);
        }
    }
    for (const auto& pBuffer : lstRevoked) {
        CBufferTable::instance().remove(pBuffer->hBuffer);
    }
    m_hooks.dropAll();
    return GC_ERR_SUCCESS;
}

std::size_t CStream::payloadSizeLocked() const {
    if (m_pCamera->live() != nullptr) {
        return m_pCamera->imageSize();
    }
    const std::size_t nOffset = m_bGrabbing ? m_nImageOffset : switches().nImageOffset.load();
    return nOffset + m_pCamera->imageSize();
}

std::size_t CStream::payloadSize() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_bOpen ? payloadSizeLocked() : 0;
}

int CStream::announce(void* pMemory, std::size_t nBytes, BufferHandle* phBuffer) {
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
        pBuffer->pStream = m_pShell;
        Buffer::List lstNew{pBuffer};
        pBuffer->itPlace = lstNew.begin();

        std::lock_guard<std::mutex> lock(m_mtx);
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

std::shared_ptr<Buffer> CStream::ofThisStream(BufferHandle hBuffer) const {
    std::shared_ptr<Buffer> pBuffer = CBufferTable::instance().find(hBuffer);
    if (pBuffer == nullptr || pBuffer->pStream != m_pShell || pBuffer->eState == eBufferRevoked) {
        return nullptr;
    }
    return pBuffer;
}

Buffer::List& CStream::listOf(eBufferState eState) {
    switch (eState) {
        case eBufferQueued:
            return m_lstQueued;
        case eBufferFilling:
            return m_lstFilling;
        case eBufferFilled:
            return m_lstFilled;
        default:
            return m_lstIdle;
    }
}

void CStream::move(Buffer& rBuffer, Buffer::List& rTo, eBufferState eState) {
    rTo.splice(rTo.end(), listOf(rBuffer.eState.load(std::memory_order_relaxed)), rBuffer.itPlace);
    rBuffer.eState.store(eState, std::memory_order_relaxed);
}

int CStream::revoke(BufferHandle hBuffer) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const std::shared_ptr<Buffer> pBuffer = ofThisStream(hBuffer);
    if (pBuffer == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    const eBufferState eState = pBuffer->eState.load(std::memory_order_relaxed);
    if (eState == eBufferFilling) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    listOf(eState).erase(pBuffer->itPlace);
    pBuffer->eState.store(eBufferRevoked, std::memory_order_relaxed);
    CBufferTable::instance().remove(hBuffer);
    return GC_ERR_SUCCESS;
}

int CStream::queue(BufferHandle hBuffer) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const std::shared_ptr<Buffer> pBuffer = ofThisStream(hBuffer);
    if (pBuffer == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (pBuffer->eState != eBufferIdle) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    if (pBuffer->nBytes < payloadSizeLocked()) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    pBuffer->correction.reset();
    if (m_pLive != nullptr) {
        handOver(*pBuffer);
        return GC_ERR_SUCCESS;
    }
    move(*pBuffer, m_lstQueued, eBufferQueued);
    m_cvQueued.notify_all();
    return GC_ERR_SUCCESS;
}

int CStream::flush() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    while (!m_lstQueued.empty()) {
        move(*m_lstQueued.front(), m_lstIdle, eBufferIdle);
    }
    while (!m_lstFilled.empty()) {
        move(*m_lstFilled.front(), m_lstIdle, eBufferIdle);
    }
    return GC_ERR_SUCCESS;
}

}  // namespace StandIn
}  // namespace XAPEL2
