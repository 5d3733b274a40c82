// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hooks that a HookHold can hold: what stands in the host's table in place of those that were registered.

#pragma once

#include "standin/host/hooks/Hooks.h"

namespace XAPEL2 {
namespace StandIn {

/// A hook that waits where a HookHold wants its call and then calls the one that was registered. The same one for the
/// same hook, and there for the life of the process.
Hook holdable(eHook eKind, const Hook& rRegistered);
/// The hook that was registered.
Hook registeredOf(const Hook& rHoldable);

void releaseAllHolds();

}  // namespace StandIn
}  // namespace XAPEL2
