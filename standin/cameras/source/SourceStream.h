// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The frames of a frame source, filled on request and paced.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "standin/cameras/source/SourceCamera.h"

namespace XAPEL2 {
namespace StandIn {

/// Fills the queued buffers in order, on the thread that asks for the next frame. A paced camera that finds no buffer
/// loses its turn, not a frame of the scene; a free running one waits for a buffer.
class CSourceStream : public ICameraStream {
public:
    CSourceStream(CSourceCamera& rCamera, ICameraBuffers& rBuffers) : m_rCamera(rCamera), m_rBuffers(rBuffers) {}
    ~CSourceStream() override { m_rCamera.streamEnds(); }
    CSourceStream(const CSourceStream&) = delete;
    CSourceStream& operator=(const CSourceStream&) = delete;

    bool hand(const CameraBuffer& rBuffer) override;
    void start() override { m_tNextTick = std::chrono::steady_clock::now(); }
    bool next(CameraFrame& rFrame) override;
    void wake() override;

private:
    bool waitForTick(uint64_t nHz);
    bool waitForBuffer(CameraBuffer& rBuffer);
    bool fetchUnlessWoken(CameraBuffer& rBuffer, bool& rWoken);
    void fill(const CameraBuffer& rBuffer, CameraFrame& rFrame);
    void write(const CameraBuffer& rBuffer, const FrameRequest& rRequest, FrameInfo& rInfo);

    CSourceCamera& m_rCamera;
    ICameraBuffers& m_rBuffers;

    std::mutex m_mtx;  // guards the next three; a leaf lock
    std::condition_variable m_cv;
    bool m_bHanded = false;  // a buffer was queued since the last look
    bool m_bWoken = false;

    // Of the thread that asks for frames.
    std::chrono::steady_clock::time_point m_tNextTick;
    uint64_t m_nFrames = 0, m_nMissed = 0;
};

}  // namespace StandIn
}  // namespace XAPEL2
