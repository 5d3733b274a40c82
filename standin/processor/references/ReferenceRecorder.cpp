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
        m_vecSums16.assign(bBytes ? nSamples : 0, 0);
        m_vecSums32.assign(bBytes ? 0 : nSamples, 0);
        m_layout = rLayout;
    }
    const uint32_t uLargest = bBytes ? std::numeric_limits<uint16_t>::max() : std::numeric_limits<uint32_t>::max();
    if (m_nNarrow == uLargest / uFull) {
        widen();
    }

    // Rows of a filter array have their own classes; anything else is one run.
    const bool bCfa = rFormat.isCfa();
    const std::size_t nRow = bCfa ? rLayout.samplesPerRow() : nSamples;
    std::array<int64_t, CLASSES_MAX> aiSums{};
    std::array<uint16_t, 4096> aSamples;
    const auto fnRun = [&](const void* pSamples, std::size_t iFirst, std::size_t nRun) {
        const FrameFigures figures = addRun(pSamples, iFirst, nRun);
        const std::size_t iClass = bCfa ? iFirst / nRow % 2 * 2 : 0;
        for (std::size_t k = 0; k < (bCfa ? 2U : rFormat.nChannels); ++k) {
            aiSums[iClass + k] += figures.aiSums[k];
            m_aClasses[iClass + k].uSquares += figures.auSquares[k];
        }
        m_nSaturated += figures.nSaturated;
        m_uLargest = std::max(m_uLargest, figures.uLargest);
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
    const PixelFormat& rFormat = *m_layout.pFormat;
    const std::size_t nClasses = rFormat.isCfa() ? 2 : rFormat.nChannels;
    return m_vecSums32.empty()
               ? addFrame(nClasses, static_cast<const uint8_t*>(pSamples), nSamples, &m_vecSums16[iFirst])
               : addFrame(nClasses, static_cast<const uint16_t*>(pSamples), nSamples, rFormat.fullScale(),
                          &m_vecSums32[iFirst]);
}

void CReferenceRecorder::closeFrame(const std::array<int64_t, CLASSES_MAX>& rSums) {
    const auto iCentre = static_cast<int64_t>(m_vecSums16.empty() ? FRAME_CENTRE : 0);
    int64_t iAll = 0;
    for (std::size_t k = 0; k < CLASSES_MAX; ++k) {
        const int64_t iSum = rSums[k] + iCentre * static_cast<int64_t>(m_layout.samplesOf(static_cast<unsigned>(k)));
        m_aClasses[k].uFrameSquares += static_cast<UInt128>(iSum) * static_cast<UInt128>(iSum);
        iAll += iSum;
    }
    const double dMean = static_cast<double>(iAll) / static_cast<double>(m_layout.samples());
    m_means.dFirst = m_nImages == 1 ? dMean : m_means.dFirst;
    m_means.dLast = dMean;
    // Not a number before the first frame, which these take for missing.
    m_means.dLeast = std::fmin(m_means.dLeast, dMean);
    m_means.dMost = std::fmax(m_means.dMost, dMean);
}

void CReferenceRecorder::widen() {
    const auto spill = [this](auto& rNarrow) {
        for (std::size_t i = 0; i < rNarrow.size(); ++i) {
            m_vecSums64[i] += rNarrow[i];
        }
        std::fill(rNarrow.begin(), rNarrow.end(), 0);
    };
    m_vecSums64.resize(m_layout.samples());
    spill(m_vecSums16);
    spill(m_vecSums32);
    m_nNarrow = 0;
}

uint64_t CReferenceRecorder::sum(std::size_t iSample) const {
    const uint64_t uNarrow = m_vecSums16.empty() ? m_vecSums32[iSample] : m_vecSums16[iSample];
    return m_vecSums64.empty() ? uNarrow : m_vecSums64[iSample] + uNarrow;
}

ReferenceImage CReferenceRecorder::reference() const {
    ReferenceImage reference;
    reference.eKind = m_eKind;
    reference.layout = m_layout;
    reference.nImages = m_nImages;
    reference.vecSamples.resize(m_layout.samples());
    struct Sums {
        UInt128 uSum = 0, uSquares = 0;  // of the sums of the pixels
    };
    std::array<Sums, CLASSES_MAX> aSums;
    for (std::size_t i = 0; i < reference.vecSamples.size(); ++i) {
        const uint64_t uSample = sum(i);
        reference.vecSamples[i] = static_cast<float>(static_cast<double>(uSample) / static_cast<double>(m_nImages));
        Sums& rSums = aSums[m_layout.classOf(i)];
        rSums.uSum += uSample;
        rSums.uSquares += static_cast<UInt128>(uSample) * uSample;
    }
    const double dImages = static_cast<double>(m_nImages);
    const double dSamples = static_cast<double>(reference.vecSamples.size());
    reference.dSaturatedShare = static_cast<double>(m_nSaturated) / dSamples / dImages;
    reference.uLargest = m_uLargest;
    reference.means = m_means;
    UInt128 uSum = 0;
    double dVariances = 0.0;
    for (unsigned k = 0; k < m_layout.classes(); ++k) {
        uSum += aSums[k].uSum;
        const uint64_t nClass = m_layout.samplesOf(k);
        if (m_nImages == 1 || nClass == 0) {
            continue;
        }
        // n * sum(x^2) - sum(x)^2 over the pixels is n (n - 1) times their variances: an exact difference. With the
        // centre c, x^2 = (x - c)^2 + 2 c x - c^2. The same over the sums of the frames.
        const UInt128 uCentre = m_vecSums16.empty() ? FRAME_CENTRE : 0;
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
        reference.vecClassNoise.push_back(std::sqrt(dVariance));
    }
    reference.dMean = static_cast<double>(uSum) / dImages / dSamples;
    reference.dTemporalNoise = std::sqrt(dVariances);
    if (reference.vecClassNoise.size() != m_layout.classes()) {
        reference.vecClassNoise.clear();
    }
    return reference;
}

}  // namespace StandIn
}  // namespace XAPEL2
