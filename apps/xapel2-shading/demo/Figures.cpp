// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Figures about the evenness of an image.

#include "demo/Figures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace XAPEL2 {
namespace App {

namespace {

constexpr uint64_t BLOCK_SIDE = 16;

double deviationPercent(const std::vector<double>& aValues) {
    if (aValues.empty()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    double fMean = 0.0;
    for (const double fValue : aValues) {
        fMean += fValue;
    }
    fMean /= static_cast<double>(aValues.size());
    double fSquares = 0.0;
    for (const double fValue : aValues) {
        fSquares += (fValue - fMean) * (fValue - fMean);
    }
    return 100.0 * std::sqrt(fSquares / static_cast<double>(aValues.size())) / fMean;
}

void divideByClassMeans(const Frame& rFrame, std::vector<double>& rSamples) {
    std::vector<double> aSum(colourClasses(*rFrame.pFormat), 0.0);
    std::vector<double> aCount(aSum.size(), 0.0);
    for (std::size_t i = 0; i < rSamples.size(); ++i) {
        const unsigned iClass = colourClass(*rFrame.pFormat, rFrame.nWidth, i);
        aSum[iClass] += rSamples[i];
        aCount[iClass] += 1.0;
    }
    for (std::size_t i = 0; i < rSamples.size(); ++i) {
        const unsigned iClass = colourClass(*rFrame.pFormat, rFrame.nWidth, i);
        rSamples[i] /= aSum[iClass] / aCount[iClass];
    }
}

std::vector<double> blockMeans(const Frame& rFrame, const std::vector<double>& rSamples) {
    const uint64_t nColumns = rFrame.nWidth / BLOCK_SIDE;
    const uint64_t nRows = rFrame.nHeight / BLOCK_SIDE;
    const uint64_t nChannels = rFrame.pFormat->nChannels;
    std::vector<double> aMeans(nColumns * nRows, 0.0);
    for (uint64_t iY = 0; iY < nRows * BLOCK_SIDE; ++iY) {
        for (uint64_t iX = 0; iX < nColumns * BLOCK_SIDE * nChannels; ++iX) {
            aMeans[iY / BLOCK_SIDE * nColumns + iX / (BLOCK_SIDE * nChannels)] +=
                rSamples[iY * rFrame.nWidth * nChannels + iX];
        }
    }
    for (double& rMean : aMeans) {
        rMean /= static_cast<double>(BLOCK_SIDE * BLOCK_SIDE * nChannels);
    }
    return aMeans;
}

}  // namespace

Unevenness unevenness(const Frame& rFrame, const std::vector<float>& aDark) {
    if (!aDark.empty() && aDark.size() != rFrame.aSamples.size()) {
        throw std::invalid_argument("the dark reference is of another size than frame " + rFrame.strName);
    }
    std::vector<double> aSamples(rFrame.aSamples.begin(), rFrame.aSamples.end());
    for (std::size_t i = 0; i < aDark.size(); ++i) {
        aSamples[i] -= static_cast<double>(aDark[i]);
    }
    divideByClassMeans(rFrame, aSamples);
    return {deviationPercent(blockMeans(rFrame, aSamples)), deviationPercent(aSamples)};
}

}  // namespace App
}  // namespace XAPEL2
