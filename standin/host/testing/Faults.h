// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the host operations that an extension library calls and lets injected faults hit them.

#pragma once

#include "standin/host/testing/Control.h"

namespace XAPEL2 {
namespace StandIn {

/// To be called once at the entry of every counted operation, with no lock of the host held.
/// @param[in] pNode  name of the node, for operations that concern one.
/// @return true: the operation refuses. With the other kinds of fault it throws instead.
bool faultHits(Control::eHostOp eOp, const char* pNode = nullptr);

/// Counts a call of the host's own cancel that is over.
void noteCancelDone();

void resetFaults();

}  // namespace StandIn
}  // namespace XAPEL2
