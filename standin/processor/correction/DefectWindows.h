// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Defects of an image as the loops that replace them take them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "standin/processor/correction/DefectNeighbours.h"

namespace XAPEL2 {
namespace StandIn {

/// A sample to replace.
struct DefectPlace {
    uint32_t uSample;
    uint32_t uNeed;        ///< samples of the image that must be corrected before it can be replaced
    uint32_t uFirst;       ///< of the weights of its window, or of its neighbours
    uint32_t nNeighbours;  ///< 0: it has a window
};

/// Where all neighbours lie within two pixels a defect has a window: five rows, or every second of them where
/// neighbours have the same place in a filter array. Of each row it has as many samples as vectors hold, from two
/// pixels before the defect on or, where samples share bytes, a few more, so that the first begins at a byte. Those
/// that are no neighbours have the weight 0.
struct DefectWindow {
    static constexpr std::size_t RADIUS = 2;
    static constexpr std::size_t LANES = 8;        ///< samples of a vector
    static constexpr std::size_t READ_BYTES = 16;  ///< at most at once, from the byte on that a row begins at

    static std::size_t rows(const PixelFormat& rFormat) { return rFormat.isCfa() ? 3 : 5; }
    /// From one of so many rows to the next.
    static constexpr std::size_t rowStep(std::size_t nRows) { return 2 * RADIUS / (nRows - 1); }
    /// Vectors that hold the samples of five pixels of a row.
    static std::size_t vectors(const PixelFormat& rFormat) { return rFormat.nChannels == 1 ? 1 : 2; }
    /// Samples that fill whole bytes.
    static constexpr std::size_t group(unsigned nWireBits) { return 8 / std::gcd(8U, nWireBits); }
    /// Samples from two pixels before a defect, two rows above it, to the defect.
    static std::size_t before(const PixelFormat& rFormat, std::size_t nRowSamples) {
        return RADIUS * (nRowSamples + rFormat.nChannels);
    }
    /// Where a row begins in which sample i must lie.
    /// @param[in] nGroup  group() of the format.
    static constexpr std::size_t start(std::size_t nGroup, std::size_t i) { return i / nGroup * nGroup; }
};

/// What an image has of defects; places with equal surroundings share neighbours and windows.
struct DefectList {
    const PixelFormat* pFormat = nullptr;
    std::size_t nRowSamples = 0;
    std::vector<DefectPlace> vecPlaces;          ///< in the order in which they can be replaced
    std::vector<int16_t> vecWeights;             ///< of windows, row by row, in 2^-16
    std::vector<DefectNeighbour> vecNeighbours;  ///< of places without a window
};

/// Replaces samples from number i of the list on, as far as the first nDone samples of the image suffice, with the best
/// vectors that the processor has.
/// @return  number of the next.
std::size_t replaceDefects(const DefectList& rList, uint8_t* pImage, std::size_t i, std::size_t nDone) noexcept;

}  // namespace StandIn
}  // namespace XAPEL2
