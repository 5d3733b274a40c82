// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host keeps for a thread: its last error, and the note of the references that it records.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2_standin/Answers.h"

namespace XAPEL2 {
namespace StandIn {

/// Notes a failure of the calling thread. Takes no memory.
void setLastError(int32_t iCode, const char* pText) noexcept;

/// One text after the other; empty where there is no memory.
std::string joined(const char* pText, const char* pDetail) noexcept;

/// The note that setReferenceNote() left for the calling thread.
const std::string& referenceNote();

/// What setOutliersKept() said for the calling thread.
bool areOutliersKept();

}  // namespace StandIn
}  // namespace XAPEL2
