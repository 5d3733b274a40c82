// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records of node accesses and registrations, and the observer of nodes.

#include "standin/host/testing/Observation.h"

#include <utility>

namespace XAPEL2 {
namespace StandIn {

Observation& observation() {
    // Never destroyed: threads may still trace while the process ends.
    static Observation* const pObservation = new Observation;
    return *pObservation;
}

bool nodesAreObserved() {
    return observation().recNodes.isOn() || observation().fnNode.get() != nullptr;
}

void observeNode(const Control::NodeAccess& rAccess) {
    observation().recNodes.add(rAccess);
    if (const auto pObserver = observation().fnNode.get()) {
        (*pObserver)(rAccess);
    }
}

void resetObservation() {
    Observation& rObservation = observation();
    rObservation.recNodes.clear();
    rObservation.recRegistrations.clear();
    rObservation.fnNode.set(nullptr);
}

namespace Control {

void recordNodes(bool bRecord) {
    observation().recNodes.start(bRecord);
}

std::vector<NodeAccess> nodeAccesses() {
    return observation().recNodes.entries();
}

void setNodeObserver(std::function<void(const NodeAccess&)> fnObserver) {
    observation().fnNode.set(std::move(fnObserver));
}

void recordRegistrations(bool bRecord) {
    observation().recRegistrations.start(bRecord);
}

std::vector<std::string> registrations() {
    return observation().recRegistrations.entries();
}

}  // namespace Control

}  // namespace StandIn
}  // namespace XAPEL2
