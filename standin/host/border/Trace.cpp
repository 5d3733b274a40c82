// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The trace.

#include "standin/host/objects/Trace.h"

#include <utility>

#include "xapel2/XapelTrace.h"

void extT(const int32_t* piLevel, const char* pText) {
    XAPEL2::StandIn::traceOfLibrary(piLevel, pText);
}

void XAPEL2::StandIn::setTraceSink(TraceSink fnSink) {
    routeTraces(std::move(fnSink));
}
