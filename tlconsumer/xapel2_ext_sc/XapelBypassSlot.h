// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Memory in which hubs live and die, and the pin that makes a late hook call harmless.
//
// Removing a hook does not stop a call that the host has already looked up, so a hook may be called with a hub that is
// being destroyed, or is gone. Therefore a hub lives in a slot whose memory is never given back, and beside it,
// outliving it, stands a pin word:
//
//     bit 0        alive: the hub may be entered
//     bits 1..63   pins: hook calls that are looking at the hub
//
// A hook call pins first and looks at the alive bit in the value that it found. The hub's end clears the bit, then
// waits until no pin is left. After that a call finds the bit clear and does not touch the hub. A slot is used again,
// oldest first, only when XAPEL_SLOTS_RETIRED_MIN others rest; a call held up for so long reaches the slot's new hub. A
// slot whose hub the host may go on calling, because it refused to remove a hook, is never used again.

#pragma once

#include <cstddef>
#include <cstdint>

#include "XapelThreading.h"

/// Slots that must rest before the oldest of them is used again.
constexpr std::size_t XAPEL_SLOTS_RETIRED_MIN = 256;

typedef XapelAtomic<uint64_t> XapelPinWord;

/// The pin word of the slot whose hub stands, or stood, at pHub. Valid for the rest of the process.
XapelPinWord& xapelSlotPinWord(void* pHub);

/// Memory for one hub of nBytes (the same at every call), aligned for any type. Hook calls: none.
/// @throws std::bad_alloc
void* xapelSlotAcquire(std::size_t nBytes);

/// Keeps the slot from being used again, once its hub has ended.
void xapelSlotKeep(void* pHub) noexcept;

/// Retires the slot. Allocates nothing.
void xapelSlotRetire(void* pHub) noexcept;

/// One hook call's look at a hub. No allocation, no lock.
class CXapelHubPin {
public:
    explicit CXapelHubPin(void* pHub)
        // Acquire pairs with the release of CXapelHubLife's constructor: whoever sees the bit sees the hub.
        : m_rWord(xapelSlotPinWord(pHub)), m_bAlive((m_rWord.fetch_add(2, std::memory_order_acq_rel) & 1) != 0) {}
    /// Release pairs with the acquire of the wait in CXapelHubLife's destructor.
    ~CXapelHubPin() { m_rWord.fetch_sub(2, std::memory_order_release); }
    CXapelHubPin(const CXapelHubPin&) = delete;
    CXapelHubPin& operator=(const CXapelHubPin&) = delete;

    /// False: the hub must not be touched.
    bool isAlive() const { return m_bAlive; }

private:
    XapelPinWord& m_rWord;
    const bool m_bAlive;
};

/// The hub's last member, so the first to be destroyed: alive from its construction to its destruction, which waits for
/// the pins while every other member still stands.
class CXapelHubLife {
public:
    explicit CXapelHubLife(void* pHub);
    ~CXapelHubLife();  ///< Both of the following.

    /// Every call that pins from here on finds the hub dead. May be repeated.
    void refuseCalls();
    /// Spins until no pin is left; after refuseCalls(), and not from inside a hook call.
    void waitForCalls() const;

    CXapelHubLife(const CXapelHubLife&) = delete;
    CXapelHubLife& operator=(const CXapelHubLife&) = delete;

private:
    XapelPinWord& m_rWord;
};
