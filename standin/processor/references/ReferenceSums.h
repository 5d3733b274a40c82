// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Mean and figures of a reference from the sums of its frames.

#pragma once

#include <vector>

#include "standin/processor/references/FrameGroup.h"
#include "standin/processor/references/OutlierSearch.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Fills in samples and figures from the frames of these groups.
/// @param[in] rGroups   one at least, of the layout of the reference.
/// @param[in] pLeftOut  of the only group: samples that stay out. In the figures what was expected stands for them, so
///                      that each pixel has as many samples. Null: all stay in.
/// @throws std::bad_alloc
void fillReference(const std::vector<const CFrameGroup*>& rGroups, const OutlyingSamples* pLeftOut,
                   ReferenceImage& rReference);

}  // namespace StandIn
}  // namespace XAPEL2
