// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median filter of one plane of samples: the way for each radius. The box filter is in PlaneBox.cpp.

#include "standin/processor/filters/PlaneFilter.h"

#include <vector>

#include "standin/processor/filters/MedianHistogram.h"
#include "standin/processor/filters/MedianNetwork.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

/// Calls fn(index, sample) for every sample.
template <class F>
void forEach(const Plane& rPlane, F fn) {
    for (std::size_t iY = 0; iY < rPlane.nHeight; ++iY) {
        float* const pRow = rPlane.pFirst + iY * rPlane.nStepY;
        for (std::size_t iX = 0; iX < rPlane.nWidth; ++iX) fn(iY * rPlane.nWidth + iX, pRow[iX * rPlane.nStepX]);
    }
}

/// False, and nothing done, where a sample is no T.
template <class T>
bool filterCopy(const Plane& rPlane, unsigned nRadius) {
    std::vector<T> vIn(rPlane.nWidth * rPlane.nHeight);
    bool bAll = true;
    forEach(rPlane, [&](std::size_t i, float& rSample) {
        vIn[i] = static_cast<T>(rSample);
        bAll = bAll && static_cast<float>(vIn[i]) == rSample;
    });
    if (!bAll)
        return false;
    std::vector<T> vOut(vIn.size());
    medianByHistogram({rPlane.nWidth, rPlane.nHeight}, vIn.data(), nRadius, vOut.data());
    forEach(rPlane, [&](std::size_t i, float& rSample) { rSample = vOut[i]; });
    return true;
}

}  // namespace

void medianFilter(const Plane& rPlane, unsigned nRadius) {
    if (nRadius <= NETWORK_RADIUS_MAX)
        medianByNetwork(rPlane, nRadius);
    else if (!filterCopy<uint16_t>(rPlane, nRadius))
        filterCopy<float>(rPlane, nRadius);
}

}  // namespace StandIn
}  // namespace XAPEL2
