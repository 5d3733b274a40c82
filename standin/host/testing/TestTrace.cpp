// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The trace with its record, its observer and its fault.

#include <mutex>
#include <utility>

#include "standin/host/objects/Trace.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

using TraceObserver = std::function<void(const Control::TraceLine&)>;

struct TestTrace {
    std::recursive_mutex mtxRoute;  // held over each change of what follows, and over the end of a sink
    CRecord<Control::TraceLine> recTraces;
    COptionalFunction<TraceObserver> fnObserver;
    COptionalFunction<TraceSink> fnSink;  // the application's
};

TestTrace& state() {
    // Never destroyed: threads may still trace while the process ends.
    static TestTrace* const pState = new TestTrace;
    return *pState;
}

void take(int32_t iLevel, const std::string& strText) {
    TestTrace& rState = state();
    const bool bRecorded = rState.recTraces.isOn();
    rState.recTraces.add({iLevel, strText});
    if (const auto pObserver = rState.fnObserver.get()) {
        (*pObserver)({iLevel, strText});
    }
    if (const auto pSink = rState.fnSink.get()) {
        (*pSink)(iLevel, strText);
    } else if (!bRecorded) {
        printTrace(iLevel, strText);
    }
}

// Changes the state, and stands in the way of the traces while anybody wants them.
template <class tChange>
void change(tChange fnChange) {
    TestTrace& rState = state();
    const std::lock_guard<std::recursive_mutex> lock(rState.mtxRoute);
    fnChange(rState);
    const bool bAny = rState.recTraces.isOn() || rState.fnObserver.isSet() || rState.fnSink.isSet();
    routeTraces(bAny ? &take : TraceSink());
}

}  // namespace

void setTraceSink(TraceSink fnSink) {
    change([&](TestTrace& rState) { rState.fnSink.set(std::move(fnSink)); });
}

void resetTrace() {
    change([](TestTrace& rState) {
        rState.recTraces.clear();
        rState.fnObserver.set(nullptr);
        rState.fnSink.set(nullptr);
    });
}

namespace Control {

void recordTraces(bool bRecord) {
    change([bRecord](TestTrace& rState) { rState.recTraces.start(bRecord); });
}

std::vector<TraceLine> traces() {
    return state().recTraces.entries();
}

void setTraceObserver(std::function<void(const TraceLine&)> fnObserver) {
    change([&](TestTrace& rState) { rState.fnObserver.set(std::move(fnObserver)); });
}

}  // namespace Control

}  // namespace StandIn
}  // namespace XAPEL2

void extT(const int32_t* piLevel, const char* pText) {
    using namespace XAPEL2::StandIn;
    if (!faultHits(Control::eTrace)) {
        traceOfLibrary(piLevel, pText);
    }
}
