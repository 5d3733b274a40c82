// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What correction left, beside what the references promised.

#pragma once

#include <limits>

#include "toolkit/figures/Measurement.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

/// PRNU1288 of the worst colour of the measured even frames, percent; NaN where it is not known.
struct MeasuredUnevenness {
    double dBefore = std::numeric_limits<double>::quiet_NaN();
    double dAfter = std::numeric_limits<double>::quiet_NaN();
};

/// Compares a correction with its prediction. Finds "measured-worse" (a refusal) where the frames are less even than
/// they were, and "measured-missed" (a warning) where they are less even than the noise of the references explains: by
/// more than half the prediction and by three standard deviations of the measured variance, which are 3 * sqrt(2 /
/// samples) * (its own value + what temporal noise adds to the mean of the frames).
/// @param[in] rEven              the measured even frames.
/// @param[in] dPredictedPercent  see PairFigures::dResidualPercent; NaN: nothing can be missed.
Findings compareWithPrediction(const SceneFrames& rEven, const MeasuredUnevenness& rMeasured, double dPredictedPercent);

}  // namespace Toolkit
}  // namespace XAPEL2
