// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The buffers of a stream and the lists that they go through.

#pragma once

#include <memory>
#include <mutex>

#include "standin/cameras/interface/Camera.h"
#include "standin/host/stream/BufferTable.h"

namespace XAPEL2 {
namespace StandIn {

class CCallFrame;

/// Idle, queued, with the camera (written to, or held for a frame to come), filled, idle again. Results are GenTL
/// codes.
/// @threads any thread. Its lock guards the lists, the place and the state of each buffer, and the counts; under it
/// only leaf locks are taken, those of the buffer table and of the camera's stream.
class CBufferQueue : public ICameraBuffers {
public:
    /// @param[in] pOwner  the stream that the buffers belong to.
    explicit CBufferQueue(const DataStream* pOwner) : m_pOwner(pOwner) {}
    CBufferQueue(const CBufferQueue&) = delete;
    CBufferQueue& operator=(const CBufferQueue&) = delete;

    // What the application does. A closed queue takes no buffer.

    bool isOpen() const;
    void open();
    /// Revokes all buffers.
    void close();
    /// @param[in] pMemory  null: the queue allocates.
    int announce(void* pMemory, std::size_t nBytes, BufferHandle* phBuffer);
    int revoke(BufferHandle hBuffer);
    /// @param[in] nPayload  bytes that the buffer must take.
    int queue(BufferHandle hBuffer, std::size_t nPayload);
    int flush();
    /// Makes the oldest filled buffer idle again; null when there is none.
    /// @param[in] pFrame  the call that keeps it, may be null.
    BufferHandle takeFilled(CCallFrame* pFrame);

    // What an acquisition does. A camera that fills on request takes buffers; another one has them handed.

    /// Hands the camera what is queued, and from then on what will be. Counts from 0.
    void attach(ICameraStream& rStream);
    /// Hands it nothing more.
    void detach();
    /// Queues again, in their order and before all others, what an ended camera had not filled.
    /// @param[in] pFilled  a buffer that it had filled, null when there is none.
    void takeBack(const Buffer* pFilled);
    bool take(CameraBuffer& rBuffer) override;
    void missed(uint64_t nFrames) override;
    /// The buffer waits for a fetch from now on.
    void deliver(Buffer& rBuffer, NamedFrameInfo& rInfo);

    struct Counts {
        uint64_t nDelivered = 0, nUnderrun = 0, nStarted = 0, nIncomplete = 0;  // since the acquisition started
        std::size_t nAnnounced = 0, nQueued = 0, nFilled = 0;                   // now
    };
    Counts counts() const;

private:
    // The caller holds the lock.
    std::shared_ptr<Buffer> ofThisStream(BufferHandle hBuffer) const;
    void move(Buffer& rBuffer, eBufferState eState);
    Buffer::List& listOf(eBufferState eState);
    bool hand(Buffer& rBuffer);

    const DataStream* const m_pOwner;

    mutable std::mutex m_mtx;  // guards all members below
    bool m_bOpen = false;
    Buffer::List m_lstIdle, m_lstQueued, m_lstHeld, m_lstFilling, m_lstFilled;
    ICameraStream* m_pCamera = nullptr;  // of the running acquisition
    Counts m_counts;                     // those since the acquisition started
};

}  // namespace StandIn
}  // namespace XAPEL2
