// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The noise of a single frame as a function of its light: the linear camera model of EMVA 1288.

#pragma once

#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Noise of a colour class. A sample with the signal s above its dark value varies by dDarkVariance + dGain s before it
/// is rounded to whole DN.
struct ClassNoise {
    double dGain = 0.0;          ///< K, DN per electron
    double dDarkVariance = 0.0;  ///< in the dark, before rounding, DN^2
};

/// Of each colour class, in the order of colourClassNames(); empty: not known.
using SensorNoise = std::vector<ClassNoise>;

/// Part of the variance of rounding that stays where it is: rounding is a fixed error of each sample where the noise is
/// below a DN, and part of the noise where it is above. Over samples whose values are evenly spread between two DN,
/// that is the sum over j of exp(-4 pi^2 j^2 s^2) / (2 pi^2 j^2), from 1/12 without noise to 0.0001 at s = 0.4 DN.
/// @param[in] dVariance  s^2, before rounding.
double fixedRounding(double dVariance);

/// Temporal variance before rounding, from that of rounded samples: t = s^2 + 1/12 - fixedRounding(s^2), solved for
/// s^2. Below s = 0.4 DN that takes values that are evenly spread between two DN; a dark image whose values lie close
/// together tells less: up to 0.1 DN^2 may be missing then, or 0.16 DN^2 too many where they lie between two DN.
double varianceBeforeRounding(double dTemporalVariance);

/// The noise of the camera that both references were recorded with; empty where one of them has a single frame or the
/// light one is not the noisier one.
SensorNoise sensorNoise(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight);

/// The same with the conversion gain of each class known from elsewhere; empty where the dark reference has a single
/// frame or a gain is not above 0.
SensorNoise sensorNoise(const StandIn::ReferenceImage& rDark, const std::vector<double>& rGains);

}  // namespace Toolkit
}  // namespace XAPEL2
