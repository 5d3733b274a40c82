// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the allocations of a thread by operator new, and lets one of them fail.

#pragma once

#include <cstdint>

namespace Allocations {

/// Allocations of this thread since it started.
extern thread_local uint64_t t_nDone;
/// Allocations of this thread that succeed before one fails; UINT64_MAX: none fails. Set to that by the failure.
extern thread_local uint64_t t_nUntilFailure;

}  // namespace Allocations
