// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Entering and leaving the access gate, beside the standard locks.

#include "GateBench.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <thread>

#include "Rounds.h"
#include "XapelAccessControl.h"

namespace XapelBench {

namespace {

/// The mutex beside the words, as a hub has them.
struct Gate {
    XapelMutex mtx;
    XapelAccessControlData data;

    void enterAndLeave(unsigned uFlags) {
        const CXapelAccessControl guard(mtx, data, CXapelAccessControl::eShared, uFlags);
    }
};

using Loop = std::function<void(uint64_t nTimes)>;

/// Runs the loop on two threads that start together; the time is that of the slower one.
void onTwoThreads(const Loop& rLoop, uint64_t nTimes) {
    std::atomic<int> nReady{0};
    const auto fnRun = [&] {
        for (++nReady; nReady != 2;) xapelSpinPause();
        rLoop(nTimes);
    };
    std::thread other(fnRun);
    fnRun();
    other.join();
}

template <typename Step>
Loop repeat(Step fnStep) {
    return [=](uint64_t nTimes) {
        for (uint64_t i = 0; i < nTimes; ++i) fnStep();
    };
}

}  // namespace

void benchGate(const Options& rOptions) {
    alignas(64) std::mutex mutex;
    alignas(64) std::shared_mutex sharedMutex;
    alignas(64) Gate gate;
    const struct {
        const char* pName;
        Loop fnLoop;
    } aSubjects[] = {
        {"mutex", repeat([&] { const std::lock_guard<std::mutex> lock(mutex); })},
        {"shared_mutex", repeat([&] { const std::shared_lock<std::shared_mutex> lock(sharedMutex); })},
        {"ours", repeat([&] { gate.enterAndLeave(0); })},
        {"ours-flags", repeat([&] { gate.enterAndLeave(1); })},
    };
    CRounds rounds(rOptions);
    for (const auto& rSubject : aSubjects)
        rounds.add({std::string("gate-1-thread/") + rSubject.pName, rSubject.fnLoop, {}, 1000});
    // Many times: starting a thread must not count.
    for (const auto& rSubject : aSubjects)
        rounds.add({std::string("gate-2-threads/") + rSubject.pName,
                    [&](uint64_t nTimes) { onTwoThreads(rSubject.fnLoop, nTimes); },
                    {},
                    rOptions.bQuick ? 1000U : 100000U,
                    false,
                    true});
    rounds.run();
    if (gate.data.Flags() != 0 || !gate.data.IsExclusive())
        throw std::runtime_error("wrong result: the gate is not empty");
    for (std::size_t i = 0; i < 2 * std::size(aSubjects); ++i) {
        csv(rOptions, rounds.name(i), rounds.ns(i));
        note(rOptions, "%-28s %7.1f ns, spread %2.0f %%", rounds.name(i).c_str(), rounds.ns(i), 100 * rounds.spread(i));
    }
}

}  // namespace XapelBench
