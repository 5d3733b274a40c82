// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The list of workers and the watchdog.

#include "Worker.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace XapelStress {

namespace {

constexpr int64_t LIMIT_US = 10000000;

std::mutex g_mtxWorkers;  // guards g_workers
std::set<const CWorker*> g_workers;

bool hangs(const CWorker& rWorker, int64_t tNow) {
    return rWorker.m_pDoing != nullptr && tNow - rWorker.m_tSince > LIMIT_US;
}

void watch(uint64_t uSeed) {
    bool bHang = false;
    while (!bHang) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const std::lock_guard<std::mutex> lock(g_mtxWorkers);
        const int64_t tNow = nowUs();
        for (const CWorker* pWorker : g_workers) bHang = bHang || hangs(*pWorker, tNow);
        for (const CWorker* pWorker : g_workers) {
            const char* pDoing = pWorker->m_pDoing;
            if (bHang)
                std::fprintf(stderr, "%s: %s for %lld us\n", pWorker->m_strName.c_str(),
                             pDoing == nullptr ? "between two steps" : pDoing,
                             static_cast<long long>(tNow - pWorker->m_tSince));
        }
    }
    std::fprintf(stderr, "broken: hang, seed %llu\n", static_cast<unsigned long long>(uSeed));
    std::abort();
}

}  // namespace

CWorker::CWorker(std::string strName, uint64_t uSeed) : m_strName(std::move(strName)), m_random(uSeed) {
    const std::lock_guard<std::mutex> lock(g_mtxWorkers);
    g_workers.insert(this);
}

CWorker::~CWorker() {
    const std::lock_guard<std::mutex> lock(g_mtxWorkers);
    g_workers.erase(this);
}

void CWorker::pause() {
    if (!oneIn(3))
        std::this_thread::sleep_for(std::chrono::microseconds(pick(1000)));
}

void startWatchdog(uint64_t uSeed) {
    std::thread(watch, uSeed).detach();
}

}  // namespace XapelStress
