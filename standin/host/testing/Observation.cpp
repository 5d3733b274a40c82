// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records, observers and the host's trace.

#include "standin/host/testing/Observation.h"

#include <algorithm>
#include <cstdio>

#include "standin/host/objects/Trace.h"
#include "standin/host/testing/Faults.h"
#include "xapel2/XapelTrace.h"

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

namespace {

void printLine(std::string strLine) {
    std::replace(strLine.begin(), strLine.end(), '\n', ' ');
    strLine += '\n';
    std::fwrite(strLine.data(), 1, strLine.size(), stderr);
}

void traceOrThrow(int32_t iLevel, const std::string& strText) {
    Observation& rObservation = observation();
    const bool bRecorded = rObservation.recTraces.isOn();
    const auto pObserver = rObservation.fnTrace.get();
    if (bRecorded || pObserver != nullptr) {
        const Control::TraceLine line{iLevel, strText};
        rObservation.recTraces.add(line);
        if (pObserver != nullptr) {
            (*pObserver)(line);
        }
    }
    if (const auto pSink = rObservation.fnSink.get()) {
        (*pSink)(iLevel, strText);
    } else if (!bRecorded && iLevel == 2) {
        printLine(strText);
    }
}

}  // namespace

void trace(int32_t iLevel, const std::string& strText) noexcept {
    try {
        traceOrThrow(iLevel, strText);
    } catch (...) {
        // A trace that cannot be taken down, or an observer or a sink that throws, must not disturb whoever traces.
    }
}

void trace(int32_t iLevel, const char* pText, const char* pDetail) noexcept {
    try {
        traceOrThrow(iLevel, std::string(pText) + pDetail);
    } catch (...) {
        // As above.
    }
}

void resetObservation() {
    Observation& rObservation = observation();
    rObservation.recNodes.clear();
    rObservation.recTraces.clear();
    rObservation.recRegistrations.clear();
    rObservation.fnNode.set(nullptr);
    rObservation.fnTrace.set(nullptr);
    rObservation.fnSink.set(nullptr);
}

void setTraceSink(TraceSink fnSink) {
    observation().fnSink.set(std::move(fnSink));
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

void recordTraces(bool bRecord) {
    observation().recTraces.start(bRecord);
}

std::vector<TraceLine> traces() {
    return observation().recTraces.entries();
}

void setTraceObserver(std::function<void(const TraceLine&)> fnObserver) {
    observation().fnTrace.set(std::move(fnObserver));
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

void extT(const int32_t* piLevel, const char* pText) {
    using namespace XAPEL2::StandIn;
    if (faultHits(Control::eTrace)) {
        return;
    }
    const int32_t iLevel = piLevel == nullptr ? 0 : *piLevel;
    // An ordinary trace that nobody looks at costs no copy.
    const Observation& rObservation = observation();
    if (iLevel != 2 && !rObservation.recTraces.isOn() && !rObservation.fnTrace.isSet() &&
        !rObservation.fnSink.isSet()) {
        return;
    }
    trace(iLevel, pText == nullptr ? "" : pText);
}
