// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The acquisition: one thread that fills the queued buffers of a stream in order.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "standin/host/objects/Answers.h"
#include "standin/host/stream/Stream.h"
#include "standin/host/testing/Observation.h"
#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

thread_local const CStream* t_pProducing = nullptr;

uint64_t nowNs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

Control::eBufferFault faultOf(uint64_t iFrame) {
    const auto pFault = switches().fnBufferFault.get();
    return pFault == nullptr ? Control::eGood : (*pFault)(iFrame);
}

void replaceContent(uint64_t iFrame, void* pImage, std::size_t nBytes) {
    if (const auto pContent = switches().fnFrameContent.get()) {
        (*pContent)(iFrame, pImage, nBytes);
    }
}

}  // namespace

bool CStream::isProducerThread() const {
    return t_pProducing == this;
}

int CStream::start(uint64_t nFrames) {
    if (nFrames == 0) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    std::lock_guard<std::mutex> control(m_mtxControl);
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        if (!m_bOpen) {
            return GC_ERR_INVALID_HANDLE;
        }
        if (m_bGrabbing || !m_pCamera->beginAcquisition()) {
            return GC_ERR_RESOURCE_IN_USE;
        }
        m_bGrabbing = true;
        m_bStop = false;
        m_counts = Counts{};
        m_iFailure = 0;
        m_nImageOffset = switches().nImageOffset;
    }
    if (m_threadProducer.joinable()) {
        m_threadProducer.join();  // the one before has produced all its frames
    }
    int iCode = GC_ERR_ERROR;
    std::string strReason;
    try {
        startProducer(nFrames);
        return GC_ERR_SUCCESS;
    } catch (const CLiveError& rError) {
        iCode = rError.code();
        strReason = rError.what();
    } catch (const std::exception& rError) {
        strReason = rError.what();
    }
    m_pCamera->endAcquisition();
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        m_bGrabbing = false;
    }
    setLastError(iCode, strReason.c_str());
    trace(2, "the acquisition cannot start: ", strReason.c_str());
    return iCode;
}

void CStream::startProducer(uint64_t nFrames) {
    if (m_pCamera->live() == nullptr) {
        m_threadProducer = std::thread([this, nFrames] { produce(nFrames); });
        return;
    }
    try {
        ILiveStream& rLive = startLive();
        m_threadProducer = std::thread([this, &rLive, nFrames] {
            t_pProducing = this;
            produceLive(rLive, nFrames);
        });
    } catch (...) {
        endLive();
        throw;
    }
}

int CStream::stop() {
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    std::lock_guard<std::mutex> control(m_mtxControl);
    if (!isOpen()) {
        return GC_ERR_INVALID_HANDLE;
    }
    stopProducer();
    return GC_ERR_SUCCESS;
}

void CStream::stopProducer() {
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        m_bStop = true;
        m_cvQueued.notify_all();
        if (m_pLive != nullptr) {
            m_pLive->wake();
        }
    }
    if (m_threadProducer.joinable()) {
        m_threadProducer.join();
    }
}

void CStream::produce(uint64_t nFrames) {
    t_pProducing = this;
    m_tNextTick = std::chrono::steady_clock::now();
    for (uint64_t iFrame = 0; iFrame < nFrames; ++iFrame) {
        Buffer* pBuffer = nextQueued();
        if (pBuffer == nullptr) {
            m_pCamera->endAcquisition();
            std::lock_guard<std::mutex> lock(m_mtx);
            m_bGrabbing = false;
            return;
        }
        NamedFrameInfo info = fillFrame(*pBuffer, iFrame);
        deliver(*pBuffer, info, iFrame + 1 == nFrames);
    }
}

// Waits for the time of the next frame. False when the acquisition is to stop.
bool CStream::waitForTick(uint64_t nHz) {
    std::unique_lock<std::mutex> lock(m_mtx);
    if (m_cvQueued.wait_until(lock, m_tNextTick, [this] { return m_bStop; })) {
        return false;
    }
    const auto tStep = std::chrono::nanoseconds(1000000000ULL / nHz);
    // A late camera does not catch up.
    m_tNextTick = std::max(m_tNextTick + tStep, std::chrono::steady_clock::now());
    return true;
}

// The buffer that takes the next frame, null when the acquisition is to stop. A paced camera that finds no buffer
// loses its turn, not a frame of the scene; a free running one waits for a buffer.
Buffer* CStream::nextQueued() {
    for (;;) {
        const uint64_t nHz = m_pCamera->frameRate();
        if (nHz != 0 && !waitForTick(nHz)) {
            return nullptr;
        }
        std::unique_lock<std::mutex> lock(m_mtx);
        if (nHz == 0) {
            m_cvQueued.wait(lock, [this] { return m_bStop || !m_lstQueued.empty(); });
        }
        if (m_bStop) {
            return nullptr;
        }
        if (!m_lstQueued.empty()) {
            Buffer& rBuffer = *m_lstQueued.front();
            move(rBuffer, m_lstFilling, eBufferFilling);
            ++m_counts.nStarted;
            return &rBuffer;
        }
        ++m_counts.nUnderrun;
    }
}

// Writes the frame, or as much of it as the buffer, the source and the faults allow.
void CStream::writeFrame(const Buffer& rBuffer, const FrameRequest& rRequest, uint64_t iFrame, FrameInfo& rInfo) {
    const CameraSettings& rSettings = rRequest.settings;
    const std::size_t nImage = imageBytes(*rSettings.pFormat, rSettings.nWidth, rSettings.nHeight);
    const std::size_t nPayload = rInfo.nImageOffset + nImage;
    const Control::eBufferFault eFault = faultOf(iFrame);
    if (eFault == Control::eNoImage) {
        rInfo.bImage = false;
        return;
    }
    const std::size_t nArrives = std::min(rBuffer.nBytes, eFault == Control::eIncomplete ? nPayload / 2 : nPayload);
    if (nArrives == nPayload) {
        void* pImage = static_cast<std::byte*>(rBuffer.pBase) + rInfo.nImageOffset;
        m_pCamera->source().fill(rSettings, rRequest.eWhat, rRequest.iFrame, pImage);
        replaceContent(iFrame, pImage, nImage);
    } else {
        rInfo.bIncomplete = true;
        std::vector<std::byte> vecPayload(nPayload);
        m_pCamera->source().fill(rSettings, rRequest.eWhat, rRequest.iFrame, vecPayload.data() + rInfo.nImageOffset);
        replaceContent(iFrame, vecPayload.data() + rInfo.nImageOffset, nImage);
        std::memcpy(rBuffer.pBase, vecPayload.data(), nArrives);
    }
    rInfo.nFilled = nArrives;
}

NamedFrameInfo CStream::fillFrame(const Buffer& rBuffer, uint64_t iFrame) {
    const FrameRequest request = m_pCamera->nextFrame();
    NamedFrameInfo info;
    info.bImage = true;
    info.nWidth = request.settings.nWidth;
    info.nHeight = request.settings.nHeight;
    info.nOffsetX = request.settings.nOffsetX;
    info.nOffsetY = request.settings.nOffsetY;
    info.pFormat = request.settings.pFormat;
    info.iTimestamp = nowNs();
    {
        std::lock_guard<std::mutex> lock(m_mtx);
        info.nImageOffset = m_nImageOffset;
        info.iFrameId = iFrame + m_counts.nUnderrun;
    }
    try {
        info.strName = m_pCamera->source().frameName(request.eWhat, request.iFrame);
        writeFrame(rBuffer, request, iFrame, info);
    } catch (const std::exception& rError) {
        trace(2, "frame cannot be produced: ", rError.what());
        info.strTrouble = joined("frame cannot be produced: ", rError.what());
        info.bIncomplete = true;
        info.nFilled = 0;
    }
    return info;
}

// With the last frame the acquisition is over: whoever has fetched it may start the next one. The thread that ends
// touches nothing after that.
void CStream::deliver(Buffer& rBuffer, NamedFrameInfo& rInfo, bool bLast) {
    const bool bIncomplete = rInfo.bIncomplete;
    CBufferTable::instance().setInfo(rBuffer, rInfo);
    if (bLast) {
        m_pCamera->endAcquisition();
    }
    std::lock_guard<std::mutex> lock(m_mtx);
    m_bGrabbing = !bLast;
    m_counts.nIncomplete += bIncomplete ? 1 : 0;
    move(rBuffer, m_lstFilled, eBufferFilled);
    // All of them: the one that is told first may have been ended by a cancel.
    m_cvFilled.notify_all();
}

}  // namespace StandIn
}  // namespace XAPEL2
