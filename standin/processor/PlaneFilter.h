// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filter of one plane of samples, for filterReference and for whoever measures them.

#pragma once

#include <cstddef>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// Samples of a plane, both 1 or more. Rows follow each other without gaps.
struct PlaneSize {
    std::size_t nWidth;
    std::size_t nHeight;
};

// What holds for all of them: the window is (2r+1) x (2r+1) with r from 1 to 31, and beyond the border the nearest
// border sample counts. Floats lie between 0 and 65535. Input and output hold nWidth * nHeight samples each, borrowed
// for the call, and must not overlap. The result is the same on every processor.
// @throws std::bad_alloc for buffers that take a few rows; the output may be written in part. @threads any thread.

/// Exact median: the sample that stands in the middle when those of the window are sorted.
/// Up to NETWORK_RADIUS_MAX a network of minima and maxima, above it histograms whose time hardly depends on r.
void medianFilter(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, uint16_t* pOut);
void medianFilter(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut);

/// Mean of the window, in fractions of a DN. The sum of the window is exact (floats count in units of 2^-24 DN), so
/// that an even plane stays as it is; it is divided in double precision and rounded once to a float.
void boxFilter(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, float* pOut);
void boxFilter(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut);

constexpr unsigned NETWORK_RADIUS_MAX = 5;

}  // namespace StandIn
}  // namespace XAPEL2
