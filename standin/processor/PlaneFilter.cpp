// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median filter of one plane of samples: the way for each radius. The box filter is in PlaneBox.cpp.

#include "PlaneFilter.h"

#include "MedianHistogram.h"
#include "MedianNetwork.h"

namespace XAPEL2 {
namespace StandIn {

void medianFilter(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, uint16_t* pOut) {
    if (nRadius <= NETWORK_RADIUS_MAX)
        medianByNetwork(rSize, pIn, nRadius, pOut);
    else
        medianByHistogram(rSize, pIn, nRadius, pOut);
}

void medianFilter(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut) {
    if (nRadius <= NETWORK_RADIUS_MAX)
        medianByNetwork(rSize, pIn, nRadius, pOut);
    else
        medianByHistogram(rSize, pIn, nRadius, pOut);
}

}  // namespace StandIn
}  // namespace XAPEL2
