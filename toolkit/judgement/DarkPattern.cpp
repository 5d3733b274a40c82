// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a dark reference does to the pattern in the dark: takes it off, and puts its own noise in its place.

#include "toolkit/judgement/DarkPattern.h"

#include <cmath>
#include <vector>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/NonUniformity.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr unsigned RADII[] = {1, 2, 3, 5, 8, 13, 21, 31};
constexpr double WORSE_DARK_BY = 1.1;    // times what it was
constexpr double SEEN_FROM = 0.25;       // of the noise of a frame
constexpr double FILTER_GAINS = 0.9;     // of what is left without it; less is not worth the pattern that it gives up
constexpr double FRAMES_MOST = 1000.0;   // that anybody records
constexpr uint64_t SAMPLES_LEAST = 100;  // of all classes: a variance is known to a seventh of it then

/// Sums of the samples above and left of each place, with a row and a column of zeros before them.
std::vector<double> integralOf(const CColourPlane& rPlane) {
    const std::size_t nStride = rPlane.columns() + 1;
    std::vector<double> vecSums(nStride * (rPlane.rows() + 1), 0.0);
    for (std::size_t iRow = 0; iRow < rPlane.rows(); ++iRow) {
        double dRow = 0.0;
        for (std::size_t i = 0; i < rPlane.columns(); ++i) {
            dRow += static_cast<double>(rPlane.row(iRow)[i]);
            vecSums[(iRow + 1) * nStride + i + 1] = vecSums[iRow * nStride + i + 1] + dRow;
        }
    }
    return vecSums;
}

/// Mean square of a plane's difference from its filtered self.
double squareDifference(const CColourPlane& rPlane, const std::vector<double>& rSums, std::size_t nRadius) {
    const std::size_t nStride = rPlane.columns() + 1, nSide = 2 * nRadius + 1;
    double dSquares = 0.0, dCount = 0.0;
    for (std::size_t iTop = 0; iTop + nSide <= rPlane.rows(); ++iTop) {
        for (std::size_t iLeft = 0; iLeft + nSide <= rPlane.columns(); ++iLeft) {
            const double* pTop = &rSums[iTop * nStride + iLeft];
            const double* pFoot = pTop + nSide * nStride;
            const double dBox = (pFoot[nSide] - pFoot[0] - pTop[nSide] + pTop[0]) / static_cast<double>(nSide * nSide);
            const float fHere = rPlane.row(iTop + nRadius)[iLeft + nRadius];
            dSquares += (static_cast<double>(fHere) - dBox) * (static_cast<double>(fHere) - dBox);
            dCount += 1.0;
        }
    }
    return dSquares / dCount;
}

double noiseOf(const StandIn::ReferenceImage& rDark, unsigned iClass) {
    return rDark.vecClassNoise.empty() ? rDark.dTemporalNoise : rDark.vecClassNoise[iClass];
}

/// All but what a filter would do, which takes longer.
DarkPattern patternUnfiltered(const StandIn::ReferenceImage& rDark) {
    DarkPattern result;
    if (rDark.nImages < 2 || rDark.layout.samples() < SAMPLES_LEAST) {
        return result;
    }
    const unsigned nClasses = rDark.layout.classes();
    double dBefore = 0.0, dNoise = 0.0;
    for (unsigned i = 0; i < nClasses; ++i) {
        const double dVariance = noiseOf(rDark, i) * noiseOf(rDark, i);
        const CColourPlane plane = colourPlane(rDark.layout, rDark.vecSamples, i);
        dBefore += spatialVariances(plane, rDark.averaged(), dVariance).dTotal / nClasses;
        dNoise += dVariance / nClasses;
    }
    result.dBefore = dBefore > 0.0 ? std::sqrt(dBefore) : std::numeric_limits<double>::quiet_NaN();
    result.dAfter = result.dFiltered = std::sqrt(dNoise / static_cast<double>(rDark.averaged()));
    const double dFrames = dBefore > 0.0 ? std::ceil(4.0 * dNoise / dBefore) : FRAMES_MOST;
    result.nFrames = dFrames < FRAMES_MOST ? static_cast<uint64_t>(dFrames) : 0;
    return result;
}

bool isWorse(const DarkPattern& rPattern) {
    return rPattern.dAfter > 0.0 && !(rPattern.dAfter <= WORSE_DARK_BY * rPattern.dBefore);
}

}  // namespace

DarkPattern darkPattern(const StandIn::ReferenceImage& rDark) {
    DarkPattern result = patternUnfiltered(rDark);
    if (std::isnan(result.dAfter)) {
        return result;
    }
    const unsigned nClasses = rDark.layout.classes();
    std::vector<double> vecFiltered(std::size(RADII), 0.0);
    for (unsigned i = 0; i < nClasses; ++i) {
        const CColourPlane plane = colourPlane(rDark.layout, rDark.vecSamples, i);
        const double dMean = noiseOf(rDark, i) * noiseOf(rDark, i) / static_cast<double>(rDark.averaged());
        const std::vector<double> vecSums = integralOf(plane);
        for (std::size_t k = 0; k < std::size(RADII); ++k) {
            const std::size_t nSide = 2 * RADII[k] + 1;
            const bool bFits = 2 * nSide <= plane.rows() && 2 * nSide <= plane.columns();
            const double dShare = 1.0 / static_cast<double>(nSide * nSide);
            const double dLost = bFits ? squareDifference(plane, vecSums, RADII[k]) - dMean * (1.0 - dShare)
                                       : std::numeric_limits<double>::infinity();
            // What is lost can come out a little below 0.
            vecFiltered[k] += (std::fmax(0.0, dLost) + dMean * dShare) / nClasses;
        }
    }
    for (std::size_t k = 0; k < std::size(RADII); ++k) {
        const double dLeft = std::sqrt(vecFiltered[k]);
        if (dLeft < result.dFiltered && dLeft < FILTER_GAINS * result.dAfter) {
            result.nRadius = RADII[k];
            result.dFiltered = dLeft;
        }
    }
    return result;
}

Findings judgeDarkPattern(const StandIn::ReferenceImage& rDark) {
    if (!isWorse(patternUnfiltered(rDark))) {
        return {};
    }
    const DarkPattern pattern = darkPattern(rDark);
    std::string strText = "Correction makes the pattern in the dark worse: the noise of the dark reference leaves " +
                          fixed(pattern.dAfter, 2) + " DN, ";
    strText += std::isnan(pattern.dBefore) ? "where noise hides what there is without it."
                                           : "where there are " + fixed(pattern.dBefore, 2) + " DN without it.";
    std::string strAdvice;
    if (pattern.nFrames > 0) {
        strAdvice = "Record it from " + std::to_string(pattern.nFrames) + " frames or more";
    }
    if (pattern.nRadius > 0) {
        strAdvice += (strAdvice.empty() ? "Filter it" : ", or filter it") + std::string(" with a box of radius ") +
                     std::to_string(pattern.nRadius) + ", which leaves " + fixed(pattern.dFiltered, 2) + " DN";
    }
    const bool bSeen = pattern.dAfter > SEEN_FROM * rDark.dTemporalNoise;
    return {{bSeen ? eWarning : eNote, "dark-worse", strText,
             strAdvice.empty() ? "Record the dark reference from more frames." : strAdvice + "."}};
}

}  // namespace Toolkit
}  // namespace XAPEL2
