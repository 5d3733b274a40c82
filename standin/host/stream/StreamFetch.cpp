// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Fetching, cancelling, and the information on a stream.

#include <algorithm>
#include <chrono>

#include "standin/host/objects/Answers.h"
#include "standin/host/stream/CallFrame.h"
#include "standin/host/stream/Stream.h"
#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Longer time-outs would overflow the clock; ten years are infinite enough.
constexpr unsigned long long TIMEOUT_LONGEST_MS = 10ULL * 365 * 24 * 3600 * 1000;

}  // namespace

bool CStream::fetchIsOver(const Waiter& rWaiter, uint64_t uStamp) const {
    return rWaiter.bEnded || m_uLastCancel > uStamp;
}

int CStream::takeFilled(void** ppBuffer) {
    Buffer& rBuffer = *m_lstFilled.front();
    // A hook may fetch from another stream than the application named.
    CCallFrame* const pSame = CCallFrame::find(m_pShell);
    if (CCallFrame* pFrame = pSame != nullptr ? pSame : CCallFrame::innermost()) {
        pFrame->keep(m_lstFilled.front());
    }
    move(rBuffer, m_lstIdle, eBufferIdle);
    ++m_counts.nDelivered;
    *ppBuffer = rBuffer.hBuffer;
    return GC_ERR_SUCCESS;
}

int CStream::failFetch() const {
    setLastError(m_iFailure, m_strFailure.c_str());
    return m_iFailure;
}

int CStream::fetch(void** ppBuffer, unsigned long long iTimeoutMs, uint64_t uStamp) {
    if (ppBuffer == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    const bool bForever = iTimeoutMs == TIMEOUT_INFINITE;
    const auto tDeadline = std::chrono::steady_clock::now() +
                           std::chrono::milliseconds(iTimeoutMs < TIMEOUT_LONGEST_MS ? iTimeoutMs : TIMEOUT_LONGEST_MS);
    Waiter waiter;
    std::unique_lock<std::mutex> lock(m_mtx);
    // A cancel comes before the frame, so that the frame stays for the next fetch.
    if (fetchIsOver(waiter, uStamp)) {
        return GC_ERR_ABORT;
    }
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (m_nSticky > 0) {
        --m_nSticky;
        return GC_ERR_ABORT;
    }
    if (!m_lstFilled.empty()) {
        return takeFilled(ppBuffer);
    }
    if (m_iFailure != 0) {
        return failFetch();
    }
    if (iTimeoutMs == 0) {
        return GC_ERR_TIMEOUT;
    }
    m_vecWaiters.push_back(&waiter);
    m_cvBlocked.notify_all();
    const auto fnReady = [&] { return fetchIsOver(waiter, uStamp) || !m_lstFilled.empty() || m_iFailure != 0; };
    bool bReady = true;
    if (bForever) {
        m_cvFilled.wait(lock, fnReady);
    } else {
        bReady = m_cvFilled.wait_until(lock, tDeadline, fnReady);
    }
    m_vecWaiters.erase(std::find(m_vecWaiters.begin(), m_vecWaiters.end(), &waiter));
    if (!bReady) {
        return GC_ERR_TIMEOUT;
    }
    if (fetchIsOver(waiter, uStamp)) {
        return GC_ERR_ABORT;
    }
    return m_lstFilled.empty() ? failFetch() : takeFilled(ppBuffer);
}

bool CStream::endOneWaiter() {
    for (Waiter* pWaiter : m_vecWaiters) {
        if (!pWaiter->bEnded) {
            pWaiter->bEnded = true;
            return true;
        }
    }
    return false;
}

bool CStream::endAllWaiters() {
    bool bAny = false;
    while (endOneWaiter()) {
        bAny = true;
    }
    return bAny;
}

int CStream::cancel() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    switch (switches().eCancel.load()) {
        case Control::eEndsAllBegun:
            endFetchesBegun();
            break;
        case Control::eWakesOne:
            if (!endOneWaiter()) {
                ++m_nSticky;
            }
            break;
        case Control::eSticksWithoutWaiter:
            if (!endAllWaiters()) {
                m_nSticky = 1;
            }
            break;
        case Control::eForgotten:
            endAllWaiters();
            break;
        case Control::eIgnored:
            break;
    }
    m_cvFilled.notify_all();
    return GC_ERR_SUCCESS;
}

bool CStream::waitForBlocked(unsigned nCount, unsigned iDeadlineMs) {
    std::unique_lock<std::mutex> lock(m_mtx);
    return m_cvBlocked.wait_for(lock, std::chrono::milliseconds(iDeadlineMs),
                                [&] { return m_vecWaiters.size() >= nCount; });
}

int CStream::info(int iInfoCmd, const InfoSlot& rSlot) const {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    switch (iInfoCmd) {
        case STREAM_INFO_ID:
            return writeText(rSlot, m_strId.c_str());
        case STREAM_INFO_NUM_DELIVERED:
            return writeUint64(rSlot, m_counts.nDelivered);
        case STREAM_INFO_NUM_UNDERRUN:
            return writeUint64(rSlot, m_counts.nUnderrun);
        case STREAM_INFO_NUM_ANNOUNCED:
            return writeSize(rSlot, m_lstIdle.size() + m_lstQueued.size() + m_lstFilling.size() + m_lstFilled.size());
        case STREAM_INFO_NUM_QUEUED:
            // What a live camera's transport holds is queued too: nobody knows which one it is writing to.
            return writeSize(rSlot, m_lstQueued.size() + (m_pLive != nullptr ? m_lstFilling.size() : 0));
        case STREAM_INFO_NUM_AWAIT_DELIVERY:
            return writeSize(rSlot, m_lstFilled.size());
        case STREAM_INFO_NUM_STARTED:
            return writeSize(rSlot, m_counts.nStarted);
        case STREAM_INFO_PAYLOAD_SIZE:
            return writeSize(rSlot, payloadSizeLocked());
        case STREAM_INFO_STANDIN_NUM_INCOMPLETE:
            return writeUint64(rSlot, m_counts.nIncomplete);
        case STREAM_INFO_IS_GRABBING:
            return writeBool(rSlot, m_bGrabbing && m_iFailure == 0);
        default:
            return GC_ERR_NOT_IMPLEMENTED;
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
