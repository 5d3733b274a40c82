// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether the frames of a recording are alike.

#include "toolkit/judgement/Steadiness.h"

#include <algorithm>
#include <cmath>

#include "toolkit/judgement/Outliers.h"
#include "toolkit/judgement/Sums.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double DRIFT_NOTED = 0.002;    // of the mean, brightest to dimmest frame
constexpr double DRIFT_WARNED = 0.01;    // of the mean
constexpr double MOVEMENT_WARNED = 0.8;  // share of the variance that is noise

void judgeNoise(const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.nFrames > 1 && !(rFigures.dTemporalNoise > 0.0) && rFigures.eKind == StandIn::eReferenceLight) {
        rFindings.push_back({eWarning, "no-noise",
                             "All frames are the same to the last bit, or nothing is known of their noise.",
                             "Make sure that the camera delivered live frames, not a test picture."});
    }
}

/// The light of a light reference, and the level of a dark one, that changed from frame to frame. The figures are free
/// of it; the frames to be corrected are not.
void judgeDrift(const ReferenceFigures& rFigures, Findings& rFindings) {
    const StandIn::FrameMeans& rMeans = rFigures.means;
    if (rFigures.nFrames < 2 || std::isnan(rMeans.dFirst) || rFigures.dMean <= 0.0) {
        return;
    }
    const double dRange = rMeans.dMost - rMeans.dLeast;
    const double dByChance = 6.0 * rFigures.dTemporalNoise / std::sqrt(static_cast<double>(rFigures.layout.samples()));
    const bool bLight = rFigures.eKind == StandIn::eReferenceLight;
    const double dNoted = bLight ? DRIFT_NOTED * rFigures.dMean : rFigures.dTemporalNoise / 4.0;
    const double dWarned = bLight ? DRIFT_WARNED * rFigures.dMean : rFigures.dTemporalNoise;
    // Frames that are alike to the last bit have no noise to hold the range against.
    if (dRange <= 0.0 || dRange < std::max(dNoted, dByChance)) {
        return;
    }
    const auto fnPercent = [&](double dValue) { return fixed(100.0 * dValue / rFigures.dMean, 2) + " %"; };
    rFindings.push_back(
        {dRange >= std::max(dWarned, dByChance) ? eWarning : eNote, "drift",
         "The mean of a frame went from " + fixed(rMeans.dFirst, 2) + " DN in the first to " + fixed(rMeans.dLast, 2) +
             " DN in the last (" + fnPercent(rMeans.dLast - rMeans.dFirst) + "), within " + fixed(rMeans.dLeast, 2) +
             " to " + fixed(rMeans.dMost, 2) + " DN (" + fnPercent(dRange) + ").",
         bLight ? "Let the lamp warm up, keep it from flickering, and see that nothing passes before the lens."
                : "Let the camera warm up before the dark reference is recorded."});
}

}  // namespace

Findings judgeSteadiness(const ReferenceFigures& rFigures) {
    Findings vecFindings;
    judgeNoise(rFigures, vecFindings);
    judgeDrift(rFigures, vecFindings);
    append(vecFindings, judgeOutliers(rFigures.outliers));
    return vecFindings;
}

Findings judgeMovement(const StandIn::ReferenceImage& rReference) {
    const double dShare = noiseShare(rReference);
    if (dShare >= 1.0) {
        return {};
    }
    return {{dShare < MOVEMENT_WARNED ? eWarning : eNote, "moving-light",
             "Light moved over the image from frame to frame: samples vary by " + fixed(rReference.dTemporalNoise, 2) +
                 " DN, where the noise between neighbours is " + fixed(rReference.dNeighbourNoise, 2) +
                 " DN. The figures take the latter, which is good to a few percent.",
             "Keep lamp, lens and target from moving and the lamp from changing its shape, and record again."}};
}

Findings judgeLevelSteadiness(const std::string& strName, const MeanImage& rLight,
                              const StandIn::RecordingOutliers& rOutliers) {
    ReferenceFigures figures;
    figures.eKind = StandIn::eReferenceLight;
    figures.layout = rLight.layout;
    figures.nFrames = rLight.nFrames;
    figures.dMean = meanOfSamples(rLight.vecSamples);
    figures.dTemporalNoise = std::sqrt(rLight.dTemporalVariance);
    figures.means = rLight.means;
    figures.outliers = rOutliers;
    Findings vecWarnings;
    for (Finding& rFinding : judgeSteadiness(figures)) {
        if (rFinding.eLevel != eNote) {
            rFinding.strText.insert(0, strName + ": ");
            vecWarnings.push_back(rFinding);
        }
    }
    return vecWarnings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
