// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Single pixels that stand out from their neighbours.

#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

enum eDefectKind {
    eHot,     ///< in the dark, brighter than its neighbours
    eDead,    ///< under light, darker than its neighbours
    eBright,  ///< under light, brighter than its neighbours
};

/// One sample that stands out.
struct Defect {
    eDefectKind eKind = eHot;
    uint64_t nX = 0, nY = 0;   ///< pixel
    unsigned iClass = 0;       ///< colour class, see colourClass()
    double dValue = 0.0;       ///< DN, without the dark where that was taken off
    double dNeighbours = 0.0;  ///< median of the neighbours, DN
};

/// The samples of a reference that stand out, in the order of the image. Each is compared with the median of its eight
/// nearest neighbours of the same colour class (at an edge those inside stand in for those beyond it, mirrored). With
/// sigma the robust standard deviation of these differences over the class (1.4826 * median of their amounts), a sample
/// stands out
/// - of a dark reference, when it is above its neighbours by more than 6 sigma and 0.5 % of full scale,
/// - of a light reference, when it differs by more than 6 sigma and 10 % from its neighbours, all differences being
///   taken relative to the neighbours' value there.
/// @param[in] pDark  for a light reference: the dark one of the same layout, taken off first; null: nothing.
/// @throws std::invalid_argument  the two have different layouts.
std::vector<Defect> findDefects(const StandIn::ReferenceImage& rReference,
                                const StandIn::ReferenceImage* pDark = nullptr);

/// Number of one kind.
std::size_t countDefects(const std::vector<Defect>& rDefects, eDefectKind eKind);

const char* name(eDefectKind eKind);  ///< "hot", "dead", "bright"

/// [{"kind", "x", "y", "class", "value", "neighbours"}]
nlohmann::ordered_json toJson(const std::vector<Defect>& rDefects, const StandIn::PixelFormat& rFormat);

}  // namespace Toolkit
}  // namespace XAPEL2
