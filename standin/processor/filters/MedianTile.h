// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of the windows of a tile by histograms.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "standin/pixels/PlaneVectors.h"

namespace XAPEL2 {
namespace StandIn {

/// Keys of a part of a plane and of a border of R samples on each side of it.
struct Tile {
    std::size_t nColumns = 0;  // with the border, so more than 2R
    std::size_t nRows = 0;
    std::vector<uint16_t> vKeys;  // row by row
    uint16_t uLargest = 0;        // no key is larger; fewer keys take less memory

    /// Where each key lies, by key, if keys are ranks and no two the same; else empty. Columns and rows are less than
    /// SIDE_MAX then, and the lists filled up to a multiple of PLACES_AT_ONCE.
    std::vector<uint8_t> vColumnOf;
    std::vector<uint8_t> vRowOf;
    static constexpr std::size_t SIDE_MAX = 256;
    static constexpr std::size_t PLACES_AT_ONCE = 64;
};

/// Bins of the levels and medians, kept from tile to tile so that they are allocated once.
struct TileMemory {
    struct Level {
        std::vector<CacheLine> vColumns;  // by bucket, column, bin; all 0 between tiles
        std::vector<CacheLine> vWindow;   // by bucket, bin
        std::vector<uint32_t> vMadeAt;    // by bucket
    };
    Level aLevels[3];
    std::vector<uint16_t> vMedians;  // of the caller
};

/// Writes the median of each window of the tile, row by row.
/// @throws std::bad_alloc  the memory may have grown.
void medianOfTile(const Tile& rTile, unsigned nRadius, TileMemory& rMemory, uint16_t* pOut);

}  // namespace StandIn
}  // namespace XAPEL2
