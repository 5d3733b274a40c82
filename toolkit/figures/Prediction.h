// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What correction left, beside what the references promised.

#pragma once

#include <limits>

#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

/// Unevenness of measured frames, all in one unit. NaN: not known, or not resolved; nothing is found then.
struct Correction {
    double dBefore = std::numeric_limits<double>::quiet_NaN();
    double dAfter = std::numeric_limits<double>::quiet_NaN();
    double dUncertainty = std::numeric_limits<double>::quiet_NaN();  ///< of dAfter, one standard deviation
    double dPredicted = std::numeric_limits<double>::quiet_NaN();    ///< what the noise of the references leaves
};

/// Compares PRNU1288 (percent) with its prediction. Finds "measured-worse" (a refusal) where the frames are less even
/// than they were by a tenth, and "measured-missed" (a warning) where they are less even than the noise of the
/// references explains: by more than half the prediction, and by three standard deviations of the measured variance.
Findings compareLight(const Correction& rPrnu);

/// The same of DSNU1288, as the warnings "measured-dark-worse" and "measured-dark-missed"; the former is a note where
/// the noise of the reference explains it.
Findings compareDark(const Correction& rDsnu, const std::string& strUnit);

}  // namespace Toolkit
}  // namespace XAPEL2
