// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the control header tells about hooks and streams, and the reset of everything.

#include <algorithm>
#include <chrono>
#include <thread>

#include "standin/host/objects/Registry.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"
#include "standin/host/testing/Switches.h"
#include "xapel2_standin/Control.h"

namespace XAPEL2 {
namespace StandIn {
namespace Control {

void reset() {
    releaseAllHolds();
    resetFaults();
    resetSwitches();
    resetObservation();
}

std::vector<RegisteredHook> registeredHooks() {
    std::vector<RegisteredHook> vecHooks;
    for (const auto& pDevice : Registry::devices()) {
        pDevice->hooks().list(vecHooks);
        for (const auto& pStream : pDevice->streams()) {
            pStream->hooks().list(vecHooks);
        }
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

void hideStreams(Device* pShell, bool bHide) {
    if (const auto pDevice = Registry::findDevice(pShell)) {
        pDevice->hideStreams(bHide);
    }
}

}  // namespace Control
}  // namespace StandIn
}  // namespace XAPEL2
