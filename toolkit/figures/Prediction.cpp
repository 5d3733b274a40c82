// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What correction left, beside what the references promised.

#include "toolkit/figures/Prediction.h"

#include <cmath>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double MISSED_BY = 1.5;   // times the prediction, so that small changes are borne
constexpr double WORSE_BY = 1.1;    // times what it was: a target that is not even is neither better nor worse
constexpr double DEVIATIONS = 3.0;  // of the measured variance

double squared(double dValue) {
    return dValue * dValue;
}

// True where the square of what is left exceeds that of dLimit by more than chance explains; never for NaN.
bool exceeds(const Correction& rMeasured, double dLimit) {
    const double dDeviation =
        std::isnan(rMeasured.dUncertainty) ? 0.0 : 2.0 * rMeasured.dAfter * rMeasured.dUncertainty;
    return squared(rMeasured.dAfter) > squared(dLimit) + DEVIATIONS * dDeviation;
}

bool isWorse(const Correction& rMeasured) {
    return exceeds(rMeasured, WORSE_BY * rMeasured.dBefore);
}

bool isMissed(const Correction& rMeasured) {
    return exceeds(rMeasured, MISSED_BY * rMeasured.dPredicted);
}

std::string worseText(const char* pWhat, const Correction& rMeasured, int nDigits, const std::string& strUnit) {
    return std::string(pWhat) + " is " + withUnit(rMeasured.dBefore, nDigits, strUnit) + " before and " +
           withUnit(rMeasured.dAfter, nDigits, strUnit) + " after it.";
}

std::string missedText(const char* pWhat, const Correction& rMeasured, int nDigits, const std::string& strUnit) {
    return std::string("After correction ") + pWhat + " is " + withUnit(rMeasured.dAfter, nDigits, strUnit) +
           ", where the noise of these references explains " + withUnit(rMeasured.dPredicted, nDigits, strUnit) + ".";
}

}  // namespace

Findings compareLight(const Correction& rPrnu) {
    const char* const pAdvice =
        "Likely are references of another camera, a lens or an aperture that was moved, new dust, or another light. "
        "Record both references anew on this camera, as it stands now.";
    if (isWorse(rPrnu)) {
        return {{eRefusal, "measured-worse",
                 "Correction makes the frames less even: " + worseText("PRNU1288", rPrnu, 3, "%"), pAdvice}};
    }
    if (isMissed(rPrnu)) {
        return {{eWarning, "measured-missed", missedText("PRNU1288", rPrnu, 3, "%"), pAdvice}};
    }
    return {};
}

Findings compareDark(const Correction& rDsnu, const std::string& strUnit) {
    const bool bMissed = isMissed(rDsnu);
    const char* const pAdvice =
        bMissed ? "Likely is a dark reference of another camera, temperature, exposure time or gain. Record it anew."
        : std::isnan(rDsnu.dPredicted) ? "Take a dark reference with it: without one the dark level is multiplied, too."
                                       : "Record the dark reference from more frames, or filter it.";
    if (isWorse(rDsnu)) {
        // What the noise of the reference explains, its number of frames is judged by.
        return {{bMissed ? eWarning : eNote, "measured-dark-worse",
                 "Correction makes the dark frames less even: " + worseText("DSNU1288", rDsnu, 2, strUnit), pAdvice}};
    }
    if (bMissed) {
        return {{eWarning, "measured-dark-missed", missedText("DSNU1288", rDsnu, 2, strUnit), pAdvice}};
    }
    return {};
}

}  // namespace Toolkit
}  // namespace XAPEL2
