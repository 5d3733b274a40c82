// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#include "standin/processor/references/ReferenceRecorder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "standin/processor/references/FrameSums.h"

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

    // Bits above the significant ones cannot occur in a sound image; they count as full scale.
    const auto count = [this](const FrameFigures& rFigures) {
        m_uSquares += rFigures.uSquares;
        m_nSaturated += rFigures.nSaturated;
    };
    if (bBytes) {
        count(addFrame(static_cast<const uint8_t*>(pImage), nSamples, m_vSums16.data()));
    } else if (!rFormat.isPacked()) {
        count(addFrame(static_cast<const uint16_t*>(pImage), nSamples, uFull, m_vSums32.data()));
    } else {
        std::array<uint16_t, 4096> aSamples;
        for (std::size_t iFirst = 0; iFirst < nSamples; iFirst += aSamples.size()) {
            const std::size_t nBlock = std::min(aSamples.size(), nSamples - iFirst);
            unpackSamples(rFormat, pImage, iFirst, nBlock, aSamples.data());
            count(addFrame(aSamples.data(), nBlock, uFull, &m_vSums32[iFirst]));
        }
    }
    ++m_nNarrow;
    ++m_nImages;
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
    UInt128 uSum = 0;
    UInt128 uSumSquares = 0;
    for (std::size_t i = 0; i < sReference.vSamples.size(); ++i) {
        const uint64_t uSample = sum(i);
        sReference.vSamples[i] = static_cast<float>(static_cast<double>(uSample) / static_cast<double>(m_nImages));
        uSum += uSample;
        uSumSquares += static_cast<UInt128>(uSample) * uSample;
    }
    const UInt128 uAll = static_cast<UInt128>(m_nImages) * sReference.vSamples.size();
    const double dAll = static_cast<double>(uAll);
    sReference.dSaturatedShare = static_cast<double>(m_nSaturated) / dAll;
    sReference.dMean = static_cast<double>(uSum) / dAll;
    if (m_nImages > 1) {
        // Sum over the pixels of n * sum(x^2) - sum(x)^2, which is n (n - 1) times the variance: an exact difference.
        // With the centre c, x^2 = (x - c)^2 + 2 c x - c^2.
        const UInt128 uCentre = m_vSums16.empty() ? FRAME_CENTRE : 0;
        const UInt128 uSquares = m_uSquares + 2 * uCentre * uSum - uCentre * uCentre * uAll;
        const double dDeviations = static_cast<double>(uSquares * m_nImages - uSumSquares);
        sReference.dTemporalNoise = std::sqrt(dDeviations / dAll / static_cast<double>(m_nImages - 1));
    }
    return sReference;
}

}  // namespace StandIn
}  // namespace XAPEL2
