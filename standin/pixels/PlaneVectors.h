// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the vector loops over planes and frames share. Included before Highway.

#pragma once

#include <cstdint>

// Two targets that give these loops nothing that the others lack.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3_DL)

namespace XAPEL2 {
namespace StandIn {

/// Memory that vectors can be stored to without crossing a cache line.
struct alignas(64) CacheLine {
    uint8_t aBytes[64] = {};
};

}  // namespace StandIn
}  // namespace XAPEL2
