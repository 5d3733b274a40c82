// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Mean and figures of a reference from the sums of its frames.

#include "standin/processor/references/ReferenceSums.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t CLASSES_MAX = CNoiseLaw::CLASSES_MAX;
__extension__ typedef __int128 Int128;

double differenceOf(UInt128 uLeft, UInt128 uRight) {
    // What stands for samples that were left out is rounded: of a few samples the difference may be below 0.
    return uLeft > uRight ? static_cast<double>(uLeft - uRight) : 0.0;
}

class CFigures {
public:
    CFigures(const std::vector<const CFrameGroup*>& rGroups, const OutlyingSamples* pLeftOut,
             ReferenceImage& rReference)
        : m_rGroups(rGroups), m_pLeftOut(pLeftOut), m_rReference(rReference), m_rLayout(rReference.layout) {}

    void fill() {
        gather();
        replaceLeftOut();
        sumPixels();
        tellMeans();
        tellNoise();
    }

private:
    struct PixelSums {
        UInt128 uSum = 0, uSquares = 0;  // of the sums of the pixels
    };

    void gather();
    void replaceLeftOut();
    void sumPixels();
    void tellMeans();
    void tellNoise();

    const std::vector<const CFrameGroup*>& m_rGroups;
    const OutlyingSamples* m_pLeftOut;
    ReferenceImage& m_rReference;
    const ImageLayout& m_rLayout;
    std::vector<FrameRecord> m_vecFrames;  // in the order of the recording
    std::array<UInt128, CLASSES_MAX> m_auSquares{};
    std::map<uint64_t, int64_t> m_mapCorrections;  // of the sums of pixels
    std::array<PixelSums, CLASSES_MAX> m_aPixels{};
};

void CFigures::gather() {
    for (const CFrameGroup* pGroup : m_rGroups) {
        m_vecFrames.insert(m_vecFrames.end(), pGroup->frames().begin(), pGroup->frames().end());
        for (unsigned k = 0; k < CLASSES_MAX; ++k) {
            m_auSquares[k] += pGroup->squares(k);
        }
    }
    std::sort(m_vecFrames.begin(), m_vecFrames.end(),
              [](const FrameRecord& a, const FrameRecord& b) { return a.iFrame < b.iFrame; });
    m_rReference.nImages = m_vecFrames.size();
}

void CFigures::replaceLeftOut() {
    if (!m_pLeftOut) {
        return;
    }
    const auto iFull = static_cast<int64_t>(m_rLayout.pFormat->fullScale());
    const auto iCentre = static_cast<int64_t>(m_rGroups.front()->centre());
    std::vector<uint32_t> vecLargestOut(m_vecFrames.size(), 0);
    for (const OutlyingSample& rOut : m_pLeftOut->vecOut) {
        const int64_t iOld = std::clamp<int64_t>(std::llround(rOut.dValue), 0, iFull);
        const int64_t iNew = std::clamp<int64_t>(std::llround(rOut.dExpected), 0, iFull);
        const unsigned iClass = m_rLayout.classOf(static_cast<std::size_t>(rOut.iSample));
        FrameRecord& rFrame = m_vecFrames[rOut.iFrame];
        rFrame.aiSums[iClass] += iNew - iOld;
        rFrame.nSaturated -= iOld == iFull && rFrame.nSaturated != 0 ? 1U : 0U;
        m_mapCorrections[rOut.iSample] += iNew - iOld;
        const Int128 iSquares = static_cast<Int128>(m_auSquares[iClass]) + (iNew - iCentre) * (iNew - iCentre) -
                                (iOld - iCentre) * (iOld - iCentre);
        m_auSquares[iClass] = static_cast<UInt128>(std::max<Int128>(iSquares, 0));
        vecLargestOut[rOut.iFrame] = std::max(vecLargestOut[rOut.iFrame], static_cast<uint32_t>(iOld));
    }
    // What is the largest sample of such a frame without it nobody knows any more; other frames tell.
    for (std::size_t i = 0; i < m_vecFrames.size(); ++i) {
        m_vecFrames[i].uLargest = vecLargestOut[i] < m_vecFrames[i].uLargest ? m_vecFrames[i].uLargest : 0;
    }
}

void CFigures::sumPixels() {
    const double dImages = static_cast<double>(m_vecFrames.size());
    std::vector<float>& rSamples = m_rReference.vecSamples;
    rSamples.resize(m_rLayout.samples());
    auto itCorrection = m_mapCorrections.begin();
    std::size_t iClean = 0;
    for (std::size_t i = 0; i < rSamples.size(); ++i) {
        uint64_t uSample = 0;
        for (const CFrameGroup* pGroup : m_rGroups) {
            uSample += pGroup->sum(i);
        }
        rSamples[i] = static_cast<float>(static_cast<double>(uSample) / dImages);
        if (itCorrection != m_mapCorrections.end() && itCorrection->first == i) {
            uSample = static_cast<uint64_t>(std::max<int64_t>(static_cast<int64_t>(uSample) + itCorrection->second, 0));
            rSamples[i] = static_cast<float>(m_pLeftOut->vecClean[iClean++].dMean);
            ++itCorrection;
        }
        PixelSums& rSums = m_aPixels[m_rLayout.classOf(i)];
        rSums.uSum += uSample;
        rSums.uSquares += static_cast<UInt128>(uSample) * uSample;
    }
}

void CFigures::tellMeans() {
    const double dSamples = static_cast<double>(m_rLayout.samples());
    uint64_t nSaturated = 0;
    for (const FrameRecord& rFrame : m_vecFrames) {
        int64_t iAll = 0;
        for (const int64_t iSum : rFrame.aiSums) {
            iAll += iSum;
        }
        const double dMean = static_cast<double>(iAll) / dSamples;
        FrameMeans& rMeans = m_rReference.means;
        rMeans.dFirst = std::isnan(rMeans.dFirst) ? dMean : rMeans.dFirst;
        rMeans.dLast = dMean;
        // Not a number before the first frame, which these take for missing.
        rMeans.dLeast = std::fmin(rMeans.dLeast, dMean);
        rMeans.dMost = std::fmax(rMeans.dMost, dMean);
        nSaturated += rFrame.nSaturated;
        m_rReference.uLargest = std::max(m_rReference.uLargest, rFrame.uLargest);
    }
    m_rReference.dSaturatedShare = static_cast<double>(nSaturated) / dSamples / static_cast<double>(m_vecFrames.size());
}

void CFigures::tellNoise() {
    const uint64_t nImages = m_vecFrames.size();
    const double dImages = static_cast<double>(nImages);
    const double dSamples = static_cast<double>(m_rLayout.samples());
    UInt128 uSum = 0;
    double dVariances = 0.0;
    for (unsigned k = 0; k < m_rLayout.classes(); ++k) {
        uSum += m_aPixels[k].uSum;
        const uint64_t nClass = m_rLayout.samplesOf(k);
        if (nImages == 1 || nClass == 0) {
            continue;
        }
        UInt128 uFrameSquares = 0;
        for (const FrameRecord& rFrame : m_vecFrames) {
            uFrameSquares += static_cast<UInt128>(rFrame.aiSums[k]) * static_cast<UInt128>(rFrame.aiSums[k]);
        }
        // n * sum(x^2) - sum(x)^2 over the pixels is n (n - 1) times their variances: an exact difference. With the
        // centre c, x^2 = (x - c)^2 + 2 c x - c^2. The same over the sums of the frames.
        const UInt128 uCentre = m_rGroups.front()->centre();
        const UInt128 uSquares = m_auSquares[k] + 2 * uCentre * m_aPixels[k].uSum -
                                 uCentre * uCentre * (static_cast<UInt128>(nImages) * nClass);
        const double dClass = static_cast<double>(nClass);
        const double dAll = dImages * (dImages - 1.0);
        const double dPixels = differenceOf(uSquares * nImages, m_aPixels[k].uSquares) / dAll / dClass;
        const long double dSum = static_cast<long double>(m_aPixels[k].uSum);
        const double dFrames = static_cast<double>((static_cast<long double>(uFrameSquares) * dImages - dSum * dSum) /
                                                   dAll / dClass / dClass);
        const double dShape =
            dSum > 0.0L ? static_cast<double>(static_cast<long double>(m_aPixels[k].uSquares) / dSum / dSum) * dClass
                        : 1.0;
        const double dVariance = steadyVariance(dPixels, dFrames, dShape, dClass);
        dVariances += dVariance * dClass / dSamples;
        m_rReference.vecClassNoise.push_back(std::sqrt(dVariance));
    }
    m_rReference.dMean = static_cast<double>(uSum) / dImages / dSamples;
    m_rReference.dTemporalNoise = std::sqrt(dVariances);
    if (m_rReference.vecClassNoise.size() != m_rLayout.classes()) {
        m_rReference.vecClassNoise.clear();
    }
}

}  // namespace

void fillReference(const std::vector<const CFrameGroup*>& rGroups, const OutlyingSamples* pLeftOut,
                   ReferenceImage& rReference) {
    CFigures(rGroups, pLeftOut, rReference).fill();
}

}  // namespace StandIn
}  // namespace XAPEL2
