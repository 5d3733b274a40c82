// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's trace: to the sink, or standard error.

#include "standin/host/objects/Trace.h"

#include <algorithm>
#include <cstdio>

#include "standin/host/objects/OptionalFunction.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

using SinkSlot = COptionalFunction<TraceSink>;

SinkSlot& sink() {
    // Never destroyed: threads may still trace while the process ends.
    static SinkSlot* const pSink = new SinkSlot;
    return *pSink;
}

void traceOrThrow(int32_t iLevel, const std::string& strText) {
    if (const auto pSink = sink().get()) {
        (*pSink)(iLevel, strText);
    } else {
        printTrace(iLevel, strText);
    }
}

}  // namespace

void printTrace(int32_t iLevel, std::string strText) {
    if (iLevel != 2) {
        return;
    }
    std::replace(strText.begin(), strText.end(), '\n', ' ');
    strText += '\n';
    std::fwrite(strText.data(), 1, strText.size(), stderr);
}

void trace(int32_t iLevel, const std::string& strText) noexcept {
    try {
        traceOrThrow(iLevel, strText);
    } catch (...) {
        // A trace that cannot be taken down, or a sink that throws, must not disturb whoever traces.
    }
}

void trace(int32_t iLevel, const char* pText, const char* pDetail) noexcept {
    try {
        traceOrThrow(iLevel, std::string(pText) + pDetail);
    } catch (...) {
        // As above.
    }
}

void traceOfLibrary(const int32_t* piLevel, const char* pText) {
    const int32_t iLevel = piLevel == nullptr ? 0 : *piLevel;
    // An ordinary trace that nobody looks at costs no copy.
    if (iLevel == 2 || sink().isSet()) {
        trace(iLevel, pText == nullptr ? "" : pText);
    }
}

void routeTraces(TraceSink fnSink) {
    sink().set(std::move(fnSink));
}

}  // namespace StandIn
}  // namespace XAPEL2
