// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the control header tells about hooks and streams, and the reset of everything.

#include <algorithm>
#include <chrono>
#include <thread>

#include "standin/host/objects/Registry.h"
#include "standin/host/testing/Control.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/HookHold.h"
#include "standin/host/testing/Observation.h"
#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {
namespace Control {

void reset() {
    releaseAllHolds();
    resetFaults();
    resetSwitches();
    resetObservation();
    resetTrace();
}

std::vector<RegisteredHook> registeredHooks() {
    std::vector<PlacedHook> vecPlaced;
    for (const auto& pDevice : Registry::devices()) {
        pDevice->hooks().list(vecPlaced);
        for (const auto& pStream : pDevice->streams()) {
            pStream->hooks().list(vecPlaced);
        }
    }
    std::vector<RegisteredHook> vecHooks;
    for (const PlacedHook& rPlaced : vecPlaced) {
        const Hook hook = registeredOf(rPlaced.hook);
        vecHooks.push_back({rPlaced.eKind, reinterpret_cast<void*>(hook.pfn), hook.pContext});
    }
    return vecHooks;
}

std::size_t liveHooks() {
    return registeredHooks().size();
}

std::size_t liveHooks(const void* pContext) {
    const std::vector<RegisteredHook> vecHooks = registeredHooks();
    return static_cast<std::size_t>(
        std::count_if(vecHooks.begin(), vecHooks.end(),
                      [pContext](const RegisteredHook& rHook) { return rHook.pContext == pContext; }));
}

std::vector<void*> hookContexts() {
    std::vector<void*> vecContexts;
    for (const RegisteredHook& rHook : registeredHooks()) {
        if (std::find(vecContexts.begin(), vecContexts.end(), rHook.pContext) == vecContexts.end()) {
            vecContexts.push_back(rHook.pContext);
        }
    }
    return vecContexts;
}

bool waitForBlockedFetches(DataStream* pShell, unsigned nCount, unsigned iDeadlineMs) {
    const auto pStream = Registry::findStream(pShell);
    const auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(iDeadlineMs);
    while (pStream != nullptr && pStream->waiters().count() < nCount) {
        if (std::chrono::steady_clock::now() > tEnd) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return pStream != nullptr;
}

DataStream* addFirstStream(Device* pShell) {
    const auto pDevice = Registry::findDevice(pShell);
    if (pDevice == nullptr) {
        return nullptr;
    }
    // Known before it is listed: whoever finds it in the list may use it at once.
    const auto pStream = pDevice->makeStream();
    Registry::addStream(pDevice, pStream);
    pDevice->putFirst(pStream);
    return pStream->shell();
}

}  // namespace Control
}  // namespace StandIn
}  // namespace XAPEL2
