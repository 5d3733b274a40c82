// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#include "standin/processor/references/ReferenceRecorder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
namespace XAPEL2 {
namespace StandIn {

void CReferenceRecorder::add(const ImageLayout& rLayout, const void* pImage) {
    const PixelFormat& rFormat = *rLayout.pFormat;
    const bool bBytes = rFormat.nWireBits == 8;
    const std::size_t nSamples = rLayout.samples();
    const uint32_t uFull = rFormat.fullScale();
    if (m_nImages == 0) {
        m_vSums16.assign(bBytes ? nSamples : 0, 0);
        m_vSums32.assign(bBytes ? 0 : nSamples, 0);
        m_sLayout = rLayout;
    }
    const uint32_t uLargest = bBytes ? std::numeric_limits<uint16_t>::max() : std::numeric_limits<uint32_t>::max();
    if (m_nNarrow == uLargest / uFull)
        widen();

    // Rows of a filter array have their own classes; anything else is one run.
    const bool bCfa = rFormat.isCfa();
    const std::size_t nRow = bCfa ? rLayout.samplesPerRow() : nSamples;
    std::array<int64_t, CLASSES_MAX> aiSums{};
    std::array<uint16_t, 4096> aSamples;
    const auto fnRun = [&](const void* pSamples, std::size_t iFirst, std::size_t nRun) {
        const FrameFigures sFigures = addRun(pSamples, iFirst, nRun);
        const std::size_t iClass = bCfa ? iFirst / nRow % 2 * 2 : 0;
        for (std::size_t k = 0; k < (bCfa ? 2U : rFormat.nChannels); ++k) {
            aiSums[iClass + k] += sFigures.aiSums[k];
            m_aClasses[iClass + k].uSquares += sFigures.auSquares[k];
        }
        m_nSaturated += sFigures.nSaturated;
        m_uLargest = std::max(m_uLargest, sFigures.uLargest);
    };
    for (std::size_t iRow = 0; iRow < nSamples; iRow += nRow) {
        if (!rFormat.isPacked()) {
            fnRun(static_cast<const uint8_t*>(pImage) + iRow * (bBytes ? 1 : 2), iRow, nRow);
            continue;
        }
        for (std::size_t i = iRow; i < iRow + nRow; i += aSamples.size()) {
            const std::size_t nBlock = std::min(aSamples.size(), iRow + nRow - i);
            unpackSamples(rFormat, pImage, i, nBlock, aSamples.data());
            fnRun(aSamples.data(), i, nBlock);
        }
    }
    ++m_nNarrow;
    ++m_nImages;
    closeFrame(aiSums);
}

// Bits above the significant ones cannot occur in a sound image; they count as full scale.
FrameFigures CReferenceRecorder::addRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples) {
    const PixelFormat& rFormat = *m_sLayout.pFormat;
    const std::size_t nClasses = rFormat.isCfa() ? 2 : rFormat.nChannels;
    return m_vSums32.empty() ? addFrame(nClasses, static_cast<const uint8_t*>(pSamples), nSamples, &m_vSums16[iFirst])
                             : addFrame(nClasses, static_cast<const uint16_t*>(pSamples), nSamples, rFormat.fullScale(),
                                        &m_vSums32[iFirst]);
}

void CReferenceRecorder::closeFrame(const std::array<int64_t, CLASSES_MAX>& rSums) {
    const auto iCentre = static_cast<int64_t>(m_vSums16.empty() ? FRAME_CENTRE : 0);
    int64_t iAll = 0;
    for (std::size_t k = 0; k < CLASSES_MAX; ++k) {
        const int64_t iSum = rSums[k] + iCentre * static_cast<int64_t>(m_sLayout.samplesOf(static_cast<unsigned>(k)));
        m_aClasses[k].uFrameSquares += static_cast<UInt128>(iSum) * static_cast<UInt128>(iSum);
        iAll += iSum;
    }
    const double dMean = static_cast<double>(iAll) / static_cast<double>(m_sLayout.samples());
    m_sMeans.dFirst = m_nImages == 1 ? dMean : m_sMeans.dFirst;
    m_sMeans.dLast = dMean;
    // Not a number before the first frame, which these take for missing.
    m_sMeans.dLeast = std::fmin(m_sMeans.dLeast, dMean);
    m_sMeans.dMost = std::fmax(m_sMeans.dMost, dMean);
}

void CReferenceRecorder::widen() {
    const auto spill = [this](auto& rNarrow) {
        for (std::size_t i = 0; i < rNarrow.size(); ++i) m_vSums64[i] += rNarrow[i];
        std::fill(rNarrow.begin(), rNarrow.end(), 0);
    };
    m_vSums64.resize(m_sLayout.samples());
    spill(m_vSums16);
    spill(m_vSums32);
    m_nNarrow = 0;
}

uint64_t CReferenceRecorder::sum(std::size_t iSample) const {
    const uint64_t uNarrow = m_vSums16.empty() ? m_vSums32[iSample] : m_vSums16[iSample];
    return m_vSums64.empty() ? uNarrow : m_vSums64[iSample] + uNarrow;
}

ReferenceImage CReferenceRecorder::reference() const {
    ReferenceImage sReference;
    sReference.eKind = m_eKind;
    sReference.sLayout = m_sLayout;
    sReference.nImages = m_nImages;
    sReference.vSamples.resize(m_sLayout.samples());
    struct Sums {
        UInt128 uSum = 0, uSquares = 0;  // of the sums of the pixels
    };
    std::array<Sums, CLASSES_MAX> aSums;
    for (std::size_t i = 0; i < sReference.vSamples.size(); ++i) {
        const uint64_t uSample = sum(i);
        sReference.vSamples[i] = static_cast<float>(static_cast<double>(uSample) / static_cast<double>(m_nImages));
        Sums& rSums = aSums[m_sLayout.classOf(i)];
        rSums.uSum += uSample;
        rSums.uSquares += static_cast<UInt128>(uSample) * uSample;
    }
    const double dImages = static_cast<double>(m_nImages);
    const double dSamples = static_cast<double>(sReference.vSamples.size());
    sReference.dSaturatedShare = static_cast<double>(m_nSaturated) / dSamples / dImages;
    sReference.uLargest = m_uLargest;
    sReference.sMeans = m_sMeans;
    UInt128 uSum = 0;
    double dVariances = 0.0;
    for (unsigned k = 0; k < m_sLayout.classes(); ++k) {
        uSum += aSums[k].uSum;
        const uint64_t nClass = m_sLayout.samplesOf(k);
        if (m_nImages == 1 || nClass == 0)
            continue;
        // n * sum(x^2) - sum(x)^2 over the pixels is n (n - 1) times their variances: an exact difference. With the
        // centre c, x^2 = (x - c)^2 + 2 c x - c^2. The same over the sums of the frames.
        const UInt128 uCentre = m_vSums16.empty() ? FRAME_CENTRE : 0;
        const UInt128 uSquares = m_aClasses[k].uSquares + 2 * uCentre * aSums[k].uSum -
                                 uCentre * uCentre * (static_cast<UInt128>(m_nImages) * nClass);
        const double dClass = static_cast<double>(nClass);
        const double dAll = dImages * (dImages - 1.0);
        const double dPixels = static_cast<double>(uSquares * m_nImages - aSums[k].uSquares) / dAll / dClass;
        const long double dSum = static_cast<long double>(aSums[k].uSum);
        const double dFrames = static_cast<double>(
            (static_cast<long double>(m_aClasses[k].uFrameSquares) * dImages - dSum * dSum) / dAll / dClass / dClass);
        const double dShape =
            dSum > 0.0L ? static_cast<double>(static_cast<long double>(aSums[k].uSquares) / dSum / dSum) * dClass : 1.0;
        const double dVariance = steadyVariance(dPixels, dFrames, dShape, dClass);
        dVariances += dVariance * dClass / dSamples;
        sReference.vClassNoise.push_back(std::sqrt(dVariance));
    }
    sReference.dMean = static_cast<double>(uSum) / dImages / dSamples;
    sReference.dTemporalNoise = std::sqrt(dVariances);
    if (sReference.vClassNoise.size() != m_sLayout.classes())
        sReference.vClassNoise.clear();
    return sReference;
}

}  // namespace StandIn
}  // namespace XAPEL2
