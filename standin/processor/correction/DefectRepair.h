// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replaces the samples of defective pixels by those of their neighbours.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "standin/processor/correction/DefectWindows.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// What repairDefects() does, in place, in any format, part by part behind a correction that goes through the image.
class CDefectRepair {
public:
    CDefectRepair() = default;
    /// @throws std::bad_alloc
    CDefectRepair(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap);

    /// Marked pixels, also those that have no good neighbour.
    std::size_t defects() const { return m_nDefects; }
    /// Samples to replace; they are numbered in the order in which they can be.
    std::size_t size() const { return m_list.vecPlaces.size(); }
    /// How many samples of the image must be corrected before sample i of the list can be replaced.
    std::size_t need(std::size_t i) const { return m_list.vecPlaces[i].uNeed; }
    /// Replaces samples from number i on, as far as the first nDone samples of the image suffice.
    /// @return  number of the next.
    std::size_t repair(uint8_t* pImage, std::size_t i, std::size_t nDone) const noexcept;

    /// Asks for what the list has from sample i on, before a part is corrected: it was last read an image ago.
    void fetchPlaces(std::size_t i) const noexcept;

private:
    std::size_t m_nDefects = 0;
    DefectList m_list;
};

}  // namespace StandIn
}  // namespace XAPEL2
