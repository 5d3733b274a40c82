// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The count of the calls that take no gate.

#pragma once

#include <cstdint>

#include "XapelThreading.h"

/// The open and close calls inside a hub. A call counts itself before it copies the list of participants; whoever takes
/// a participant off the list, and the end of the hub, waits until the count has been zero once.
class CXapelCallCount {
public:
    /// Counts one call while it lives.
    class CEntry {
    public:
        explicit CEntry(CXapelCallCount& rCount)
            : m_rCount(rCount), m_bClosing((rCount.m_uWord.fetch_add(2, std::memory_order_acq_rel) & 1) != 0) {}
        /// Release pairs with the acquire in waitUntilNone: whoever sees no call may free what the calls reached.
        ~CEntry() { m_rCount.m_uWord.fetch_sub(2, std::memory_order_release); }
        CEntry(const CEntry&) = delete;
        CEntry& operator=(const CEntry&) = delete;

        /// True: close() came first, and the call must touch nothing.
        bool isClosing() const { return m_bClosing; }

    private:
        CXapelCallCount& m_rCount;
        const bool m_bClosing;
    };

    /// Every call that counts itself from here on finds the count closing.
    void close() { m_uWord.fetch_or(1, std::memory_order_acq_rel); }

    /// Spins until the count has been zero once; not from inside an open or close call.
    void waitUntilNone() const {
        while (m_uWord.load(std::memory_order_acquire) >= 2) {
            xapelSpinPause();
        }
    }

private:
    XapelAtomic<uint64_t> m_uWord{0};  // bit 0: closing; bits 1..63: calls inside
};
