// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's trace, for the host itself.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2_standin/Answers.h"

namespace XAPEL2 {
namespace StandIn {

/// Writes a line to the trace: to the application's sink, or standard error. Lets no exception out; must not be called
/// with a lock of the host held.
void trace(int32_t iLevel, const std::string& strText) noexcept;
/// The same with one text after the other; dropped where there is no memory to put them together.
void trace(int32_t iLevel, const char* pText, const char* pDetail) noexcept;
/// What extT does.
void traceOfLibrary(const int32_t* piLevel, const char* pText);

/// Sends all traces to this sink; null: to printTrace().
void routeTraces(TraceSink fnSink);
/// Writes a line of level 2 to standard error, and no other.
void printTrace(int32_t iLevel, std::string strText);

}  // namespace StandIn
}  // namespace XAPEL2
