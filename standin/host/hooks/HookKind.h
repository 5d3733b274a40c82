// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The kinds of hooks.

#pragma once

namespace XAPEL2 {
namespace StandIn {

/// The hooks, by the call that they stand in for.
enum eHook { eHookFetch, eHookCancel, eHookInfo, eHookClose, eHookOpen };

}  // namespace StandIn
}  // namespace XAPEL2
