// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Mean image and temporal noise of several frames of one scene.

#include "toolkit/judgement/FrameStack.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr uint64_t FRAMES_TOLD = 3;       // of two nobody knows which one is odd
constexpr double BRIGHTNESS_TOLD = 0.01;  // of the middle one
constexpr double SPREADS_TOLD = 10.0;     // of the frames' means
constexpr double NOISES_TOLD = 6.0;       // standard deviations of a mean by the noise of its samples
constexpr double ROBUST = 1.4826;         // a standard deviation, in median deviations

double middleOf(std::vector<double> vecValues) {
    const auto itMiddle = vecValues.begin() + static_cast<std::ptrdiff_t>(vecValues.size() / 2);
    std::nth_element(vecValues.begin(), itMiddle, vecValues.end());
    return *itMiddle;
}

}  // namespace

CFrameStack::CFrameStack(const StandIn::ImageLayout& rLayout) : m_layout(rLayout) {
    if (!rLayout.isPossible()) {
        throw std::invalid_argument("frames of this size cannot be added up");
    }
    m_vecSum.resize(rLayout.samples());
    m_vecSquares.resize(rLayout.samples());
    m_vecClassMeans.resize(rLayout.classes());
}

void CFrameStack::add(const Frame& rFrame) {
    if (StandIn::ImageLayout{rFrame.pFormat, rFrame.nWidth, rFrame.nHeight} != m_layout ||
        rFrame.vecSamples.size() != m_vecSum.size()) {
        throw std::invalid_argument("frame " + rFrame.strName + " has another format or size than those before");
    }
    const uint32_t uFullScale = m_layout.pFormat->fullScale();
    uint64_t nSaturated = 0;
    std::vector<uint64_t> vecClassSums(m_layout.classes(), 0);
    for (std::size_t i = 0; i < m_vecSum.size(); ++i) {
        const uint64_t uSample = rFrame.vecSamples[i];
        m_vecSum[i] += uSample;
        m_vecSquares[i] += uSample * uSample;
        vecClassSums[m_layout.classOf(i)] += uSample;
        nSaturated += uSample >= uFullScale ? 1U : 0U;
    }
    m_nSaturated += nSaturated;
    ++m_nFrames;
    double dMean = 0.0;
    for (unsigned i = 0; i < m_layout.classes(); ++i) {
        const auto dSum = static_cast<double>(vecClassSums[i]);
        m_vecClassMeans[i].push_back(dSum / std::max(1.0, static_cast<double>(m_layout.samplesOf(i))));
        dMean += dSum / static_cast<double>(m_vecSum.size());
    }
    m_means.dFirst = m_nFrames == 1 ? dMean : m_means.dFirst;
    m_means.dLast = dMean;
    m_means.dLeast = std::fmin(m_means.dLeast, dMean);
    m_means.dMost = std::fmax(m_means.dMost, dMean);
}

double CFrameStack::variance(std::size_t iSample) const {
    const auto dFrames = static_cast<double>(m_nFrames);
    const auto dSum = static_cast<double>(m_vecSum[iSample]);
    return (static_cast<double>(m_vecSquares[iSample]) - dSum * dSum / dFrames) / (dFrames - 1.0);
}

double CFrameStack::varianceOfMeans(unsigned iClass) const {
    const std::vector<double>& rMeans = m_vecClassMeans[iClass];
    double dMean = 0.0, dSquares = 0.0;
    for (const double dFrame : rMeans) {
        dMean += dFrame / static_cast<double>(rMeans.size());
    }
    for (const double dFrame : rMeans) {
        dSquares += (dFrame - dMean) * (dFrame - dMean);
    }
    return dSquares / (static_cast<double>(rMeans.size()) - 1.0);
}

MeanImage CFrameStack::mean() const {
    if (m_nFrames == 0) {
        throw std::logic_error("there is no frame to average");
    }
    MeanImage result;
    result.layout = m_layout;
    result.nFrames = m_nFrames;
    result.means = m_means;
    result.vecSamples.resize(m_vecSum.size());
    const auto dFrames = static_cast<double>(m_nFrames);
    result.dSaturatedShare = static_cast<double>(m_nSaturated) / (dFrames * static_cast<double>(m_vecSum.size()));
    for (std::size_t i = 0; i < m_vecSum.size(); ++i) {
        result.vecSamples[i] = static_cast<float>(static_cast<double>(m_vecSum[i]) / dFrames);
    }
    if (m_nFrames < 2) {
        result.dTemporalVariance = std::numeric_limits<double>::quiet_NaN();
        return result;
    }
    std::vector<double> vecVariances(m_layout.classes(), 0.0), vecMeans(vecVariances), vecSquares(vecVariances);
    for (std::size_t i = 0; i < m_vecSum.size(); ++i) {
        const unsigned iClass = m_layout.classOf(i);
        const double dHere = static_cast<double>(m_vecSum[i]) / dFrames;
        vecVariances[iClass] += variance(i);
        vecMeans[iClass] += dHere;
        vecSquares[iClass] += dHere * dHere;
    }
    result.dTemporalVariance = 0.0;
    for (unsigned i = 0; i < m_layout.classes(); ++i) {
        const auto dSamples = static_cast<double>(m_layout.samplesOf(i));
        const double dShape = vecMeans[i] > 0.0 ? vecSquares[i] * dSamples / (vecMeans[i] * vecMeans[i]) : 1.0;
        const double dVariance =
            dSamples > 0.0 ? StandIn::steadyVariance(vecVariances[i] / dSamples, varianceOfMeans(i), dShape, dSamples)
                           : 0.0;
        result.vecClassVariance.push_back(dVariance);
        result.dTemporalVariance += dVariance * dSamples / static_cast<double>(m_vecSum.size());
    }
    return result;
}

std::vector<double> CFrameStack::frameMeans() const {
    std::vector<double> vecMeans(static_cast<std::size_t>(m_nFrames), 0.0);
    for (unsigned i = 0; i < m_layout.classes(); ++i) {
        const double dShare = static_cast<double>(m_layout.samplesOf(i)) / static_cast<double>(m_vecSum.size());
        for (std::size_t k = 0; k < vecMeans.size(); ++k) {
            vecMeans[k] += dShare * m_vecClassMeans[i][k];
        }
    }
    return vecMeans;
}

StandIn::RecordingOutliers CFrameStack::outlyingFrames() const {
    StandIn::RecordingOutliers result;
    if (m_nFrames < FRAMES_TOLD) {
        return result;
    }
    const std::vector<double> vecMeans = frameMeans();
    const double dMiddle = middleOf(vecMeans);
    std::vector<double> vecDistances;
    for (const double dMean : vecMeans) {
        vecDistances.push_back(std::abs(dMean - dMiddle));
    }
    const double dByChance = NOISES_TOLD * std::sqrt(mean().dTemporalVariance / static_cast<double>(m_vecSum.size()));
    const double dLimit =
        std::max({BRIGHTNESS_TOLD * dMiddle, SPREADS_TOLD * ROBUST * middleOf(vecDistances), dByChance});
    for (std::size_t i = 0; i < vecMeans.size(); ++i) {
        if (vecDistances[i] > dLimit) {
            StandIn::FrameOutlier outlier;
            outlier.eWhat = StandIn::eOutlierBrightness;
            outlier.iFrame = i + 1;
            outlier.dDeviation = vecMeans[i] - dMiddle;
            result.vecPlaces.push_back(outlier);
        }
    }
    result.nFrames = result.vecPlaces.size();
    std::stable_sort(result.vecPlaces.begin(), result.vecPlaces.end(),
                     [](const auto& a, const auto& b) { return std::abs(a.dDeviation) > std::abs(b.dDeviation); });
    result.vecPlaces.resize(std::min(result.vecPlaces.size(), StandIn::RecordingOutliers::PLACES_MAX));
    return result;
}

std::vector<float> CFrameStack::temporalVariances() const {
    if (m_nFrames < 2) {
        throw std::logic_error("the noise of a single frame cannot be told");
    }
    std::vector<float> vecResult(m_vecSum.size());
    for (std::size_t i = 0; i < vecResult.size(); ++i) {
        vecResult[i] = static_cast<float>(variance(i));
    }
    return vecResult;
}

bool isNoiseKnown(const StandIn::ReferenceImage& rReference) {
    // A mean that another program made tells neither noise nor the means of its frames.
    return rReference.nImages > 1 && (rReference.dTemporalNoise > 0.0 || !std::isnan(rReference.means.dFirst));
}

double noiseShare(const StandIn::ReferenceImage& rReference) {
    constexpr double CHANCE_LEAST = 0.10, DEVIATIONS = 6.0;
    constexpr uint64_t SAMPLES_MOST = 8192, FRAMES_MOST = 4;  // that neighbours are compared in
    const double dNoise = rReference.dTemporalNoise, dNeighbours = rReference.dNeighbourNoise;
    if (rReference.eKind != StandIn::eReferenceLight || !(dNeighbours > 0.0) || !(dNoise > 0.0) ||
        rReference.nImages < 2) {
        return 1.0;
    }
    const double dShare = dNeighbours * dNeighbours / (dNoise * dNoise);
    const uint64_t nPairs = std::min<uint64_t>(rReference.layout.samples(), SAMPLES_MOST) / 2 *
                            (std::min(rReference.nImages, FRAMES_MOST) - 1);
    const double dChance = DEVIATIONS * std::sqrt(2.0 / std::max(1.0, static_cast<double>(nPairs)));
    return dShare * (1.0 + std::max(CHANCE_LEAST, dChance)) < 1.0 ? dShare : 1.0;
}

MeanImage meanOf(const StandIn::ReferenceImage& rReference) {
    MeanImage result;
    result.layout = rReference.layout;
    result.nFrames = rReference.averaged();
    result.vecSamples = rReference.vecSamples;
    result.dTemporalVariance = std::numeric_limits<double>::quiet_NaN();
    if (isNoiseKnown(rReference)) {
        const double dShare = noiseShare(rReference);
        result.dTemporalVariance = dShare * rReference.dTemporalNoise * rReference.dTemporalNoise;
        for (const double dNoise : rReference.vecClassNoise) {
            result.vecClassVariance.push_back(dShare * dNoise * dNoise);
        }
    }
    result.means = rReference.means;
    result.dSaturatedShare = rReference.dSaturatedShare;
    return result;
}

std::vector<std::string> colourClassNames(const StandIn::PixelFormat& rFormat) {
    if (rFormat.nChannels == 3) {
        return rFormat.pName[0] == 'B' ? std::vector<std::string>{"B", "G", "R"}
                                       : std::vector<std::string>{"R", "G", "B"};
    }
    if (!rFormat.isCfa()) {
        return {"mono"};
    }
    std::vector<std::string> vecNames;
    int nGreen = 0;
    for (const char* pSite = rFormat.pCfa; *pSite != '\0'; ++pSite) {
        vecNames.push_back(*pSite == 'G' ? "G" + std::to_string(++nGreen) : std::string(1, *pSite));
    }
    return vecNames;
}

CColourPlane colourPlane(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples, unsigned iClass) {
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    const std::size_t nPerRow = rLayout.samplesPerRow();
    if (rLayout.classes() == 1) {
        return {nHeight, nPerRow, vecSamples.data()};
    }
    const bool bCfa = rLayout.pFormat->isCfa();
    const std::size_t nRowStep = bCfa ? 2 : 1, nColumnStep = bCfa ? 2 : rLayout.pFormat->nChannels;
    const std::size_t iFirstRow = bCfa ? iClass / 2 : 0, iFirstColumn = bCfa ? iClass % 2 : iClass;
    std::vector<float> vecPlane;
    vecPlane.reserve(vecSamples.size() / rLayout.classes() + nPerRow);
    std::size_t nRows = 0;
    for (std::size_t iRow = iFirstRow; iRow < nHeight; iRow += nRowStep, ++nRows) {
        const float* const pRow = vecSamples.data() + iRow * nPerRow;
        for (std::size_t i = iFirstColumn; i < nPerRow; i += nColumnStep) {
            vecPlane.push_back(pRow[i]);
        }
    }
    const std::size_t nColumns = nRows == 0 ? 0 : vecPlane.size() / nRows;
    return {nRows, nColumns, std::move(vecPlane)};
}

}  // namespace Toolkit
}  // namespace XAPEL2
