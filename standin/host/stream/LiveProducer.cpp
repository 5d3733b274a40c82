// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The acquisition of a live camera: queued buffers go to its transport at once, filled ones come back from it.

#include <cstdio>
#include <utility>

#include "standin/host/objects/Answers.h"
#include "standin/host/stream/Stream.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {
namespace StandIn {

void CStream::handOver(Buffer& rBuffer) {
    m_pLive->hand(rBuffer.pBase, rBuffer.nBytes, &rBuffer);
    move(rBuffer, m_lstFilling, eBufferFilling);
}

ILiveStream& CStream::startLive() {
    auto pLive = m_pCamera->live()->makeStream();
    ILiveStream& rLive = *pLive;
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        m_pLive = std::move(pLive);
        while (!m_lstQueued.empty()) {
            handOver(*m_lstQueued.front());
        }
    }
    rLive.start();
    return rLive;
}

// Ends the transport. What it had not filled stays queued, in its order; pFilled is a buffer that it had.
void CStream::endLive(const Buffer* pFilled) {
    std::unique_ptr<ILiveStream> pLive;
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        pLive = std::move(m_pLive);
    }
    pLive.reset();
    Buffer::List lstBack;
    std::lock_guard<std::mutex> lock(m_mtx);
    for (auto it = m_lstFilling.begin(); it != m_lstFilling.end();) {
        const auto itEach = it++;
        if (itEach->get() != pFilled) {
            (*itEach)->eState.store(eBufferQueued, std::memory_order_relaxed);
            lstBack.splice(lstBack.end(), m_lstFilling, itEach);
        }
    }
    m_lstQueued.splice(m_lstQueued.begin(), lstBack);
}

// The next filled buffer; null when the acquisition is to stop, or the camera is lost.
Buffer* CStream::nextLive(ILiveStream& rLive, NamedFrameInfo& rInfo) {
    LiveFrame frame;
    try {
        if (!rLive.next(frame)) {
            return nullptr;
        }
    } catch (const CLiveError& rError) {
        // First the trace: who gets the code looks for the reason at once.
        trace(2, "the camera is lost: ", rError.what());
        std::lock_guard<std::mutex> lock(m_mtx);
        m_iFailure = rError.code();
        m_strFailure = joined("the camera is lost: ", rError.what());
        m_cvFilled.notify_all();
        return nullptr;
    }
    static_cast<FrameInfo&>(rInfo) = frame.info;
    std::lock_guard<std::mutex> lock(m_mtx);
    ++m_counts.nStarted;
    m_counts.nUnderrun = rLive.underruns();
    return static_cast<Buffer*>(frame.pToken);
}

void CStream::produceLive(ILiveStream& rLive, uint64_t nFrames) {
    for (uint64_t iFrame = 0; iFrame < nFrames; ++iFrame) {
        NamedFrameInfo info;
        Buffer* const pBuffer = nextLive(rLive, info);
        if (pBuffer == nullptr) {
            break;
        }
        // By its place in the acquisition.
        char aName[40];
        std::snprintf(aName, sizeof aName, "frame_%04llu", static_cast<unsigned long long>(iFrame));
        info.strName = aName;
        const bool bLast = iFrame + 1 == nFrames;
        if (bLast) {
            endLive(pBuffer);
        }
        deliver(*pBuffer, info, bLast);
        if (bLast) {
            return;
        }
    }
    endLive();
    m_pCamera->endAcquisition();
    std::lock_guard<std::mutex> lock(m_mtx);
    m_bGrabbing = false;
}

}  // namespace StandIn
}  // namespace XAPEL2
