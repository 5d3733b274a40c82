// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the allocations of a thread by operator new, in whatever library, and lets them fail. The source replaces the
// operators of the program that it is part of.

#pragma once

#include <cstdint>

namespace Allocations {

/// Allocations of this thread since it started.
uint64_t done();
/// Allocations of all threads that have not been freed.
int64_t live();
/// Lets nMore allocations of this thread succeed and the one after them fail, with bFromThen every later one too;
/// UINT64_MAX: none fails.
void failAfter(uint64_t nMore, bool bFromThen = false);
/// Allocations of this thread that have failed since failAfter().
uint64_t failed();
/// While off, allocations of this thread succeed and do not count towards a failure. On at first.
void arm(bool bOn);

}  // namespace Allocations
