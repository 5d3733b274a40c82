// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Memory that is asked for before it is read.

#pragma once

namespace XAPEL2 {
namespace StandIn {

/// Asks for the line that pMemory lies in to come into the first cache; anywhere, as this reads nothing. The empty
/// statement tells that something happens: g++ takes a function that does nothing but ask for one that does nothing,
/// and leaves out its calls.
inline void prefetch(const void* pMemory) {
    __builtin_prefetch(pMemory, 0, 3);
    __asm__ volatile("");
}

}  // namespace StandIn
}  // namespace XAPEL2
