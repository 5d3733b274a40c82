// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What correction left, beside what the references promised.

#include "toolkit/figures/Prediction.h"

#include <cmath>
#include <numeric>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double MISSED_BY = 1.5;   // times the prediction, so that small changes of the light are borne
constexpr double DEVIATIONS = 3.0;  // of the measured variance

constexpr const char* CAUSES =
    "Likely are references of another camera, a lens or an aperture that was moved, new dust, or another light. Record "
    "both references anew on this camera, as it stands now.";

// Standard deviation of a variance over all samples, in percent of the mean, squared.
double varianceDeviation(const MeanImage& rImage, double dPercent) {
    const auto dSamples = static_cast<double>(rImage.vSamples.size());
    const double dMean = std::accumulate(rImage.vSamples.begin(), rImage.vSamples.end(), 0.0) / dSamples;
    const double dNoise = std::isfinite(rImage.dTemporalVariance)
                              ? 1e4 * rImage.dTemporalVariance / static_cast<double>(rImage.nFrames) / (dMean * dMean)
                              : 0.0;
    return std::sqrt(2.0 / dSamples) * (dPercent * dPercent + dNoise);
}

}  // namespace

Findings compareWithPrediction(const SceneFrames& rEven, const MeasuredUnevenness& rMeasured,
                               double dPredictedPercent) {
    if (!rEven.After || !std::isfinite(rMeasured.dAfter)) {
        return {};
    }
    const double dAfter = rMeasured.dAfter * rMeasured.dAfter;
    const double dDeviation = DEVIATIONS * varianceDeviation(*rEven.After, rMeasured.dAfter);
    const std::string strAfter = fixed(rMeasured.dAfter, 3) + " %";
    if (std::isfinite(rMeasured.dBefore) && dAfter > rMeasured.dBefore * rMeasured.dBefore + dDeviation) {
        return {{eRefusal, "measured-worse",
                 "Correction makes the frames less even: PRNU1288 is " + fixed(rMeasured.dBefore, 3) +
                     " % before and " + strAfter + " after it.",
                 CAUSES}};
    }
    const double dBorne = MISSED_BY * dPredictedPercent;
    if (std::isfinite(dPredictedPercent) && dAfter > dBorne * dBorne + dDeviation) {
        return {{eWarning, "measured-missed",
                 "After correction PRNU1288 is " + strAfter + ", where the noise of these references explains " +
                     fixed(dPredictedPercent, 3) + " %.",
                 CAUSES}};
    }
    return {};
}

}  // namespace Toolkit
}  // namespace XAPEL2
