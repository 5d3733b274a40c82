// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the mutexes that a thread locks in this program and lets them fail. The source wants the linker option
// --wrap=pthread_mutex_lock; what other libraries lock is not counted.

#pragma once

#include <cstdint>

namespace Locks {

/// Lets nMore locks of this thread succeed and the one after them fail, with bFromThen every later one too; UINT64_MAX:
/// none fails.
void failAfter(uint64_t nMore, bool bFromThen = false);
/// Locks of this thread that have failed since failAfter().
uint64_t failed();

}  // namespace Locks
