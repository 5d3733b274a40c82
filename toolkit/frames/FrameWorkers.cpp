// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Threads that take work on frames off the one that fetches them.

#include "toolkit/frames/FrameWorkers.h"

#include <algorithm>
#include <utility>

namespace XAPEL2 {
namespace Toolkit {

namespace {
constexpr unsigned THREADS_MAX = 4;
}

CFrameWorkers::CFrameWorkers(unsigned nThreads) {
    const unsigned nWanted =
        nThreads != 0 ? nThreads : std::clamp(std::thread::hardware_concurrency(), 1U, THREADS_MAX);
    m_vecThreads.reserve(nWanted);
    try {
        while (m_vecThreads.size() < nWanted) {
            m_vecThreads.emplace_back([this] { run(); });
        }
    } catch (const std::exception&) {
        // One is slower, and enough. What leaves here would end the program where a thread runs already.
        if (m_vecThreads.empty()) {
            throw;
        }
    }
}

CFrameWorkers::~CFrameWorkers() {
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        m_bEnd = true;
    }
    m_cvWork.notify_all();
    for (std::thread& rThread : m_vecThreads) {
        rThread.join();
    }
}

void CFrameWorkers::add(Job fnWork, Job fnDone) {
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (m_pFailure) {
            std::rethrow_exception(std::exchange(m_pFailure, nullptr));
        }
        m_lstTasks.push_back({std::move(fnWork), std::move(fnDone)});
    }
    m_cvWork.notify_one();
}

void CFrameWorkers::finish() {
    std::unique_lock<std::mutex> lock(m_mtx);
    m_cvIdle.wait(lock, [this] { return m_lstTasks.empty() && m_nBusy == 0; });
    m_bFailed = false;
    if (m_pFailure) {
        std::rethrow_exception(std::exchange(m_pFailure, nullptr));
    }
}

void CFrameWorkers::attempt(const Job& rJob) {
    try {
        rJob();
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (!std::exchange(m_bFailed, true)) {
            m_pFailure = std::current_exception();
        }
    }
}

void CFrameWorkers::run() {
    std::unique_lock<std::mutex> lock(m_mtx);
    for (;;) {
        m_cvWork.wait(lock, [this] { return m_bEnd || !m_lstTasks.empty(); });
        if (m_lstTasks.empty()) {
            return;
        }
        {
            const Task task = std::move(m_lstTasks.front());
            m_lstTasks.pop_front();
            ++m_nBusy;
            const bool bLeftOut = m_bFailed;
            lock.unlock();
            if (!bLeftOut) {
                attempt(task.fnWork);
            }
            attempt(task.fnDone);
        }
        lock.lock();
        --m_nBusy;
        m_cvIdle.notify_all();
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
