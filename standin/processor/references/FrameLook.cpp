// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A look at part of a frame: how bright and noisy it is, and whether its shape is that of others.

#include "standin/processor/references/FrameLook.h"

#include <algorithm>
#include <cmath>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t RUNS_MAX = 128;
constexpr std::size_t POINTS_MAX = 4;       // of the law, for each class
constexpr std::size_t PAIRS_LEAST = 128;    // for a point
constexpr uint64_t FRAMES_MEASURED = 4;     // then the noise is known to a percent or two
constexpr std::size_t PAIRS_TAKEN = 2048;   // of a class, at least; fewer where there are fewer
constexpr double CLIPPED = 4.0;             // standard deviations beyond which a difference is no noise
constexpr double RUN_FAR = 6.0;             // standard deviations of a run's mean
constexpr double RUN_FAR_PART = 0.08;       // of the level: lamps change their shape, too
constexpr double SAMPLE_FAR = 5.0;          // standard deviations of a sample
constexpr std::size_t RUN_SAMPLES_FAR = 3;  // one sample of so many is far: the run is
constexpr double TOP_SHARE = 0.995;         // of the samples: the rest may be defects

float sumOf(const float* pValues, std::size_t nValues) {
    float aSums[8] = {};
    std::size_t i = 0;
    for (; i + 8 <= nValues; i += 8) {
        for (std::size_t k = 0; k < 8; ++k) {
            aSums[k] += pValues[i + k];
        }
    }
    float fSum = 0.0F;
    for (; i < nValues; ++i) {
        fSum += pValues[i];
    }
    for (const float fPart : aSums) {
        fSum += fPart;
    }
    return fSum;
}

double quantile(std::vector<float>& rValues, double dShare) {
    const auto iPlace = static_cast<std::ptrdiff_t>(dShare * static_cast<double>(rValues.size() - 1));
    std::nth_element(rValues.begin(), rValues.begin() + iPlace, rValues.end());
    return static_cast<double>(rValues[static_cast<std::size_t>(iPlace)]);
}

// Variance of the differences of two samples, without those that no noise makes.
double clippedVariance(const std::vector<float>& rDifferences, std::vector<float>& rScratch) {
    rScratch.assign(rDifferences.begin(), rDifferences.end());
    for (float& rValue : rScratch) {
        rValue = std::abs(rValue);
    }
    // 68 % lie within a standard deviation; of a coarse scale all may be 0.
    const double dLimit = CLIPPED * std::max(quantile(rScratch, 0.6827), 0.5) + 1.0;
    double dSquares = 0.0, dCount = 0.0;
    for (const float fValue : rScratch) {
        if (static_cast<double>(fValue) <= dLimit) {
            dSquares += static_cast<double>(fValue) * static_cast<double>(fValue);
            dCount += 1.0;
        }
    }
    return dSquares / dCount;
}

}  // namespace

void CNoiseLaw::add(const CNoiseLaw& rOther) {
    for (std::size_t k = 0; k < CLASSES_MAX; ++k) {
        if (m_aPoints[k].size() != rOther.m_aPoints[k].size()) {
            m_aPoints[k] = m_aPoints[k].empty() ? rOther.m_aPoints[k] : m_aPoints[k];
            m_adTop[k] = std::max(m_adTop[k], rOther.m_adTop[k]);
            continue;
        }
        for (std::size_t i = 0; i < m_aPoints[k].size(); ++i) {
            Point& rPoint = m_aPoints[k][i];
            const Point& rMore = rOther.m_aPoints[k][i];
            const double dPairs = rPoint.dPairs + rMore.dPairs;
            rPoint.dLevel = (rPoint.dLevel * rPoint.dPairs + rMore.dLevel * rMore.dPairs) / dPairs;
            rPoint.dVariance = (rPoint.dVariance * rPoint.dPairs + rMore.dVariance * rMore.dPairs) / dPairs;
            rPoint.dPairs = dPairs;
        }
    }
}

bool CNoiseLaw::isEmpty() const {
    return std::all_of(m_aPoints.begin(), m_aPoints.end(), [](const auto& rPoints) { return rPoints.empty(); });
}

double CNoiseLaw::variance(unsigned iClass, double dLevel) const {
    const std::vector<Point>& rPoints = m_aPoints[iClass];
    if (rPoints.empty()) {
        return 0.0;
    }
    std::size_t i = 0;
    while (i + 2 < rPoints.size() && dLevel > rPoints[i + 1].dLevel) {
        ++i;
    }
    const Point& rLow = rPoints[i];
    const Point& rHigh = rPoints[std::min(i + 1, rPoints.size() - 1)];
    const double dSpan = rHigh.dLevel - rLow.dLevel;
    if (dLevel <= rLow.dLevel || dSpan <= 0.0) {
        return std::max(rLow.dVariance, dLevel > rHigh.dLevel ? rHigh.dVariance : 0.0);
    }
    const double dPart = (dLevel - rLow.dLevel) / dSpan;
    const double dSlope = rHigh.dVariance - rLow.dVariance;
    // Points that lie close together are no ground for going far down or up beyond them.
    return dPart <= 1.0 ? rLow.dVariance + dPart * dSlope
                        : rHigh.dVariance + std::max(0.0, std::min(dPart - 1.0, 2.0) * dSlope);
}

CFrameLook::CFrameLook(const ImageLayout& rLayout) : m_layout(rLayout) {
    const std::size_t nSamples = rLayout.samples();
    m_nRun = std::min(RUN, nSamples);
    m_nStep = rLayout.pFormat->isCfa() ? 2 : rLayout.pFormat->nChannels;
    const std::size_t nRuns = std::min(RUNS_MAX, nSamples / m_nRun);
    const std::size_t nSpacing = nSamples / nRuns;
    uint64_t uPlace = 0;
    for (std::size_t i = 0; i < nRuns; ++i) {
        // By the golden ratio, so that the columns are covered evenly, too.
        uPlace += 0x9E3779B97F4A7C15U;
        const std::size_t nFree = nSpacing - m_nRun + 1;
        m_vecStarts.push_back(i * nSpacing + static_cast<std::size_t>((uPlace >> 32) * nFree >> 32));
    }
    m_vecClasses.reserve(samples());
    for (const std::size_t iStart : m_vecStarts) {
        for (std::size_t i = 0; i < m_nRun; ++i) {
            m_vecClasses.push_back(static_cast<uint8_t>(rLayout.classOf(iStart + i)));
        }
    }
}

void CFrameLook::take(const void* pImage, std::vector<float>& rSamples) const {
    rSamples.resize(samples());
    const auto uFull = static_cast<uint16_t>(m_layout.pFormat->fullScale());
    std::array<uint16_t, RUN> aRun;
    for (std::size_t iRun = 0; iRun < runs(); ++iRun) {
        unpackSamples(*m_layout.pFormat, pImage, m_vecStarts[iRun], m_nRun, aRun.data());
        for (std::size_t i = 0; i < m_nRun; ++i) {
            rSamples[iRun * m_nRun + i] = static_cast<float>(std::min(aRun[i], uFull));
        }
    }
}

// The middle one of the runs: what covers less than half of the image does not change it.
double CFrameLook::gain(const std::vector<float>& rSamples, const std::vector<float>& rMean, double& rLevel) const {
    std::vector<float> vecRatios, vecLevels;
    for (std::size_t iRun = 0; iRun < runs(); ++iRun) {
        const auto dHere = static_cast<double>(sumOf(&rSamples[iRun * m_nRun], m_nRun));
        const auto dOthers = static_cast<double>(sumOf(&rMean[iRun * m_nRun], m_nRun));
        vecLevels.push_back(static_cast<float>(dOthers / static_cast<double>(m_nRun)));
        // One DN for all of them together keeps black from being a division by 0.
        vecRatios.push_back(static_cast<float>((dHere + 1.0) / (dOthers + 1.0)));
    }
    rLevel = quantile(vecLevels, 0.5);
    return quantile(vecRatios, 0.5);
}

void CFrameLook::measureNoise(const std::vector<float>& rDeviations, const std::vector<float>& rMean, double dScale,
                              CNoiseLaw& rLaw) const {
    struct Pair {
        float fLevel, fDifference;
    };
    std::vector<Pair> vecPairs;
    std::vector<float> vecDifferences, vecScratch;
    for (unsigned iClass = 0; iClass < m_layout.classes(); ++iClass) {
        vecPairs.clear();
        // Every other run, or every fourth, where there are many.
        const std::size_t nOfClass = rMean.size() / m_layout.classes();
        const std::size_t nEvery = std::max<std::size_t>(1, nOfClass / PAIRS_TAKEN);
        vecPairs.reserve(nOfClass);
        for (std::size_t iRun = 0; iRun < runs(); iRun += nEvery) {
            const std::size_t iEnd = (iRun + 1) * m_nRun - std::min(m_nStep, m_nRun);
            for (std::size_t i = iRun * m_nRun; i < iEnd; ++i) {
                if (m_vecClasses[i] == iClass && m_vecClasses[i + m_nStep] == iClass) {
                    vecPairs.push_back(
                        {0.5F * (rMean[i] + rMean[i + m_nStep]), rDeviations[i] - rDeviations[i + m_nStep]});
                }
            }
        }
        if (vecPairs.size() < PAIRS_LEAST / 4) {
            continue;
        }
        const auto fnDivide = [&](std::size_t iFirst, std::size_t iPlace) {
            const auto itBegin = vecPairs.begin();
            std::nth_element(itBegin + static_cast<std::ptrdiff_t>(iFirst),
                             itBegin + static_cast<std::ptrdiff_t>(iPlace), vecPairs.end(),
                             [](const Pair& a, const Pair& b) { return a.fLevel < b.fLevel; });
            return static_cast<double>(vecPairs[iPlace].fLevel);
        };
        const std::size_t nPoints = std::max<std::size_t>(1, std::min(POINTS_MAX, vecPairs.size() / PAIRS_LEAST));
        for (std::size_t k = 0; k < nPoints; ++k) {
            const std::size_t iFirst = k * vecPairs.size() / nPoints, iEnd = (k + 1) * vecPairs.size() / nPoints;
            fnDivide(iFirst, iEnd - 1);
            CNoiseLaw::Point point;
            vecDifferences.clear();
            for (std::size_t i = iFirst; i < iEnd; ++i) {
                vecDifferences.push_back(vecPairs[i].fDifference);
                point.dLevel += static_cast<double>(vecPairs[i].fLevel) / static_cast<double>(iEnd - iFirst);
            }
            point.dPairs = static_cast<double>(iEnd - iFirst);
            point.dVariance = clippedVariance(vecDifferences, vecScratch) / 2.0 / dScale;
            rLaw.addPoint(iClass, point);
        }
        // As far above the middle again as the brightest good samples are.
        const double dMiddle = fnDivide(0, vecPairs.size() / 2);
        const double dTop = fnDivide(vecPairs.size() / 2,
                                     static_cast<std::size_t>(TOP_SHARE * static_cast<double>(vecPairs.size() - 1)));
        rLaw.setTop(iClass, dMiddle + 2.0 * (dTop - dMiddle) + 1.0);
    }
}

void CFrameLook::compareShape(const std::vector<float>& rDeviations, const std::vector<float>& rMean, double dScale,
                              const CNoiseLaw& rLaw, FrameView& rView) const {
    std::size_t nOther = 0;
    double dDeviations = 0.0;
    uint64_t iLeft = m_layout.nWidth, iRight = 0, iTop = m_layout.nHeight, iBottom = 0;
    for (std::size_t iRun = 0; iRun < runs(); ++iRun) {
        const float* const pDeviations = &rDeviations[iRun * m_nRun];
        const double dMean = static_cast<double>(sumOf(pDeviations, m_nRun)) / static_cast<double>(m_nRun);
        const double dLevel = static_cast<double>(sumOf(&rMean[iRun * m_nRun], m_nRun)) / static_cast<double>(m_nRun);
        std::array<float, CNoiseLaw::CLASSES_MAX> afFar{};
        double dLargest = 0.0;
        for (unsigned k = 0; k < m_layout.classes(); ++k) {
            const double dVariance = rLaw.variance(k, dLevel) * dScale;
            afFar[k] = static_cast<float>(SAMPLE_FAR * std::sqrt(dVariance) + 1.0);
            dLargest = std::max(dLargest, dVariance);
        }
        const double dMost =
            std::max({RUN_FAR * std::sqrt(dLargest / static_cast<double>(m_nRun)), RUN_FAR_PART * dLevel, 0.5});
        std::size_t nFar = 0;
        for (std::size_t i = 0; i < m_nRun; ++i) {
            nFar += std::abs(pDeviations[i]) > afFar[m_vecClasses[iRun * m_nRun + i]] ? 1U : 0U;
        }
        if (std::abs(dMean) <= dMost && nFar * RUN_SAMPLES_FAR <= m_nRun) {
            continue;
        }
        ++nOther;
        dDeviations += dMean;
        const uint64_t nPerRow = m_layout.samplesPerRow();
        const uint64_t iX = m_vecStarts[iRun] % nPerRow / m_layout.pFormat->nChannels;
        const uint64_t iY = m_vecStarts[iRun] / nPerRow;
        iLeft = std::min(iLeft, iX);
        iRight = std::max(iRight, std::min(m_layout.nWidth, iX + m_nRun / m_layout.pFormat->nChannels));
        iTop = std::min(iTop, iY);
        iBottom = std::max(iBottom, iY + 1);
    }
    if (nOther != 0) {
        rView.dOther = static_cast<double>(nOther) / static_cast<double>(runs());
        rView.dDeviation = dDeviations / static_cast<double>(nOther);
        rView.nX = iLeft;
        rView.nY = iTop;
        rView.nWidth = std::max<uint64_t>(1, iRight - iLeft);
        rView.nHeight = iBottom - iTop;
    }
}

FrameView CFrameLook::compare(const std::vector<float>& rSamples, const std::vector<float>& rMean, uint64_t nFrames,
                              const CNoiseLaw& rLaw) const {
    FrameView view;
    view.dGain = gain(rSamples, rMean, view.dLevel);
    std::vector<float> vecDeviations(rSamples.size());
    for (std::size_t i = 0; i < rSamples.size(); ++i) {
        vecDeviations[i] = rSamples[i] - static_cast<float>(view.dGain) * rMean[i];
    }
    // Of the frame itself, and of the mean of the others.
    const double dScale = 1.0 + view.dGain * view.dGain / static_cast<double>(nFrames);
    if (nFrames <= FRAMES_MEASURED) {
        measureNoise(vecDeviations, rMean, dScale, view.law);
    }
    const CNoiseLaw& rKnown = rLaw.isEmpty() ? view.law : rLaw;
    bool bKnown = true;
    for (unsigned k = 0; k < m_layout.classes(); ++k) {
        view.dNoise = std::max(view.dNoise, std::sqrt(rKnown.variance(k, view.dLevel)));
        bKnown = bKnown && rKnown.has(k);
    }
    // Of an image of few samples nobody knows the noise, and all of it would look like another shape.
    if (bKnown) {
        compareShape(vecDeviations, rMean, dScale, rKnown, view);
    }
    return view;
}

}  // namespace StandIn
}  // namespace XAPEL2
