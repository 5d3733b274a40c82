// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filters for references.

#pragma once

#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Radii in pixels, 0 = off. The window is (2r+1) x (2r+1).
struct FilterRadii {
    unsigned nMedian = 0;
    unsigned nBox = 0;
};

/// Filters a reference in place, median first, then box. Beyond the border the nearest border pixel counts. Each colour
/// site of a filter array and each channel is filtered as an image of its own, so that a radius counts pixels of that
/// site. Box sums are exact integers of 2^-24 DN: an even image stays as it is, without drift.
/// @param[in,out] rSamples  sLayout.samples() values, 0 to 65535.
/// @throws std::bad_alloc   rSamples may be filtered in part.
/// @threads any, one call for one image.
void filterReference(const ImageLayout& rLayout, const FilterRadii& rRadii, std::vector<float>& rSamples);

}  // namespace StandIn
}  // namespace XAPEL2
