// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pool of hub slots.

#include "XapelBypassSlot.h"

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

namespace {

struct alignas(XAPEL_CACHE_LINE) Slot {
    XapelPinWord m_uPins{0};
    Slot* m_pNextRetired = nullptr;    // guarded by SlotPool::m_mtx
    std::atomic<bool> m_bKept{false};  // set by calls of the hub, whose end waits for them: no order of its own
};

constexpr std::size_t HUB_OFFSET = sizeof(Slot);

Slot* slotOf(void* pHub) {
    return reinterpret_cast<Slot*>(static_cast<char*>(pHub) - HUB_OFFSET);
}
void* hubOf(Slot* pSlot) {
    return reinterpret_cast<char*>(pSlot) + HUB_OFFSET;
}

/// The retired slots as a queue through the slots themselves. Never destroyed: hooks may be called until the process
/// ends.
struct SlotPool {
    std::mutex m_mtx;  // guards all members
    Slot* m_pOldest = nullptr;
    Slot* m_pNewest = nullptr;
    std::size_t m_nRetired = 0;
    Slot* m_pKept = nullptr;  // these rest for ever
};

SlotPool& pool() {
    static SlotPool* const s_pPool = new SlotPool;
    return *s_pPool;
}

}  // namespace

XapelPinWord& xapelSlotPinWord(void* pHub) {
    return slotOf(pHub)->m_uPins;
}

void* xapelSlotAcquire(std::size_t nBytes) {
    SlotPool& rPool = pool();
    {
        const std::lock_guard<std::mutex> lock(rPool.m_mtx);
        if (rPool.m_nRetired > XAPEL_SLOTS_RETIRED_MIN) {
            Slot* pSlot = rPool.m_pOldest;
            rPool.m_pOldest = pSlot->m_pNextRetired;
            --rPool.m_nRetired;
            return hubOf(pSlot);
        }
    }
    return hubOf(new (::operator new(HUB_OFFSET + nBytes, std::align_val_t(alignof(Slot)))) Slot);
}

void xapelSlotKeep(void* pHub) noexcept {
    slotOf(pHub)->m_bKept.store(true, std::memory_order_relaxed);
}

void xapelSlotRetire(void* pHub) noexcept {
    Slot* pSlot = slotOf(pHub);
    pSlot->m_pNextRetired = nullptr;
    SlotPool& rPool = pool();
    const std::lock_guard<std::mutex> lock(rPool.m_mtx);
    if (pSlot->m_bKept.load(std::memory_order_relaxed)) {
        pSlot->m_pNextRetired = std::exchange(rPool.m_pKept, pSlot);
        return;
    }
    (rPool.m_nRetired++ == 0 ? rPool.m_pOldest : rPool.m_pNewest->m_pNextRetired) = pSlot;
    rPool.m_pNewest = pSlot;
}

CXapelHubLife::CXapelHubLife(void* pHub) : m_rWord(xapelSlotPinWord(pHub)) {
    m_rWord.fetch_or(1, std::memory_order_release);
}

CXapelHubLife::~CXapelHubLife() {
    refuseCalls();
    waitForCalls();
}

void CXapelHubLife::refuseCalls() {
    m_rWord.fetch_and(~uint64_t{1}, std::memory_order_acq_rel);
}

void CXapelHubLife::waitForCalls() const {
    while (m_rWord.load(std::memory_order_acquire) >= 2) {
        xapelSpinPause();
    }
}
