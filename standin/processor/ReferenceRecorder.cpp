// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#include "ReferenceRecorder.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace XAPEL2 {
namespace StandIn {

void CReferenceRecorder::add(const ImageLayout& rLayout, const void* pImage) {
    if (m_nImages == 0) {
        m_vSums.assign(rLayout.samples(), 0);
        m_sLayout = rLayout;
    }
    const uint32_t uFull = rLayout.pFormat->fullScale();
    std::array<uint16_t, 1024> aSamples;
    for (std::size_t iFirst = 0; iFirst < m_vSums.size(); iFirst += aSamples.size()) {
        const std::size_t nBlock = std::min(aSamples.size(), m_vSums.size() - iFirst);
        unpackSamples(*rLayout.pFormat, pImage, iFirst, nBlock, aSamples.data());
        uint64_t uSquares = 0;
        uint64_t nSaturated = 0;
        for (std::size_t i = 0; i < nBlock; ++i) {
            // Bits above the significant ones cannot occur in a sound image; they count as full scale.
            const uint64_t uSample = std::min<uint32_t>(aSamples[i], uFull);
            m_vSums[iFirst + i] += uSample;
            uSquares += uSample * uSample;
            nSaturated += uSample == uFull;
        }
        m_uSquares += uSquares;
        m_nSaturated += nSaturated;
    }
    ++m_nImages;
}

ReferenceImage CReferenceRecorder::reference() const {
    ReferenceImage sReference;
    sReference.eKind = m_eKind;
    sReference.sLayout = m_sLayout;
    sReference.nImages = m_nImages;
    sReference.vSamples.resize(m_vSums.size());
    UInt128 uSum = 0;
    UInt128 uSumSquares = 0;
    for (std::size_t i = 0; i < m_vSums.size(); ++i) {
        sReference.vSamples[i] = static_cast<float>(static_cast<double>(m_vSums[i]) / static_cast<double>(m_nImages));
        uSum += m_vSums[i];
        uSumSquares += static_cast<UInt128>(m_vSums[i]) * m_vSums[i];
    }
    const double dAll = static_cast<double>(m_nImages) * static_cast<double>(m_vSums.size());
    sReference.dSaturatedShare = static_cast<double>(m_nSaturated) / dAll;
    sReference.dMean = static_cast<double>(uSum) / dAll;
    if (m_nImages > 1) {
        // Sum over the pixels of n * sum(x^2) - sum(x)^2, which is n (n - 1) times the variance: an exact difference.
        const double dDeviations = static_cast<double>(m_uSquares * m_nImages - uSumSquares);
        sReference.dTemporalNoise = std::sqrt(dDeviations / dAll / static_cast<double>(m_nImages - 1));
    }
    return sReference;
}

}  // namespace StandIn
}  // namespace XAPEL2
