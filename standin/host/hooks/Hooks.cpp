// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hook table.

#include "standin/host/hooks/Hooks.h"

namespace XAPEL2 {
namespace StandIn {

bool CHooks::put(eHook eKind, const Hook& rHook) {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_bDead) {
        return false;
    }
    Hook& rSlot = m_aHooks[eKind];
    if (rHook.pfn != nullptr) {
        rSlot = rHook;
    } else if (rSlot.pContext == rHook.pContext) {
        rSlot = Hook{};
    }
    return true;
}

Hook CHooks::find(eHook eKind) const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_aHooks[eKind];
}

void CHooks::dropAll() {
    std::lock_guard<std::mutex> lock(m_mtx);
    m_aHooks.fill(Hook{});
}

void CHooks::die() {
    std::lock_guard<std::mutex> lock(m_mtx);
    m_aHooks.fill(Hook{});
    m_bDead = true;
}

void CHooks::list(std::vector<PlacedHook>& rHooks) const {
    std::lock_guard<std::mutex> lock(m_mtx);
    for (std::size_t i = 0; i < KINDS; ++i) {
        if (m_aHooks[i].pfn != nullptr) {
            rHooks.push_back({static_cast<eHook>(i), m_aHooks[i]});
        }
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
