// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The definition of what the samples of defective pixels are replaced by.

#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// A neighbour that a defect is replaced from.
struct DefectNeighbour {
    int32_t iDistance;  ///< its sample's number less that of the defect
    uint32_t uWeight;   ///< in 2^-16; those of one defect make 65,536 together

    /// Some order.
    bool operator<(const DefectNeighbour& r) const {
        return std::tie(iDistance, uWeight) < std::tie(r.iDistance, r.uWeight);
    }
};

/// Neighbours are looked for as far as this, in pixels.
constexpr std::size_t DEFECT_RADIUS_MAX = 16;
/// Marked pixels one above the other that make a bad column; all rows where the image has fewer.
constexpr std::size_t DEFECT_COLUMN_ROWS = 16;

/// The neighbours of a marked pixel: all unmarked pixels of its colour site in the 5 x 5 pixels around it. Where they
/// are fewer than three, the window grows by a pixel on each side until it holds three, or has grown to
/// DEFECT_RADIUS_MAX. For a pixel of a bad column the window is its row alone. Beyond the edges nothing is assumed.
/// Weights go with the inverse square of the distance (Shepard 1968). On recorded frames that comes nearer to the truth
/// than the powers 3, 4 and 6, a median or the four next neighbours; power 1 is as near where there is little detail.
/// @param[in] rMap  of the layout's pixels, row by row; marked are those that are not 0.
/// @return  in the order of the image; empty where there is no good neighbour: then the pixel keeps its own value.
std::vector<DefectNeighbour> defectNeighbours(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap,
                                              std::size_t iX, std::size_t iY);

/// The rounded mean of samples by weights in 2^-16: at most 65,535 * 65,536 and a half, which fits.
inline uint16_t roundedMean(uint32_t uSum) {
    return static_cast<uint16_t>((uSum + (1U << 15)) >> 16);
}

/// The definition: replaces every sample of every marked pixel by the rounded weighted mean of its neighbours, half
/// upwards. Neighbours are never marked themselves, so the order does not matter.
/// @param[in,out] pSamples  corrected samples of the layout, a word each.
void repairDefects(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, uint16_t* pSamples);

}  // namespace StandIn
}  // namespace XAPEL2
