// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Holds a hook call between its look-up and the call.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>

#include "standin/host/hooks/Hooks.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

struct Hold {
    Control::eHook eKind;
    bool bHeld = false;
    bool bReleased = false;
};

struct HoldState {
    std::atomic<unsigned> nWaiting{0};            // mirrors vecHolds.size()
    std::mutex mtx;                               // guards vecHolds and what each Hold says
    std::condition_variable cv;                   // a call is held, or may go on
    std::vector<std::shared_ptr<Hold>> vecHolds;  // those that wait for a call, or hold one
};

HoldState& state() {
    static HoldState* const pState = new HoldState;
    return *pState;
}

// The caller holds the state's lock.
void take(HoldState& rState, const std::shared_ptr<Hold>& pHold) {
    pHold->bReleased = true;
    auto& rHolds = rState.vecHolds;
    rHolds.erase(std::remove(rHolds.begin(), rHolds.end(), pHold), rHolds.end());
    rState.nWaiting = static_cast<unsigned>(rHolds.size());
    rState.cv.notify_all();
}

const std::shared_ptr<Hold>& holdOf(void* pImpl) {
    return *static_cast<std::shared_ptr<Hold>*>(pImpl);
}

}  // namespace

void passHold(Control::eHook eKind) {
    HoldState& rState = state();
    if (rState.nWaiting.load(std::memory_order_relaxed) == 0) {
        return;
    }
    std::unique_lock<std::mutex> lock(rState.mtx);
    const auto it = std::find_if(rState.vecHolds.begin(), rState.vecHolds.end(),
                                 [eKind](const auto& pEach) { return pEach->eKind == eKind && !pEach->bHeld; });
    if (it == rState.vecHolds.end()) {
        return;
    }
    const std::shared_ptr<Hold> pHold = *it;
    pHold->bHeld = true;
    rState.cv.notify_all();
    rState.cv.wait(lock, [&pHold] { return pHold->bReleased; });
}

void releaseAllHolds() {
    HoldState& rState = state();
    std::lock_guard<std::mutex> lock(rState.mtx);
    while (!rState.vecHolds.empty()) {
        const std::shared_ptr<Hold> pHold = rState.vecHolds.back();
        take(rState, pHold);
    }
}

namespace Control {

HookHold::HookHold(eHook eKind) : m_pImpl(nullptr) {
    auto pHold = std::make_unique<std::shared_ptr<Hold>>(std::make_shared<Hold>());
    (*pHold)->eKind = eKind;
    HoldState& rState = state();
    std::lock_guard<std::mutex> lock(rState.mtx);
    rState.vecHolds.push_back(*pHold);
    rState.nWaiting = static_cast<unsigned>(rState.vecHolds.size());
    m_pImpl = pHold.release();
}

HookHold::~HookHold() {
    release();
    delete static_cast<std::shared_ptr<Hold>*>(m_pImpl);
}

bool HookHold::waitUntilHeld(unsigned iDeadlineMs) {
    HoldState& rState = state();
    std::unique_lock<std::mutex> lock(rState.mtx);
    return rState.cv.wait_for(lock, std::chrono::milliseconds(iDeadlineMs), [this] { return holdOf(m_pImpl)->bHeld; });
}

void HookHold::release() {
    std::lock_guard<std::mutex> lock(state().mtx);
    take(state(), holdOf(m_pImpl));
}

}  // namespace Control

}  // namespace StandIn
}  // namespace XAPEL2
