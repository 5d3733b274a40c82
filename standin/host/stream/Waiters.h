// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The fetches of a stream: they wait for a filled buffer, a cancel, or their time-out.

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "standin/host/stream/BufferQueue.h"
#include "standin/host/stream/CancelPolicy.h"

namespace XAPEL2 {
namespace StandIn {

/// Results are GenTL codes.
/// @threads any thread. Its lock guards the list of those that wait and what ends them; the queue's lock is taken under
/// it.
class CWaiters : private ICancelledFetches {
public:
    CWaiters(CBufferQueue& rQueue, std::unique_ptr<ICancelPolicy> pPolicy)
        : m_rQueue(rQueue), m_pPolicy(std::move(pPolicy)) {}
    CWaiters(const CWaiters&) = delete;
    CWaiters& operator=(const CWaiters&) = delete;

    /// The cancels of all streams so far: a fetch whose stamp is behind its stream's last one ends. Of all streams,
    /// since a hook may carry a call on to another stream than it began on.
    static uint64_t cancelStamp() { return s_uCancels.load(std::memory_order_acquire); }

    void open();
    /// Whoever came before ends, however the cancel is set to behave.
    void close();
    /// @param[in] pFrame  the call that keeps the buffer, may be null.
    int fetch(BufferHandle* phBuffer, unsigned long long iTimeoutMs, uint64_t uStamp, CCallFrame* pFrame);
    int cancel();

    /// A buffer has been filled.
    void frameCame();
    /// Fetches that find no frame return this code from now on, with this text as the last error; 0: they wait again.
    void setFailure(int iCode, const std::string& strText);
    int failure() const;
    /// Fetches that wait.
    std::size_t count() const;

private:
    struct Waiter {
        bool bEnded = false;
    };

    // The caller holds the lock.
    void endBegun() override { m_uLastCancel = s_uCancels.fetch_add(1, std::memory_order_release) + 1; }
    bool endOldestWaiting() override;
    bool isOver(const Waiter& rWaiter, uint64_t uStamp) const { return rWaiter.bEnded || m_uLastCancel > uStamp; }

    static std::atomic<uint64_t> s_uCancels;

    CBufferQueue& m_rQueue;

    mutable std::mutex m_mtx;            // guards all members below
    std::condition_variable m_cvChange;  // a buffer was filled, fetches were ended, or the camera was lost
    const std::unique_ptr<ICancelPolicy> m_pPolicy;
    bool m_bOpen = false;
    std::vector<Waiter*> m_vecWaiters;  // in the order in which they began to wait
    uint64_t m_uLastCancel = 0;         // of s_uCancels, the one that ended the fetches of this stream
    int m_iFailure = 0;
    std::string m_strFailure;
};

}  // namespace StandIn
}  // namespace XAPEL2
