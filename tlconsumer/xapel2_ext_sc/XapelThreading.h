// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The primitives on which the gate, the pin word and the call count stand.

#pragma once

#include <cstddef>

/// Bytes that one processor takes from another at a time. A number, because the standard's own constant changes with
/// the compiler's options. Of ARM processors some have 128, the others lose only the room.
#if defined(__aarch64__)
constexpr std::size_t XAPEL_CACHE_LINE = 128;
#else
constexpr std::size_t XAPEL_CACHE_LINE = 64;
#endif

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
#elif defined(__aarch64__)
    // The instruction that is meant for this does nothing on most of these processors; this one empties the pipeline.
    __asm__ volatile("isb");
#endif
}

#endif
