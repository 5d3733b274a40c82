// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The acquisition of a stream: a thread that takes the frames from the camera.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "standin/host/stream/Waiters.h"

namespace XAPEL2 {
namespace StandIn {

/// @threads start() and stop() one at a time, the others any thread. Its lock guards the camera's stream, and is held
/// for waking and replacing it.
class CAcquisition {
public:
    CAcquisition(ICamera& rCamera, CBufferQueue& rQueue, CWaiters& rWaiters)
        : m_rCamera(rCamera), m_rQueue(rQueue), m_rWaiters(rWaiters) {}
    ~CAcquisition() { stop(); }
    CAcquisition(const CAcquisition&) = delete;
    CAcquisition& operator=(const CAcquisition&) = delete;

    /// Not for the acquisition's own thread.
    /// @return GC_ERR_RESOURCE_IN_USE while one of the camera runs, or the code of a camera that cannot start.
    int start(uint64_t nFrames);
    /// Returns when the camera has stopped. Not for the acquisition's own thread.
    void stop();
    /// True from a successful start until stop(), the last frame's delivery, or the loss of the camera.
    bool isRunning() const { return m_bRunning; }
    /// On the thread that this acquisition runs on.
    bool isOwnThread() const;

private:
    int startCamera(uint64_t nFrames);
    // On the own thread, or while there is none.
    void endCamera(const Buffer* pFilled = nullptr);

    // Own thread, no lock held.
    void run(ICameraStream& rStream, uint64_t nFrames);
    bool next(ICameraStream& rStream, CameraFrame& rFrame);

    ICamera& m_rCamera;
    CBufferQueue& m_rQueue;
    CWaiters& m_rWaiters;
    std::thread m_thread;  // of start() and stop()
    std::atomic<bool> m_bRunning{false};

    std::mutex m_mtx;  // guards the next
    std::unique_ptr<ICameraStream> m_pStream;
};

}  // namespace StandIn
}  // namespace XAPEL2
