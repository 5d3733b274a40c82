// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of large windows by histograms.

#pragma once

#include "standin/processor/filters/PlaneFilter.h"

namespace XAPEL2 {
namespace StandIn {

/// What medianFilter promises, for any radius.
/// Samples of a plane, both 1 or more. Rows follow each other without gaps.
struct PlaneSize {
    std::size_t nWidth;
    std::size_t nHeight;
};

void medianByHistogram(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, uint16_t* pOut);
void medianByHistogram(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut);

}  // namespace StandIn
}  // namespace XAPEL2
