// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The primitives on which the gate, the pin word and the call count stand.

#pragma once

// A program that explores their executions names a header of its own here, with the same names over its own primitives.
#ifdef XAPEL_THREADING_HEADER
#include XAPEL_THREADING_HEADER
#else

#include <atomic>
#include <mutex>

template <typename T>
using XapelAtomic = std::atomic<T>;

typedef std::mutex XapelMutex;
typedef std::lock_guard<XapelMutex> XapelLock;

/// Eases a busy wait for the processor's sibling thread and the memory bus.
inline void xapelSpinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

#endif
