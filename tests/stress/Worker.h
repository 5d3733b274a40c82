// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A thread under stress: its random choices, and what it is doing at the moment, for the watchdog.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>

namespace XapelStress {

inline int64_t nowUs() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::microseconds(1);
}

class CWorker {
public:
    CWorker(std::string strName, uint64_t uSeed);
    ~CWorker();
    CWorker(const CWorker&) = delete;
    CWorker& operator=(const CWorker&) = delete;

    /// Runs a step that the watchdog times.
    template <typename Step>
    auto doing(const char* pWhat, Step fnStep) {
        struct Scope {
            std::atomic<const char*>& r;
            ~Scope() { r = nullptr; }
        } scope{m_pDoing};
        m_tSince = nowUs();
        m_pDoing = pWhat;
        return fnStep();
    }

    unsigned pick(unsigned n) { return static_cast<unsigned>(m_random() >> 4) % n; }
    bool oneIn(unsigned n) { return pick(n) == 0; }
    /// Up to a millisecond, often nothing.
    void pause();

    const std::string m_strName;
    std::atomic<const char*> m_pDoing{nullptr};  // null between two steps
    std::atomic<int64_t> m_tSince{0};            // us

private:
    std::minstd_rand m_random;
};

/// From now on: when a step takes longer than 10 s, prints who does what since when, and the seed, and aborts.
void startWatchdog(uint64_t uSeed);

}  // namespace XapelStress
