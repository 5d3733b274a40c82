// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The library's threading primitives over those of a model checker, which runs every execution that they allow.

#pragma once

// Standard headers stand first: the model checker takes over words of theirs with macros.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <mutex>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include <relacy/relacy.hpp>

#undef new
#undef delete
#undef malloc
#undef calloc
#undef realloc
#undef free
#undef assert
#undef errno
#undef memory_order_relaxed
#undef memory_order_consume
#undef memory_order_acquire
#undef memory_order_release
#undef memory_order_acq_rel
#undef memory_order_seq_cst

static_assert(int{std::memory_order_relaxed} == rl::mo_relaxed && int{std::memory_order_consume} == rl::mo_consume &&
                  int{std::memory_order_acquire} == rl::mo_acquire &&
                  int{std::memory_order_release} == rl::mo_release &&
                  int{std::memory_order_acq_rel} == rl::mo_acq_rel && int{std::memory_order_seq_cst} == rl::mo_seq_cst,
              "both enumerations count alike");

/// The place of a call, for the history of an execution that fails.
struct XapelPlace : rl::debug_info {
    XapelPlace(const char* pFunction = __builtin_FUNCTION(), const char* pFile = __builtin_FILE(),
               unsigned uLine = __builtin_LINE())
        : rl::debug_info(pFunction, pFile, uLine) {}
};

/// How many of the atomics built next are explored. One built after those is quiet: nothing changes it, so reading it
/// needs no other thread's turn, and the 31 unused flag counts of a gate do not multiply the executions.
inline unsigned g_uExploredAtomics = 0;

template <typename T>
class XapelAtomic {
public:
    XapelAtomic(T value = T()) : m_Quiet(value), m_bQuiet(g_uExploredAtomics == 0) {
        if (m_bQuiet) {
            return;
        }
        ::new (&m_Atomic) rl::atomic<T>(value);
        --g_uExploredAtomics;
    }
    ~XapelAtomic() {
        if (!m_bQuiet) {
            m_Atomic.~atomic();
        }
    }
    XapelAtomic(const XapelAtomic&) = delete;
    XapelAtomic& operator=(const XapelAtomic&) = delete;

    T load(std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) const {
        return m_bQuiet ? m_Quiet : m_Atomic.load(order(eOrder), rPlace);
    }
    void store(T value, std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) {
        if (!m_bQuiet || value != m_Quiet) {
            explored(rPlace).store(value, order(eOrder), rPlace);
        }
    }
    T fetch_add(T value, std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) {
        return explored(rPlace).fetch_add(value, order(eOrder), rPlace);
    }
    T fetch_sub(T value, std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) {
        return explored(rPlace).fetch_sub(value, order(eOrder), rPlace);
    }
    T fetch_or(T value, std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) {
        return explored(rPlace).fetch_or(value, order(eOrder), rPlace);
    }
    T fetch_and(T value, std::memory_order eOrder, const XapelPlace& rPlace = XapelPlace()) {
        return explored(rPlace).fetch_and(value, order(eOrder), rPlace);
    }

private:
    static rl::memory_order order(std::memory_order eOrder) { return static_cast<rl::memory_order>(eOrder); }
    rl::atomic<T>& explored(const XapelPlace& rPlace) {
        if (m_bQuiet) {
            rl::ctx().fail_test("a quiet atomic changes", rl::test_result_inconsistent_test_suite, rPlace);
        }
        return m_Atomic;
    }

    union {
        rl::atomic<T> m_Atomic;
    };
    const T m_Quiet;
    const bool m_bQuiet;
};

typedef rl::mutex XapelMutex;

class XapelLock {
public:
    explicit XapelLock(XapelMutex& rMutex, const XapelPlace& rPlace = XapelPlace())
        : m_rMutex(rMutex), m_Place(rPlace) {
        m_rMutex.lock(m_Place);
    }
    ~XapelLock() { m_rMutex.unlock(m_Place); }
    XapelLock(const XapelLock&) = delete;
    XapelLock& operator=(const XapelLock&) = delete;

private:
    XapelMutex& m_rMutex;
    const XapelPlace m_Place;
};

/// Gives the turn away, so that a thread that waits cannot keep it from the one that it waits for.
inline void xapelSpinPause() {
    rl::yield(1, RL_INFO);
}
