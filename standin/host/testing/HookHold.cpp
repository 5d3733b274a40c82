// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Holds a hook call between its look-up and the call.

#include "standin/host/testing/HookHold.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "standin/host/testing/Control.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

struct Hold {
    eHook eKind;
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

// Waits here when a HookHold wants this call.
void passHold(eHook eKind) {
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

// The functions in the host's table. Their context is the registered hook.

template <class tFunction, eHook KIND, class... tArguments>
int callHeld(void* pHook, tArguments... arguments) {
    passHold(KIND);
    const Hook& rHook = *static_cast<const Hook*>(pHook);
    return reinterpret_cast<tFunction>(rHook.pfn)(arguments..., rHook.pContext);
}

int heldFetch(void** ppBuffer, unsigned long long iTimeout, void* pHook) {
    return callHeld<DataStreamGetFilledBufferFunc, eHookFetch>(pHook, ppBuffer, iTimeout);
}

int heldCancel(void* pHook) {
    return callHeld<DataStreamCancelGetFilledBufferFunc, eHookCancel>(pHook);
}

int heldInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pHook) {
    return callHeld<DataStreamGetInfoFunc, eHookInfo>(pHook, iInfoCmd, piType, pValue, piSize);
}

int heldClose(void* pStream, void* pHook) {
    return callHeld<DeviceCloseDataStreamFunc, eHookClose>(pHook, pStream);
}

int heldOpen(void* pStream, void* pHook) {
    return callHeld<DeviceOpenDataStreamFunc, eHookOpen>(pHook, pStream);
}

void (*heldFunction(eHook eKind))() {
    switch (eKind) {
        case eHookFetch:
            return reinterpret_cast<void (*)()>(&heldFetch);
        case eHookCancel:
            return reinterpret_cast<void (*)()>(&heldCancel);
        case eHookInfo:
            return reinterpret_cast<void (*)()>(&heldInfo);
        case eHookClose:
            return reinterpret_cast<void (*)()>(&heldClose);
        case eHookOpen:
            return reinterpret_cast<void (*)()>(&heldOpen);
    }
    return nullptr;
}

using HookKey = std::pair<std::uintptr_t, void*>;

// Allocates past operator new, in which tests count what is left behind and let memory run out.
template <class tValue>
struct CUncounted {
    using value_type = tValue;
    CUncounted() = default;
    template <class tOther>
    CUncounted(const CUncounted<tOther>& /*rOther*/) {}
    tValue* allocate(std::size_t nCount) {
        void* const pMemory = std::malloc(nCount * sizeof(tValue));
        if (pMemory == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<tValue*>(pMemory);
    }
    void deallocate(tValue* pMemory, std::size_t /*nCount*/) { std::free(pMemory); }
    template <class tOther>
    bool operator==(const CUncounted<tOther>& /*rOther*/) const {
        return true;
    }
    template <class tOther>
    bool operator!=(const CUncounted<tOther>& /*rOther*/) const {
        return false;
    }
};

}  // namespace

Hook holdable(eHook eKind, const Hook& rRegistered) {
    using Hooks = std::map<HookKey, Hook, std::less<>, CUncounted<std::pair<const HookKey, Hook>>>;
    static std::mutex* const pMutex = new std::mutex;
    static Hooks* const pHooks = new Hooks;
    const std::lock_guard<std::mutex> lock(*pMutex);
    const HookKey key(reinterpret_cast<std::uintptr_t>(rRegistered.pfn), rRegistered.pContext);
    return {heldFunction(eKind), &pHooks->try_emplace(key, rRegistered).first->second};
}

Hook registeredOf(const Hook& rHoldable) {
    return rHoldable.pfn == nullptr ? Hook() : *static_cast<const Hook*>(rHoldable.pContext);
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
