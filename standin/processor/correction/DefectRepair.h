// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replaces the samples of defective pixels by those of their neighbours.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// A neighbour that a defect is replaced from.
struct DefectNeighbour {
    int32_t iDistance;  ///< its sample's number less that of the defect
    uint32_t uWeight;   ///< in 2^-16; those of one defect make 65,536 together
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

/// The definition: replaces every sample of every marked pixel by the rounded weighted mean of its neighbours, half
/// upwards. Neighbours are never marked themselves, so the order does not matter.
/// @param[in,out] pSamples  corrected samples of the layout, a word each.
void repairDefects(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, uint16_t* pSamples);

/// The same in place, in any format, part by part behind a correction that goes through the image.
class CDefectRepair {
public:
    CDefectRepair() = default;
    /// @throws std::bad_alloc
    CDefectRepair(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap);

    /// Marked pixels, also those that have no good neighbour.
    std::size_t defects() const { return m_nDefects; }
    /// Samples to replace; they are numbered in the order in which they can be.
    std::size_t size() const { return m_vecPlaces.size(); }
    /// How many samples of the image must be corrected before sample i of the list can be replaced.
    std::size_t need(std::size_t i) const { return m_vecPlaces[i].uNeed; }
    /// Replaces samples from number i on, as far as the first nDone samples of the image suffice.
    /// @return  number of the next.
    std::size_t repair(uint8_t* pImage, std::size_t i, std::size_t nDone) const noexcept;

    /// Asks for what the list has from sample i on, before a part is corrected: it was last read an image ago.
    void fetchPlaces(std::size_t i) const noexcept;

private:
    struct Place {
        uint32_t uSample;
        uint32_t uNeed;
        uint32_t uFirst;  // of its neighbours in m_vecNeighbours, which defects with equal surroundings share
        uint32_t nCount;
    };
    void fetchAround(const uint8_t* pImage, const Place& rPlace, std::size_t nWireBits) const noexcept;
    template <class READER>
    uint32_t sumOf(const READER& rRead, const uint8_t* pImage, const Place& rPlace) const noexcept;
    template <class READER>
    std::size_t repairBy(const READER& rRead, uint8_t* pImage, std::size_t i, std::size_t nDone) const noexcept;

    const PixelFormat* m_pFormat = nullptr;
    std::size_t m_nRowSamples = 0;
    std::size_t m_nDefects = 0;
    static constexpr uint32_t NO_WHOLE = ~0U;
    uint32_t m_uWhole = NO_WHOLE;  // uFirst of those whose 5 x 5 pixels are all good, unless of a colour filter array
    std::vector<Place> m_vecPlaces;
    std::vector<DefectNeighbour> m_vecNeighbours;
};

}  // namespace StandIn
}  // namespace XAPEL2
