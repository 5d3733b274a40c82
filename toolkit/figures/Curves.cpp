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

constexpr double GAIN_MAX = 16.0;  // of the host's image processor

double as(float fValue) {
    return static_cast<double>(fValue);
}

}  // namespace

std::vector<double> classMeans(const StandIn::ImageLayout& rLayout, const std::vector<float>& vSamples) {
    std::vector<double> vecSum(colourClasses(*rLayout.pFormat), 0.0), vecCount(vecSum.size(), 0.0);
    for (std::size_t i = 0; i < vSamples.size(); ++i) {
        const unsigned iClass = colourClass(*rLayout.pFormat, rLayout.nWidth, i);
        vecSum[iClass] += as(vSamples[i]);
        vecCount[iClass] += 1.0;
    }
    for (std::size_t i = 0; i < vecSum.size(); ++i) {
        vecSum[i] /= std::max(1.0, vecCount[i]);
    }
    return vecSum;
}

std::vector<float> relativeSignal(const MeanImage& rImage, const std::vector<double>& vecDarkLevels) {
    const StandIn::ImageLayout& rLayout = rImage.sLayout;
    const std::vector<double> vecMeans = classMeans(rLayout, rImage.vSamples);
    std::vector<float> vResult(rImage.vSamples.size());
    for (std::size_t i = 0; i < vResult.size(); ++i) {
        const unsigned iClass = colourClass(*rLayout.pFormat, rLayout.nWidth, i);
        const double dDark = vecDarkLevels.empty() ? 0.0 : vecDarkLevels[iClass];
        const double dMean = vecMeans[iClass] - dDark;
        vResult[i] = static_cast<float>(dMean > 0.0 ? 100.0 * (as(rImage.vSamples[i]) - dDark) / dMean : 100.0);
    }
    return vResult;
}

Curve profileOf(const StandIn::ImageLayout& rLayout, const std::vector<float>& vSamples, bool bRows,
                std::size_t nPointsMax) {
    const std::size_t nPerRow = rLayout.samplesPerRow(), nChannels = rLayout.pFormat->nChannels;
    std::vector<double> vecSum(bRows ? rLayout.nHeight : rLayout.nWidth, 0.0);
    for (std::size_t i = 0; i < vSamples.size(); ++i) {
        vecSum[bRows ? i / nPerRow : i % nPerRow / nChannels] += as(vSamples[i]);
    }
    const std::size_t nStep = (vecSum.size() + nPointsMax - 1) / nPointsMax;
    const std::size_t nSamples = vSamples.size() / vecSum.size() * nStep;
    Curve Result{(static_cast<double>(nStep) - 1.0) / 2.0, static_cast<double>(nStep), {}};
    for (std::size_t i = 0; i + nStep <= vecSum.size(); i += nStep) {
        double dSum = 0.0;
        for (std::size_t k = i; k < i + nStep; ++k) {
            dSum += vecSum[k];
        }
        Result.vValues.push_back(dSum / static_cast<double>(nSamples));
    }
    return Result;
}

Histograms histogramsOf(const std::vector<float>& vBefore, const std::vector<float>& vAfter, std::size_t nBins) {
    double dLow = as(percentile(vBefore, 1e-4)), dHigh = as(percentile(vBefore, 1.0 - 1e-4));
    dLow = std::min(dLow, as(percentile(vAfter, 1e-4)));
    dHigh = std::max(dHigh, as(percentile(vAfter, 1.0 - 1e-4)));
    const double dMargin = std::max(0.03 * (dHigh - dLow), 0.01);
    Histograms Result{dLow - dMargin, (dHigh - dLow + 2.0 * dMargin) / static_cast<double>(nBins), {}, {}};
    const auto fnCount = [&](const std::vector<float>& vSamples) {
        std::vector<double> vecBins(nBins, 0.0);
        for (const float fSample : vSamples) {
            const double dBin = std::floor((as(fSample) - Result.dFirst) / Result.dStep);
            vecBins[static_cast<std::size_t>(std::clamp(dBin, 0.0, static_cast<double>(nBins - 1)))] += 1.0;
        }
        return vecBins;
    };
    Result.vBefore = fnCount(vBefore);
    Result.vAfter = fnCount(vAfter);
    return Result;
}

std::vector<float> gainsOf(const StandIn::ReferenceImage* pDark, const StandIn::ReferenceImage* pLight) {
    if (pLight == nullptr) {
        return std::vector<float>(pDark->vSamples.size(), 1.0F);
    }
    std::vector<float> vSignal = pLight->vSamples;
    for (std::size_t i = 0; pDark != nullptr && i < vSignal.size(); ++i) {
        vSignal[i] -= pDark->vSamples[i];
    }
    const StandIn::ImageLayout& rLayout = pLight->sLayout;
    const std::vector<double> vecMeans = classMeans(rLayout, vSignal);
    for (std::size_t i = 0; i < vSignal.size(); ++i) {
        const double dMean = vecMeans[colourClass(*rLayout.pFormat, rLayout.nWidth, i)];
        vSignal[i] = vSignal[i] > 0.0F ? static_cast<float>(std::clamp(dMean / as(vSignal[i]), 0.0, GAIN_MAX)) : 1.0F;
    }
    return vSignal;
}

}  // namespace Toolkit
}  // namespace XAPEL2
