// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How uneven a frame is.

#pragma once

#include <vector>

#include "toolkit/frames/Frame.h"

namespace XAPEL2 {
namespace Toolkit {

/// Unevenness: 100 * standard deviation / mean, in percent. Each colour class is divided by its own mean first, so that
/// the colour of the light does not count. NaN where there are not two values to compare, or a class has no signal.
struct Unevenness {
    double dBlocksPercent = 0.0;  ///< over the means of the whole blocks of 16 x 16 pixels
    double dPixelsPercent = 0.0;  ///< over single samples
};

/// The frame's unevenness after vDark (in DN, as long as the frame's samples; empty: nothing) is taken off.
/// @throws std::invalid_argument  vDark has another length.
Unevenness unevenness(const Frame& rFrame, const std::vector<float>& vecDark);

}  // namespace Toolkit
}  // namespace XAPEL2
