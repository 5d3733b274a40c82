// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the charts and the map of a report show: profiles, histograms, gains.

#include "toolkit/figures/Curves.h"

#include <algorithm>
#include <cmath>

#include "toolkit/frames/Percentile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

double as(float fValue) {
    return static_cast<double>(fValue);
}

}  // namespace

std::vector<double> classMeans(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples) {
    std::vector<double> vecSum(colourClasses(*rLayout.pFormat), 0.0), vecCount(vecSum.size(), 0.0);
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        const unsigned iClass = colourClass(*rLayout.pFormat, rLayout.nWidth, i);
        vecSum[iClass] += as(vecSamples[i]);
        vecCount[iClass] += 1.0;
    }
    for (std::size_t i = 0; i < vecSum.size(); ++i) {
        vecSum[i] /= std::max(1.0, vecCount[i]);
    }
    return vecSum;
}

std::vector<float> relativeSignal(const MeanImage& rImage, const std::vector<double>& vecDarkLevels) {
    const StandIn::ImageLayout& rLayout = rImage.layout;
    const std::vector<double> vecMeans = classMeans(rLayout, rImage.vecSamples);
    std::vector<float> vecResult(rImage.vecSamples.size());
    for (std::size_t i = 0; i < vecResult.size(); ++i) {
        const unsigned iClass = colourClass(*rLayout.pFormat, rLayout.nWidth, i);
        const double dDark = vecDarkLevels.empty() ? 0.0 : vecDarkLevels[iClass];
        const double dMean = vecMeans[iClass] - dDark;
        vecResult[i] = static_cast<float>(dMean > 0.0 ? 100.0 * (as(rImage.vecSamples[i]) - dDark) / dMean : 100.0);
    }
    return vecResult;
}

Curve profileOf(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples, bool bRows,
                std::size_t nPointsMax) {
    const std::size_t nPerRow = rLayout.samplesPerRow(), nChannels = rLayout.pFormat->nChannels;
    std::vector<double> vecSum(bRows ? rLayout.nHeight : rLayout.nWidth, 0.0);
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        vecSum[bRows ? i / nPerRow : i % nPerRow / nChannels] += as(vecSamples[i]);
    }
    const std::size_t nStep = (vecSum.size() + nPointsMax - 1) / nPointsMax;
    const std::size_t nSamples = vecSamples.size() / vecSum.size() * nStep;
    Curve result{(static_cast<double>(nStep) - 1.0) / 2.0, static_cast<double>(nStep), {}};
    for (std::size_t i = 0; i + nStep <= vecSum.size(); i += nStep) {
        double dSum = 0.0;
        for (std::size_t k = i; k < i + nStep; ++k) {
            dSum += vecSum[k];
        }
        result.vecValues.push_back(dSum / static_cast<double>(nSamples));
    }
    return result;
}

Histograms histogramsOf(const std::vector<float>& vecBefore, const std::vector<float>& vecAfter, std::size_t nBinsMost,
                        double dStepLeast) {
    double dLow = as(percentile(vecBefore, 1e-4)), dHigh = as(percentile(vecBefore, 1.0 - 1e-4));
    dLow = std::min(dLow, as(percentile(vecAfter, 1e-4)));
    dHigh = std::max(dHigh, as(percentile(vecAfter, 1.0 - 1e-4)));
    const double dMargin = std::max(0.03 * (dHigh - dLow), 0.01);
    const double dRange = dHigh - dLow + 2.0 * dMargin;
    std::size_t nBins = nBinsMost;
    if (dStepLeast * static_cast<double>(nBinsMost) > dRange) {
        nBins = std::max<std::size_t>(1, static_cast<std::size_t>(dRange / dStepLeast));
    }
    Histograms result{dLow - dMargin, dRange / static_cast<double>(nBins), {}, {}};
    const auto fnCount = [&](const std::vector<float>& vecSamples) {
        std::vector<double> vecBins(nBins, 0.0);
        for (const float fSample : vecSamples) {
            const double dBin = std::floor((as(fSample) - result.dFirst) / result.dStep);
            vecBins[static_cast<std::size_t>(std::clamp(dBin, 0.0, static_cast<double>(nBins - 1)))] += 1.0;
        }
        return vecBins;
    };
    result.vecBefore = fnCount(vecBefore);
    result.vecAfter = fnCount(vecAfter);
    return result;
}

std::vector<float> gainsOf(const StandIn::ReferenceImage* pDark, const StandIn::ReferenceImage* pLight) {
    if (pLight == nullptr) {
        return std::vector<float>(pDark->vecSamples.size(), 1.0F);
    }
    std::vector<float> vecSignal = pLight->vecSamples;
    for (std::size_t i = 0; pDark != nullptr && i < vecSignal.size(); ++i) {
        vecSignal[i] -= pDark->vecSamples[i];
    }
    const StandIn::ImageLayout& rLayout = pLight->layout;
    const std::vector<double> vecMeans = classMeans(rLayout, vecSignal);
    for (std::size_t i = 0; i < vecSignal.size(); ++i) {
        const double dMean = vecMeans[colourClass(*rLayout.pFormat, rLayout.nWidth, i)];
        vecSignal[i] = vecSignal[i] > 0.0F
                           ? static_cast<float>(std::clamp(dMean / as(vecSignal[i]), 0.0, StandIn::GAIN_LIMIT))
                           : 1.0F;
    }
    return vecSignal;
}

}  // namespace Toolkit
}  // namespace XAPEL2
