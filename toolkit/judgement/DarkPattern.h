// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a dark reference does to the pattern in the dark: takes it off, and puts its own noise in its place.

#pragma once

#include <limits>

#include "toolkit/judgement/Judgement.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Standard deviations over the image in the dark, DN, and what would make them smaller.
struct DarkPattern {
    double dBefore = std::numeric_limits<double>::quiet_NaN();  ///< without correction; NaN: not resolved
    double dAfter = std::numeric_limits<double>::quiet_NaN();   ///< with it: the noise of the mean; NaN: not known
    /// Radius of the box filter on the dark reference that leaves least, 0: no filter leaves less.
    unsigned nRadius = 0;
    double dFiltered = std::numeric_limits<double>::quiet_NaN();  ///< what it leaves
    uint64_t nFrames = 0;                                         ///< of a dark reference whose noise is half dBefore
};

/// With the noise variance w of a sample of the mean image, a box of n samples leaves w / n of it and loses of the
/// pattern what lies within the box. What is lost is told by the image alone: it is the mean square of its difference
/// from its filtered self, less w (1 - 1 / n), which the noise has in it. The radius is that of the least sum of both
/// of 0, 1, 2, 3, 5, 8, 13, 21 and 31, over the samples whose whole box lies within the image.
DarkPattern darkPattern(const StandIn::ReferenceImage& rDark);

/// Finds "dark-worse" where the correction leaves more than there was, by more than a tenth: a warning where that is
/// more than a quarter of the noise of a frame, and can be seen in it, else a note.
Findings judgeDarkPattern(const StandIn::ReferenceImage& rDark);

}  // namespace Toolkit
}  // namespace XAPEL2
