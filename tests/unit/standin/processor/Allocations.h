// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the allocations of a thread by operator new, and lets one of them fail.

#pragma once

#include <cstdint>

namespace Allocations {

/// Allocations of this thread since it started.
uint64_t done();
/// Lets nMore allocations of this thread succeed and the one after them fail; UINT64_MAX: none fails.
void failAfter(uint64_t nMore);

}  // namespace Allocations
