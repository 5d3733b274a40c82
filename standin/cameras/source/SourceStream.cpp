// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Pacing, and filling a buffer from the source.

#include "standin/cameras/source/SourceStream.h"

#include <algorithm>
#include <cstring>

namespace XAPEL2 {
namespace StandIn {

namespace {

uint64_t nowNs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

}  // namespace

bool CSourceStream::hand(const CameraBuffer&) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bHanded = true;
    m_cv.notify_all();
    return false;
}

void CSourceStream::wake() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bWoken = true;
    m_cv.notify_all();
}

bool CSourceStream::next(CameraFrame& rFrame) {
    CameraBuffer buffer;
    if (!waitForBuffer(buffer)) {
        return false;
    }
    rFrame.pToken = buffer.pToken;
    fill(buffer, rFrame);
    return true;
}

// Waits for the time of the next frame. False after wake().
bool CSourceStream::waitForTick(uint64_t nHz) {
    std::unique_lock<std::mutex> lock(m_mtx);
    if (m_cv.wait_until(lock, m_tNextTick, [this] { return m_bWoken; })) {
        return false;
    }
    const auto tStep = std::chrono::nanoseconds(1000000000ULL / nHz);
    const auto tNow = std::chrono::steady_clock::now();
    m_tNextTick += tStep;
    if (m_tNextTick < tNow) {
        m_tNextTick = tNow + tStep;  // a late camera does not catch up
    }
    return true;
}

bool CSourceStream::fetchUnlessWoken(CameraBuffer& rBuffer, bool& rWoken) {
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        rWoken = m_bWoken;
        m_bHanded = false;  // before the look: what is queued after it is told again
    }
    return !rWoken && m_rBuffers.take(rBuffer);
}

// The memory of the next frame. False after wake().
bool CSourceStream::waitForBuffer(CameraBuffer& rBuffer) {
    for (;;) {
        const uint64_t nHz = m_rCamera.frameRate();
        if (nHz != 0 && !waitForTick(nHz)) {
            return false;
        }
        bool bWoken = false;
        if (fetchUnlessWoken(rBuffer, bWoken)) {
            return true;
        }
        if (bWoken) {
            return false;
        }
        if (nHz != 0) {
            ++m_nMissed;
            m_rBuffers.missed(1);
        } else {
            std::unique_lock<std::mutex> lock(m_mtx);
            m_cv.wait(lock, [this] { return m_bWoken || m_bHanded; });
        }
    }
}

// Writes the frame, or as much of it as the buffer takes.
void CSourceStream::write(const CameraBuffer& rBuffer, const FrameRequest& rRequest, FrameInfo& rInfo) {
    const CameraSettings& rSettings = rRequest.settings;
    const std::size_t nImage = imageBytes(*rSettings.pFormat, rSettings.nWidth, rSettings.nHeight);
    if (rBuffer.nBytes >= nImage) {
        m_rCamera.source().fill(rSettings, rRequest.eWhat, rRequest.iFrame, rBuffer.pBase);
        rInfo.nFilled = nImage;
        return;
    }
    rInfo.bIncomplete = true;
    std::vector<std::byte> vecImage(nImage);
    m_rCamera.source().fill(rSettings, rRequest.eWhat, rRequest.iFrame, vecImage.data());
    std::memcpy(rBuffer.pBase, vecImage.data(), rBuffer.nBytes);
    rInfo.nFilled = rBuffer.nBytes;
}

void CSourceStream::fill(const CameraBuffer& rBuffer, CameraFrame& rFrame) {
    const FrameRequest request = m_rCamera.nextFrame();
    NamedFrameInfo& rInfo = rFrame.info;
    rInfo.bImage = true;
    rInfo.nWidth = request.settings.nWidth;
    rInfo.nHeight = request.settings.nHeight;
    rInfo.geometry = m_rCamera.geometryOf(request.settings);
    rInfo.pFormat = request.settings.pFormat;
    rInfo.iTimestamp = nowNs();
    rInfo.iFrameId = m_nFrames++ + m_nMissed;
    try {
        rInfo.strName = m_rCamera.source().frameName(request.eWhat, request.iFrame);
        write(rBuffer, request, rInfo);
    } catch (const std::exception& rError) {
        rFrame.strFailure = rError.what();
        rInfo.bIncomplete = true;
        rInfo.nFilled = 0;
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
