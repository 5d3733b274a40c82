// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The switches, and the control operations that set them.

#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

Switches& switches() {
    static Switches* const pSwitches = new Switches;
    return *pSwitches;
}

bool isDropped(const std::string& strNode) {
    std::lock_guard<std::mutex> lock(switches().mtx);
    return switches().setDroppedNodes.count(strNode) != 0;
}

std::optional<int64_t> statusFor(int64_t iCommand) {
    Switches& rSwitches = switches();
    if (!rSwitches.bAnyForced.load(std::memory_order_relaxed)) {
        return std::nullopt;
    }
    std::lock_guard<std::mutex> lock(rSwitches.mtx);
    auto it = rSwitches.mapForced.find(iCommand);
    if (it == rSwitches.mapForced.end()) {
        it = rSwitches.mapForced.find(0);
    }
    return it == rSwitches.mapForced.end() ? std::nullopt : std::optional(it->second);
}

bool isUnanswered(int32_t iInfoCmd) {
    Switches& rSwitches = switches();
    if (!rSwitches.bAnyNoAnswer.load(std::memory_order_relaxed)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(rSwitches.mtx);
    return rSwitches.setNoAnswer.count(iInfoCmd) != 0;
}

void resetSwitches() {
    Switches& rSwitches = switches();
    rSwitches.bDropNodeMap = false;
    rSwitches.nImageOffset = 0;
    rSwitches.eCancel = Control::eEndsAllBegun;
    rSwitches.fnBufferFault.set(nullptr);
    rSwitches.fnFrameContent.set(nullptr);
    std::lock_guard<std::mutex> lock(rSwitches.mtx);
    rSwitches.setDroppedNodes.clear();
    rSwitches.mapForced.clear();
    rSwitches.setNoAnswer.clear();
    rSwitches.bAnyForced = false;
    rSwitches.bAnyNoAnswer = false;
}

namespace Control {

void dropNode(const std::string& strName) {
    std::lock_guard<std::mutex> lock(switches().mtx);
    switches().setDroppedNodes.insert(strName);
}

void dropNodeMap(bool bDrop) {
    switches().bDropNodeMap = bDrop;
}

void forceStatus(int64_t iCommand, int64_t iStatus) {
    std::lock_guard<std::mutex> lock(switches().mtx);
    switches().mapForced[iCommand] = iStatus;
    switches().bAnyForced = true;
}

void answerNothing(int32_t iInfoCmd) {
    std::lock_guard<std::mutex> lock(switches().mtx);
    switches().setNoAnswer.insert(iInfoCmd);
    switches().bAnyNoAnswer = true;
}

void setBufferFaults(std::function<eBufferFault(uint64_t iFrame)> fnFault) {
    switches().fnBufferFault.set(std::move(fnFault));
}

void setImageOffset(std::size_t nBytes) {
    switches().nImageOffset = nBytes;
}

void setFrameContent(std::function<void(uint64_t iFrame, void* pImage, std::size_t nBytes)> fnFill) {
    switches().fnFrameContent.set(std::move(fnFill));
}

void setCancelMode(eCancelMode eMode) {
    switches().eCancel = eMode;
}

}  // namespace Control

}  // namespace StandIn
}  // namespace XAPEL2
