// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Starts the camera, delivers its frames, ends it.

#include "standin/host/stream/Acquisition.h"

#include <string>
#include <utility>

#include "standin/host/objects/Answers.h"
#include "standin/host/objects/Trace.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

thread_local const CAcquisition* t_pRunning = nullptr;

}  // namespace

bool CAcquisition::isOwnThread() const {
    return t_pRunning == this;
}

int CAcquisition::start(uint64_t nFrames) {
    if (m_bRunning) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    if (m_thread.joinable()) {
        m_thread.join();  // the one before has produced all its frames
    }
    int iCode = GC_ERR_ERROR;
    std::string strReason;
    try {
        return startCamera(nFrames);
    } catch (const CCameraError& rError) {
        iCode = rError.code();
        strReason = rError.what();
    } catch (const std::exception& rError) {
        strReason = rError.what();
    }
    endCamera();
    m_bRunning = false;
    setLastError(iCode, strReason.c_str());
    trace(2, "the acquisition cannot start: ", strReason.c_str());
    return iCode;
}

int CAcquisition::startCamera(uint64_t nFrames) {
    m_rWaiters.setFailure(0, "");
    auto pStream = m_rCamera.makeStream(m_rQueue);
    if (pStream == nullptr) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    ICameraStream& rStream = *pStream;
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        m_pStream = std::move(pStream);
    }
    m_bRunning = true;
    m_rQueue.attach(rStream);
    rStream.start();
    m_thread = std::thread([this, &rStream, nFrames] { run(rStream, nFrames); });
    return GC_ERR_SUCCESS;
}

void CAcquisition::stop() {
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (m_pStream != nullptr) {
            m_pStream->wake();
        }
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

// What the camera had not filled stays queued, in its order; pFilled is a buffer that it had.
void CAcquisition::endCamera(const Buffer* pFilled) {
    m_rQueue.detach();
    std::unique_ptr<ICameraStream> pStream;
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        pStream = std::move(m_pStream);
    }
    pStream.reset();
    m_rQueue.takeBack(pFilled);
}

// False when the acquisition is to stop, or the camera is lost.
bool CAcquisition::next(ICameraStream& rStream, CameraFrame& rFrame) {
    try {
        if (!rStream.next(rFrame)) {
            return false;
        }
    } catch (const CCameraError& rError) {
        // First the trace: who gets the code looks for the reason at once.
        trace(2, "the camera is lost: ", rError.what());
        m_rWaiters.setFailure(rError.code(), joined("the camera is lost: ", rError.what()));
        return false;
    }
    if (!rFrame.strFailure.empty()) {
        trace(2, "frame cannot be produced: ", rFrame.strFailure.c_str());
        rFrame.info.strTrouble = joined("frame cannot be produced: ", rFrame.strFailure.c_str());
    }
    return true;
}

// With the last frame the acquisition is over before it is delivered: whoever has fetched it may start the next one.
void CAcquisition::run(ICameraStream& rStream, uint64_t nFrames) {
    t_pRunning = this;
    for (uint64_t iFrame = 0; iFrame < nFrames; ++iFrame) {
        CameraFrame frame;
        if (!next(rStream, frame)) {
            break;
        }
        auto* const pBuffer = static_cast<Buffer*>(frame.pToken);
        const bool bLast = iFrame + 1 == nFrames;
        if (bLast) {
            endCamera(pBuffer);
            m_bRunning = false;
        }
        m_rQueue.deliver(*pBuffer, frame.info);
        m_rWaiters.frameCame();
        if (bLast) {
            return;
        }
    }
    endCamera();
    m_bRunning = false;
}

}  // namespace StandIn
}  // namespace XAPEL2
