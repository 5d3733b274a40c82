// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Fetching and cancelling.

#include "standin/host/stream/Waiters.h"

#include <algorithm>
#include <chrono>

#include "standin/host/objects/Answers.h"

namespace XAPEL2 {
namespace StandIn {

std::atomic<uint64_t> CWaiters::s_uCancels{0};

namespace {

// Longer time-outs would overflow the clock; ten years are infinite enough.
constexpr unsigned long long TIMEOUT_LONGEST_MS = 10ULL * 365 * 24 * 3600 * 1000;

}  // namespace

void CWaiters::open() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bOpen = true;
    m_iFailure = 0;
}

void CWaiters::close() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bOpen = false;
    endBegun();
    m_pPolicy->forget();
    m_cvChange.notify_all();
}

int CWaiters::fetch(BufferHandle* phBuffer, unsigned long long iTimeoutMs, uint64_t uStamp, CCallFrame* pFrame) {
    if (phBuffer == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    Waiter waiter;
    BufferHandle hBuffer = nullptr;
    std::unique_lock<std::mutex> lock(m_mtx);
    // A cancel comes before the frame, so that the frame stays for the next fetch.
    const auto fnReady = [&] {
        return isOver(waiter, uStamp) || (hBuffer = m_rQueue.takeFilled(pFrame)) != nullptr || m_iFailure != 0;
    };
    if (isOver(waiter, uStamp)) {
        return GC_ERR_ABORT;
    }
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (m_pPolicy->endsNext()) {
        return GC_ERR_ABORT;
    }
    bool bReady = fnReady();
    if (!bReady && iTimeoutMs != 0) {
        m_vecWaiters.push_back(&waiter);
        if (iTimeoutMs == TIMEOUT_INFINITE) {
            m_cvChange.wait(lock, fnReady);
            bReady = true;
        } else {
            // Only who waits looks at the clock, which takes as long as several locks.
            const auto tDeadline =
                std::chrono::steady_clock::now() + std::chrono::milliseconds(std::min(iTimeoutMs, TIMEOUT_LONGEST_MS));
            bReady = m_cvChange.wait_until(lock, tDeadline, fnReady);
        }
        m_vecWaiters.erase(std::find(m_vecWaiters.begin(), m_vecWaiters.end(), &waiter));
    }
    if (hBuffer != nullptr) {
        *phBuffer = hBuffer;
        return GC_ERR_SUCCESS;
    }
    if (!bReady) {
        return GC_ERR_TIMEOUT;
    }
    if (isOver(waiter, uStamp)) {
        return GC_ERR_ABORT;
    }
    setLastError(m_iFailure, m_strFailure.c_str());
    return m_iFailure;
}

bool CWaiters::endOldestWaiting() {
    const auto it = std::find_if(m_vecWaiters.begin(), m_vecWaiters.end(), [](const Waiter* p) { return !p->bEnded; });
    if (it == m_vecWaiters.end()) {
        return false;
    }
    (*it)->bEnded = true;
    return true;
}

int CWaiters::cancel() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    if (!m_bOpen) {
        return GC_ERR_INVALID_HANDLE;
    }
    m_pPolicy->cancel(*this);
    m_cvChange.notify_all();
    return GC_ERR_SUCCESS;
}

void CWaiters::frameCame() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    // All of them: the one that is told first may have been ended by a cancel.
    m_cvChange.notify_all();
}

void CWaiters::setFailure(int iCode, const std::string& strText) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_iFailure = iCode;
    m_strFailure = strText;
    m_cvChange.notify_all();
}

int CWaiters::failure() const {
    const std::lock_guard<std::mutex> lock(m_mtx);
    return m_iFailure;
}

std::size_t CWaiters::count() const {
    const std::lock_guard<std::mutex> lock(m_mtx);
    return m_vecWaiters.size();
}

}  // namespace StandIn
}  // namespace XAPEL2
