// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The table of injected faults and the call counters.

#include "standin/host/testing/Faults.h"

#include <array>
#include <atomic>
#include <mutex>
#include <stdexcept>

#include "standin/host/objects/Throw.h"

namespace XAPEL2 {
namespace StandIn {

using Control::Fault;

namespace {

struct ActiveFault {
    Fault fault;
    uint64_t nSeen;
};

struct FaultState {
    std::array<std::atomic<uint64_t>, Control::eOpCount> aCalls{};
    std::atomic<bool> bAny{false};  // mirrors !vecFaults.empty(), so that a call without faults takes no lock
    std::atomic<uint64_t> nHits{0};
    std::atomic<uint64_t> nCancelsDone{0};
    std::mutex mtx;  // guards vecFaults
    std::vector<ActiveFault> vecFaults;
};

// Never destroyed: threads may still trace while the process ends.
FaultState& state() {
    static FaultState* const pState = new FaultState;
    return *pState;
}

bool concerns(const Fault& rFault, Control::eHostOp eOp, const char* pNode) {
    return rFault.eOp == eOp && (rFault.strNode.empty() || (pNode != nullptr && rFault.strNode == pNode));
}

// The first fault in the order of injection that this call hits; every fault that it concerns counts it.
bool countAndFind(Control::eHostOp eOp, const char* pNode, Control::eFaultKind& rKind) {
    FaultState& rState = state();
    bool bHit = false;
    std::lock_guard<std::mutex> lock(rState.mtx);
    for (ActiveFault& rActive : rState.vecFaults) {
        if (!concerns(rActive.fault, eOp, pNode)) {
            continue;
        }
        ++rActive.nSeen;
        const bool bNow =
            rActive.nSeen == rActive.fault.nCall || (rActive.fault.bFromThen && rActive.nSeen > rActive.fault.nCall);
        if (bNow && !bHit) {
            bHit = true;
            rKind = rActive.fault.eKind;
        }
    }
    return bHit;
}

}  // namespace

bool faultHits(Control::eHostOp eOp, const char* pNode) {
    FaultState& rState = state();
    rState.aCalls[eOp].fetch_add(1, std::memory_order_relaxed);
    Control::eFaultKind eKind = Control::eRefuse;
    if (!rState.bAny.load(std::memory_order_relaxed) || !countAndFind(eOp, pNode, eKind)) {
        return false;
    }
    rState.nHits.fetch_add(1, std::memory_order_relaxed);
    switch (eKind) {
        case Control::eThrowHost:
            raise<Exceptions::Xapel_ErrorException>(__FILE__, __LINE__, Control::name(eOp), "injected");
        case Control::eThrowStd:
            throw std::runtime_error("injected");
        case Control::eRefuse:
            break;
    }
    return true;
}

void noteCancelDone() {
    state().nCancelsDone.fetch_add(1, std::memory_order_release);
}

void resetFaults() {
    FaultState& rState = state();
    std::lock_guard<std::mutex> lock(rState.mtx);
    rState.vecFaults.clear();
    rState.bAny.store(false, std::memory_order_relaxed);
    rState.nHits.store(0, std::memory_order_relaxed);
    rState.nCancelsDone.store(0, std::memory_order_relaxed);
    for (std::atomic<uint64_t>& rCalls : rState.aCalls) {
        rCalls.store(0, std::memory_order_relaxed);
    }
}

namespace Control {

void inject(const Fault& rFault) {
    FaultState& rState = state();
    std::lock_guard<std::mutex> lock(rState.mtx);
    rState.vecFaults.push_back({rFault, 0});
    rState.bAny.store(true, std::memory_order_relaxed);
}

uint64_t hits() {
    return state().nHits.load(std::memory_order_relaxed);
}

uint64_t cancelsDone() {
    return state().nCancelsDone.load(std::memory_order_acquire);
}

uint64_t calls(eHostOp eOp) {
    return eOp < eOpCount ? state().aCalls[eOp].load(std::memory_order_relaxed) : 0;
}

const char* name(eHostOp eOp) {
    // clang-format off
    static const char* const aNames[] = {
        "RegisterFetch", "RegisterCancel", "RegisterInfo", "RegisterClose", "RegisterOpen",
        "RemoveFetch", "RemoveCancel", "RemoveInfo", "RemoveClose", "RemoveOpen",
        "HostFetch", "HostCancel", "HostInfo", "HostClose",
        "GetDataStreams", "ListRefresh", "ListSize", "ListBegin", "ListEntry", "StreamIsOpen", "StreamOpen",
        "GetRemoteNode", "CreateProcessor", "GetNodeList", "GetNodePresent", "GetNode",
        "NodeSetInt", "NodeGetInt", "NodeGetIntMin", "NodeGetIntMax", "NodeSetString", "NodeSetValue", "NodeGetString",
        "GetBufferInfoFunc", "GetPixelFormatFunc", "BufferInfo", "BufferPixelFormat",
        "Trace"};
    // clang-format on
    static_assert(sizeof(aNames) / sizeof(aNames[0]) == eOpCount, "one name for each operation");
    return eOp < eOpCount ? aNames[eOp] : "?";
}

}  // namespace Control

}  // namespace StandIn
}  // namespace XAPEL2
