// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The misbehaviours of the host that tests switch on: processors, buffers, cancels.

#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "standin/host/testing/Control.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {
namespace StandIn {

struct Switches {
    std::atomic<bool> bDropNodeMap{false};
    std::atomic<bool> bAnyForced{false};    // mirrors !mapForced.empty()
    std::atomic<bool> bAnyNoAnswer{false};  // mirrors !setNoAnswer.empty()
    std::atomic<std::size_t> nImageOffset{0};
    std::atomic<Control::eCancelMode> eCancel{Control::eEndsAllBegun};
    COptionalFunction<std::function<Control::eBufferFault(uint64_t)>> fnBufferFault;
    COptionalFunction<std::function<void(uint64_t, void*, std::size_t)>> fnFrameContent;

    std::mutex mtx;  // guards the containers below
    std::set<std::string> setDroppedNodes;
    std::map<int64_t, int64_t> mapForced;
    std::set<int32_t> setNoAnswer;
};
Switches& switches();

bool isDropped(const std::string& strNode);
/// The status that is forced on this command; empty for its own.
std::optional<int64_t> statusFor(int64_t iCommand);
bool isUnanswered(int32_t iInfoCmd);

void resetSwitches();

}  // namespace StandIn
}  // namespace XAPEL2
