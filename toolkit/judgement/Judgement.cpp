// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether a reference is good by itself.

#include "toolkit/judgement/Judgement.h"

#include <algorithm>
#include <cmath>

#include "toolkit/judgement/Bits.h"
#include "toolkit/judgement/JudgementText.h"
#include "toolkit/judgement/Steadiness.h"
#include "toolkit/judgement/Sums.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double SATURATED_REFUSED = 0.01;  // share of the samples
constexpr double SATURATED_WARNED = 0.001;  // more than single hot pixels
constexpr double LIGHT_LEAST = 40.0;        // percent of full scale
constexpr double LIGHT_MOST = 80.0;         // percent of full scale
constexpr double SIGNAL_USELESS = 1.0;      // percent of full scale: quantisation is coarser than any shading
constexpr double DARK_MOST = 10.0;          // percent of full scale
constexpr double NOISE_LEAST = 0.24;        // DN: EMVA 1288, least dark noise that quantisation does not distort
constexpr double BLACK_CLIPPED = 0.01;      // share of the samples
constexpr uint64_t FRAMES_LEAST = 8;        // from here on the reference adds 6 % or less to a frame's own noise

std::vector<double> classMeans(const StandIn::ReferenceImage& rReference) {
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    std::vector<double> vecMeans;
    for (unsigned iClass = 0; iClass < colourClasses(rFormat); ++iClass) {
        vecMeans.push_back(meanOfSamples(colourPlane(rReference.layout, rReference.vecSamples, iClass)));
    }
    return vecMeans;
}

void judgeSaturation(const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.dSaturatedShare <= SATURATED_WARNED) {
        return;
    }
    const bool bRefused = rFigures.dSaturatedShare > SATURATED_REFUSED;
    rFindings.push_back({bRefused ? eRefusal : eWarning, "saturated",
                         fixed(100.0 * rFigures.dSaturatedShare, 2) + " % of the samples are at full scale" +
                             (bRefused ? " (limit 1 %)." : "."),
                         rFigures.eKind == StandIn::eReferenceLight
                             ? "Shorten the exposure or dim the light and record again; correct at the same exposure."
                             : "Cover the lens, or shorten the exposure, and record again."});
}

void judgeNumber(const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.nFrames < FRAMES_LEAST) {
        const double dAdded = 100.0 * (std::sqrt(1.0 + 1.0 / static_cast<double>(rFigures.nFrames)) - 1.0);
        rFindings.push_back({eWarning, "few-frames",
                             counted(rFigures.nFrames, "frame") + " averaged: the noise of the reference adds " +
                                 fixed(dAdded, 0) + " % to that of each corrected frame.",
                             "Record 16 frames or more."});
    }
}

void judgeLight(const ReferenceFigures& rFigures, Findings& rFindings) {
    const std::string strMean =
        "The mean is " + fixed(rFigures.dMean, 1) + " DN, " + fixed(rFigures.dMeanPercent, 1) + " % of full scale";
    if (rFigures.dMeanPercent < SIGNAL_USELESS) {
        rFindings.push_back({eRefusal, "too-dark", strMean + ": too dark to tell the shading (limit 1 %).",
                             "Uncover the lens, add light or lengthen the exposure, and record again at 40 to 80 %."});
    } else if (rFigures.dMeanPercent < LIGHT_LEAST) {
        rFindings.push_back({eWarning, "dim", strMean + ": a dim reference is a noisy one.",
                             "Add light or lengthen the exposure to reach 40 to 80 %."});
    } else if (rFigures.dMeanPercent > LIGHT_MOST) {
        rFindings.push_back({eWarning, "bright", strMean + ": little room is left below saturation.",
                             "Dim the light or shorten the exposure to reach 40 to 80 %."});
    }
    const auto iLeast = std::min_element(rFigures.vecClassMeans.begin(), rFigures.vecClassMeans.end());
    const double dFullScale = rFigures.layout.pFormat->fullScale();
    if (rFigures.dMeanPercent >= LIGHT_LEAST && 100.0 * *iLeast / dFullScale < LIGHT_LEAST / 2.0) {
        const auto iClass = static_cast<std::size_t>(iLeast - rFigures.vecClassMeans.begin());
        rFindings.push_back({eWarning, "dim-colour",
                             "Colour " + colourClassNames(*rFigures.layout.pFormat)[iClass] + " has only " +
                                 fixed(100.0 * *iLeast / dFullScale, 1) + " % of full scale.",
                             "Use a light of a more even colour."});
    }
}

void judgeDark(const StandIn::ReferenceImage& rReference, const ReferenceFigures& rFigures, Findings& rFindings) {
    if (rFigures.dMeanPercent > DARK_MOST) {
        rFindings.push_back({eWarning, "not-dark",
                             "The mean is " + fixed(rFigures.dMean, 1) + " DN, " + fixed(rFigures.dMeanPercent, 1) +
                                 " % of full scale: light may have fallen in.",
                             "Cover the lens and record again."});
    }
    if (rFigures.dTemporalNoise < NOISE_LEAST) {
        rFindings.push_back(
            {eNote, "coarse",
             "The noise in the dark is only " + fixed(rFigures.dTemporalNoise, 2) +
                 " DN: averaging does not bring out fractions of a DN, and the conversion gain is rough.",
             "A pixel format with more bits tells more."});
    }
    const auto nBlack = std::count(rReference.vecSamples.begin(), rReference.vecSamples.end(), 0.0F);
    const double dShare = static_cast<double>(nBlack) / static_cast<double>(rReference.vecSamples.size());
    if (dShare > BLACK_CLIPPED) {
        rFindings.push_back(
            {eWarning, "black-clipped",
             fixed(100.0 * dShare, 1) + " % of the samples are 0 in every frame: their dark value is cut off.",
             "Raise the black level of the camera until nothing is cut off, and record again."});
    }
}

}  // namespace

void append(Findings& rTo, const Findings& rFrom) {
    rTo.insert(rTo.end(), rFrom.begin(), rFrom.end());
}

bool refused(const Findings& rFindings, bool bForce) {
    return std::any_of(rFindings.begin(), rFindings.end(),
                       [bForce](const Finding& r) { return r.eLevel == eRefusal && (!bForce || r.bFinal); });
}

const char* verdict(const Findings& rFindings) {
    const bool bWarned =
        std::any_of(rFindings.begin(), rFindings.end(), [](const Finding& r) { return r.eLevel == eWarning; });
    return refused(rFindings) ? "refused" : bWarned ? "warning" : "good";
}

ReferenceJudgement judgeReference(const StandIn::ReferenceImage& rReference, const StandIn::ReferenceImage* pDark) {
    ReferenceJudgement result;
    ReferenceFigures& rFigures = result.figures;
    rFigures.eKind = rReference.eKind;
    rFigures.layout = rReference.layout;
    rFigures.geometry = rReference.geometry;
    rFigures.nFrames = rReference.nImages;
    rFigures.vecClassMeans = classMeans(rReference);
    rFigures.dMean = meanOfSamples(rReference.vecSamples);
    rFigures.dMeanPercent = 100.0 * rFigures.dMean / rReference.layout.pFormat->fullScale();
    rFigures.dSaturatedShare = rReference.dSaturatedShare;
    if (isNoiseKnown(rReference)) {
        rFigures.dTemporalNoise = rReference.dTemporalNoise;
    }
    rFigures.means = rReference.means;
    const bool bWithDark = pDark && pDark->layout.hasSamplesLike(rReference.layout);
    rFigures.vecDefects = findDefects(rReference, bWithDark ? pDark : nullptr);
    rFigures.settings = cameraSettingsFromJson(rReference.strCamera);

    rFigures.outliers = rReference.outliers;

    judgeSaturation(rFigures, result.vecFindings);
    const Findings vecBits = judgeBits(rReference);
    result.vecFindings.insert(result.vecFindings.end(), vecBits.begin(), vecBits.end());
    if (rReference.eKind == StandIn::eReferenceLight) {
        judgeLight(rFigures, result.vecFindings);
    } else {
        judgeDark(rReference, rFigures, result.vecFindings);
    }
    judgeNumber(rFigures, result.vecFindings);
    append(result.vecFindings, judgeSteadiness(rFigures));
    append(result.vecFindings, judgeMovement(rReference));
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
