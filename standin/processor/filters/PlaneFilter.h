// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filter of one plane of samples, for filterReference and for whoever measures them.

#pragma once

#include <cstddef>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// The samples of one colour of an image, nWidth x nHeight of them, both 1 or more. Borrowed.
struct Plane {
    float* pFirst;
    std::size_t nWidth, nHeight;
    std::size_t nStepX, nStepY;  ///< floats from a sample to the next one of its row, and of its column
};

// What holds for all of them: the window is (2r+1) x (2r+1) with r from 1 to 31, and beyond the border the nearest
// border sample counts. Samples lie between 0 and 65535; the result takes their places. It is the same on every
// processor. Networks and box take half the time for whole numbers, up to the first row that has another sample.
// @throws std::bad_alloc  the result may be written in part. @threads any thread.

/// Exact median: the sample that stands in the middle when those of the window are sorted. Small windows have it from a
/// network of minima and maxima, larger ones from sets of ranks.
constexpr unsigned NETWORK_RADIUS_MAX = 5;
void medianByNetwork(const Plane& rPlane, unsigned nRadius);
void medianByRanks(const Plane& rPlane, unsigned nRadius);
inline void medianFilter(const Plane& rPlane, unsigned nRadius) {
    (nRadius <= NETWORK_RADIUS_MAX ? medianByNetwork : medianByRanks)(rPlane, nRadius);
}

/// Mean of the window, in fractions of a DN. The sum of the window is exact (in units of 2^-24 DN), so that an even
/// plane stays as it is; it is divided in double precision and rounded once to a float.
void boxFilter(const Plane& rPlane, unsigned nRadius);

}  // namespace StandIn
}  // namespace XAPEL2
