// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A data stream: its buffers and their queues, the acquisition that fills them, the fetches that wait for them.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "standin/host/hooks/Hooks.h"
#include "standin/host/stream/Buffers.h"
#include "standin/host/stream/Camera.h"

namespace XAPEL2 {
namespace StandIn {

/// The host's own implementation of a stream, behind the hooks. Results are GenTL codes.
/// @threads any thread. Lock order: control lock, stream lock, then the leaf locks of camera, buffer table and hooks.
class CStream {
public:
    CStream(std::shared_ptr<CCamera> pCamera, DataStream* pShell, std::string strId);
    ~CStream();
    CStream(const CStream&) = delete;
    CStream& operator=(const CStream&) = delete;

    DataStream* shell() const { return m_pShell; }
    const std::string& id() const { return m_strId; }
    CHooks& hooks() { return m_hooks; }

    bool isOpen() const;
    /// False when it is open already.
    bool open();
    int close();
    /// True on the thread that fills this stream's buffers: it can neither stop nor close the stream.
    bool isProducerThread() const;

    std::size_t payloadSize() const;
    /// @param[in] pMemory  null: the stream allocates.
    int announce(void* pMemory, std::size_t nBytes, BufferHandle* phBuffer);
    int revoke(BufferHandle hBuffer);
    int queue(BufferHandle hBuffer);
    int flush();
    int start(uint64_t nFrames);
    int stop();

    /// Cancels so far: a fetch whose stamp is another one ends.
    /// The cancels of all streams so far: a hook may carry a call on to another stream than it began on.
    static uint64_t cancelStamp() { return s_uCancels.load(std::memory_order_acquire); }
    int fetch(void** ppBuffer, unsigned long long iTimeoutMs, uint64_t uStamp);
    int cancel();
    bool waitForBlocked(unsigned nCount, unsigned iDeadlineMs);

    int info(int iInfoCmd, const InfoSlot& rSlot) const;

private:
    struct Waiter {
        bool bEnded = false;
    };
    struct Counts {
        uint64_t nDelivered = 0, nUnderrun = 0, nStarted = 0, nIncomplete = 0;
    };

    // The caller holds the stream lock.
    std::shared_ptr<Buffer> ofThisStream(BufferHandle hBuffer) const;
    void move(Buffer& rBuffer, Buffer::List& rTo, eBufferState eState);
    Buffer::List& listOf(eBufferState eState);
    bool endOneWaiter();
    bool endAllWaiters();
    bool fetchIsOver(const Waiter& rWaiter, uint64_t uStamp) const;
    /// A call that reads the new stamp began later and goes on.
    void endFetchesBegun() { m_uLastCancel = s_uCancels.fetch_add(1, std::memory_order_release) + 1; }
    int takeFilled(void** ppBuffer);
    int failFetch() const;
    std::size_t payloadSizeLocked() const;

    // The caller holds the control lock, not the stream lock.
    void stopProducer();
    void startProducer(uint64_t nFrames);
    ILiveStream& startLive();

    // The caller holds the stream lock.
    void handOver(Buffer& rBuffer);
    // No lock held; on the producer thread or while there is none.
    void endLive(const Buffer* pFilled = nullptr);

    // Producer thread, no lock held.
    void produce(uint64_t nFrames);
    void produceLive(ILiveStream& rLive, uint64_t nFrames);
    Buffer* nextLive(ILiveStream& rLive, NamedFrameInfo& rInfo);
    Buffer* nextQueued();
    bool waitForTick(uint64_t nHz);
    NamedFrameInfo fillFrame(const Buffer& rBuffer, uint64_t iFrame);
    void writeFrame(const Buffer& rBuffer, const FrameRequest& rRequest, uint64_t iFrame, FrameInfo& rInfo);
    void deliver(Buffer& rBuffer, NamedFrameInfo& rInfo, bool bLast);

    const std::shared_ptr<CCamera> m_pCamera;
    DataStream* const m_pShell;
    const std::string m_strId;
    CHooks m_hooks;

    std::mutex m_mtxControl;  // serialises start, stop, open and close; guards m_threadProducer
    std::thread m_threadProducer;

    mutable std::mutex m_mtx;             // the stream lock: guards all members below
    std::condition_variable m_cvFilled;   // a buffer was filled, or waiting fetches were ended
    std::condition_variable m_cvQueued;   // a buffer was queued, or the producer is to stop
    std::condition_variable m_cvBlocked;  // a fetch began to wait
    bool m_bOpen = false;
    bool m_bGrabbing = false;
    bool m_bStop = false;
    Buffer::List m_lstIdle, m_lstQueued, m_lstFilling, m_lstFilled;
    std::vector<Waiter*> m_vecWaiters;  // in the order in which they began to wait
    static std::atomic<uint64_t> s_uCancels;
    uint64_t m_uLastCancel = 0;            // of s_uCancels, the one that ended the fetches of this stream
    unsigned m_nSticky = 0;                // fetches yet to come that a cancel has ended already
    std::size_t m_nImageOffset = 0;        // of the running acquisition
    std::unique_ptr<ILiveStream> m_pLive;  // of a live camera's running acquisition
    int m_iFailure = 0;                    // what fetches get that find no frame since the camera was lost
    std::string m_strFailure;              // why
    Counts m_counts;
    std::chrono::steady_clock::time_point m_tNextTick;  // producer thread only
};

}  // namespace StandIn
}  // namespace XAPEL2
