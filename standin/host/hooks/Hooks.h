// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hooks of one stream or one device.

#pragma once

#include <array>
#include <mutex>
#include <vector>

#include "standin/host/hooks/HookKind.h"

namespace XAPEL2 {
namespace StandIn {

/// A hook of any kind, its function type put aside.
struct Hook {
    void (*pfn)() = nullptr;
    void* pContext = nullptr;
};

/// A hook and the call that it stands in for.
struct PlacedHook {
    eHook eKind;
    Hook hook;
};

/// At most one hook of each kind. Its lock is a leaf: no hook is called and nothing is waited for under it.
class CHooks {
public:
    /// Puts a hook in place of the one before; a null function removes, if the context is the same.
    /// @return false when the owner is gone.
    bool put(eHook eKind, const Hook& rHook);
    /// A copy of the hook for one call, all null when there is none.
    Hook find(eHook eKind) const;
    void dropAll();
    /// Drops all and refuses new ones: the owner is gone.
    void die();
    void list(std::vector<PlacedHook>& rHooks) const;

private:
    static constexpr std::size_t KINDS = 5;

    mutable std::mutex m_mtx;  // guards the members below
    std::array<Hook, KINDS> m_aHooks{};
    bool m_bDead = false;
};

}  // namespace StandIn
}  // namespace XAPEL2
