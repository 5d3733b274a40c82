// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's own functions as registrations hand them out, and the same without counting for the host itself.

#pragma once

#include "standin/host/objects/Device.h"

namespace XAPEL2 {
namespace StandIn {

/// Fetches for the application call that runs on this thread, or, outside of one, as a call that begins now.
int ownFetch(CStream& rStream, void** ppBuffer, unsigned long long iTimeoutMs);
int ownInfo(const CStream& rStream, int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize);

}  // namespace StandIn
}  // namespace XAPEL2
