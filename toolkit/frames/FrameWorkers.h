// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Threads that take work on frames off the one that fetches them.

#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace XAPEL2 {
namespace Toolkit {

/// Works on frames beside the thread that fetches them. The frames stand in buffers, of which there are so many and no
/// more: each is given back when the work on it is done, so that whoever fetches waits for a slow disc, and memory is
/// bounded by the ring of buffers.
/// @threads one object per thread; the work runs on others.
class CFrameWorkers {
public:
    using Job = std::function<void()>;

    /// @param[in] nThreads  0: as many as there are processors, 4 at most.
    explicit CFrameWorkers(unsigned nThreads = 0);
    /// Waits for all work.
    ~CFrameWorkers();
    CFrameWorkers(const CFrameWorkers&) = delete;
    CFrameWorkers& operator=(const CFrameWorkers&) = delete;

    /// Hands over a piece of work. The first one that fails is told by the next call, and the work on later ones is
    /// left out.
    /// @param[in] fnWork  begins in the order of the calls, beside that of others.
    /// @param[in] fnDone  follows the work, also where it failed or was left out.
    /// @throws what work before it threw; then neither is called.
    void add(Job fnWork, Job fnDone);

    /// Waits for all work. @throws what the first that failed threw, once.
    void finish();

private:
    struct Task {
        Job fnWork, fnDone;
    };
    void run();
    void attempt(const Job& rJob);

    std::mutex m_mtx;  // guards the next five
    std::condition_variable m_cvWork, m_cvIdle;
    std::deque<Task> m_lstTasks;
    unsigned m_nBusy = 0;
    bool m_bEnd = false;
    bool m_bFailed = false;
    std::exception_ptr m_pFailure;  // that nobody was told of
    std::vector<std::thread> m_vecThreads;
};

}  // namespace Toolkit
}  // namespace XAPEL2
