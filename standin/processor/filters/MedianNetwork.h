// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of small windows by networks of minima and maxima.

#pragma once

#include "standin/processor/filters/PlaneFilter.h"

namespace XAPEL2 {
namespace StandIn {

/// What medianFilter promises, for radii from 1 to NETWORK_RADIUS_MAX.
void medianByNetwork(const Plane& rPlane, unsigned nRadius);

}  // namespace StandIn
}  // namespace XAPEL2
