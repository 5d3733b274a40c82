// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Correction tables built from references, and the kernels that correct an image with them.
//
// How far a fixed-point result can be from the formula. A table holds D' = D + d and G' = G + g. With x = in - D and
// x' = in - D' the unrounded results differ by x' G' - x G = x' g - d G = x g - d G'. Both are clamped to the full
// scale F, so a signal above F / min(G, G') adds nothing, and x, x' <= F anyway:
//
//     |difference| <= min(F, F / min(G, G')) |g| + max(G, G') |d|                                              (1)
//
// Clamping at 0 and F only brings two values closer, and rounding adds at most 1/2. So a table keeps the promise of
// makeCorrection where (1) is at most 1/2 up to 12 bits, and 1/2 + G/2 at 14 and 16 bits.
//
// Wide tables (32 bit; 12 fraction bits of offset, 26 of gain) keep it for every reference: |d| <= 2^-13,
// |g| <= 2^-26 (at the limit of 16; else 2^-27), F < 2^16 and G < 16 make (1) less than 2^-10 + 2^-9 < 0.003.
// Compact tables (16 bit; the offset fills its word, the gain has as many fraction bits as the largest gain leaves)
// take half the memory. They are used where (1), computed for each sample, shows that the reference allows it.

#include "Correction.h"

#include <array>
#include <cmath>
#include <limits>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr double GAIN_LIMIT = 16.0;
constexpr FixedPoint WIDE = {12, 26};

/// D and G of every sample in double precision, computed when asked for.
class CFormula {
public:
    CFormula(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight)
        : m_rLayout(rLayout), m_pDark(pDark), m_pLight(pLight) {
        if (!pLight)
            return;
        std::array<double, 4> aSums = {};
        std::array<uint64_t, 4> aCounts = {};
        forEach([&](std::size_t i, unsigned iClass) {
            aSums[iClass] += static_cast<double>((*m_pLight)[i]) - offset(i);
            ++aCounts[iClass];
        });
        for (std::size_t i = 0; i < aSums.size(); ++i)
            m_aTargets[i] = aCounts[i] != 0 ? aSums[i] / static_cast<double>(aCounts[i]) : 0.0;
    }

    double offset(std::size_t iSample) const { return m_pDark ? static_cast<double>((*m_pDark)[iSample]) : 0.0; }

    double gain(std::size_t iSample, unsigned iClass) const {
        if (!m_pLight)
            return 1.0;
        const double dSignal = static_cast<double>((*m_pLight)[iSample]) - offset(iSample);
        if (!(dSignal > 0.0))
            return 1.0;
        static const double s_dLargest = std::nextafter(GAIN_LIMIT, 0.0);
        return std::clamp(m_aTargets[iClass] / dSignal, 0.0, s_dLargest);
    }

    /// Calls fn(sample, colour class) for every sample of the image in order.
    template <typename F>
    void forEach(F fn) const {
        const std::size_t nChannels = m_rLayout.pFormat->nChannels;
        const bool bCfa = m_rLayout.pFormat->isCfa();
        std::size_t iSample = 0;
        for (std::size_t iY = 0; iY < m_rLayout.nHeight; ++iY) {
            for (std::size_t iX = 0; iX < m_rLayout.samplesPerRow(); ++iX)
                fn(iSample++, static_cast<unsigned>(bCfa ? iY % 2 * 2 + iX % 2 : iX % nChannels));
        }
    }

private:
    const ImageLayout& m_rLayout;
    const std::vector<float>* m_pDark;
    const std::vector<float>* m_pLight;
    std::array<double, 4> m_aTargets = {};
};

/// A value with nBits fraction bits, kept within the largest value of a table.
uint32_t toFixed(double dValue, unsigned nBits, uint32_t uLargest) {
    return static_cast<uint32_t>(std::min<double>(std::round(std::ldexp(dValue, static_cast<int>(nBits))), uLargest));
}

double fromFixed(uint32_t uValue, unsigned nBits) {
    return std::ldexp(uValue, -static_cast<int>(nBits));
}

template <typename T>
uint32_t largestGain(const FixedPoint& rPoint) {
    const double dLimit = std::ldexp(GAIN_LIMIT, static_cast<int>(rPoint.nGainBits)) - 1.0;
    return static_cast<uint32_t>(std::min<double>(dLimit, std::numeric_limits<T>::max()));
}

/// Fraction bits of a compact table for the reference.
FixedPoint compactPoint(const ImageLayout& rLayout, const CFormula& rFormula) {
    double dLargest = 0.0;
    rFormula.forEach([&](std::size_t i, unsigned iClass) { dLargest = std::max(dLargest, rFormula.gain(i, iClass)); });
    FixedPoint sPoint = {16 - rLayout.pFormat->nBits, 15};
    while (sPoint.nGainBits > 12 && std::round(std::ldexp(dLargest, static_cast<int>(sPoint.nGainBits))) > 65535.0)
        --sPoint.nGainBits;
    return sPoint;
}

/// True where bound (1) holds for every sample of a compact table.
bool isCompactEnough(const ImageLayout& rLayout, const CFormula& rFormula, const FixedPoint& rPoint) {
    constexpr double MARGIN = 1e-6;  // far above the rounding of this computation itself
    const double dFull = rLayout.pFormat->fullScale();
    const bool bDeep = rLayout.pFormat->nBits > 12;
    const uint32_t uLargest = largestGain<uint16_t>(rPoint);
    bool bEnough = true;
    rFormula.forEach([&](std::size_t i, unsigned iClass) {
        const double dOffset = rFormula.offset(i);
        const double dGain = rFormula.gain(i, iClass);
        const double dTableOffset = fromFixed(toFixed(dOffset, rPoint.nOffsetBits, 65535), rPoint.nOffsetBits);
        const double dTableGain = fromFixed(toFixed(dGain, rPoint.nGainBits, uLargest), rPoint.nGainBits);
        const double dSignal = std::min(dFull, dFull / std::min(dGain, dTableGain));
        const double dBound =
            dSignal * std::abs(dTableGain - dGain) + std::max(dGain, dTableGain) * std::abs(dTableOffset - dOffset);
        bEnough = bEnough && dBound <= (bDeep ? 0.5 + dGain / 2 : 0.5) - MARGIN;
    });
    return bEnough;
}

/// Corrects with the scalar definition, in blocks that begin at a whole byte in every format.
template <typename T>
class CScalarCorrection : public ICorrection {
public:
    CScalarCorrection(const ImageLayout& rLayout, const CFormula& rFormula, const FixedPoint& rPoint)
        : m_sLayout(rLayout), m_sPoint(rPoint), m_vOffsets(rLayout.samples()), m_vGains(rLayout.samples()) {
        const uint32_t uLargest = largestGain<T>(rPoint);
        rFormula.forEach([&](std::size_t i, unsigned iClass) {
            m_vOffsets[i] =
                static_cast<T>(toFixed(rFormula.offset(i), rPoint.nOffsetBits, std::numeric_limits<T>::max()));
            m_vGains[i] = static_cast<T>(toFixed(rFormula.gain(i, iClass), rPoint.nGainBits, uLargest));
        });
    }

    void correct(void* pImage) const noexcept override {
        const PixelFormat& rFormat = *m_sLayout.pFormat;
        const uint32_t uFull = rFormat.fullScale();
        const FixedPoint sPoint = m_sPoint;
        std::array<uint16_t, 1024> aSamples;
        for (std::size_t iFirst = 0; iFirst < m_vGains.size(); iFirst += aSamples.size()) {
            const std::size_t nBlock = std::min(aSamples.size(), m_vGains.size() - iFirst);
            unpackSamples(rFormat, pImage, iFirst, nBlock, aSamples.data());
            const T* pOffsets = &m_vOffsets[iFirst];
            const T* pGains = &m_vGains[iFirst];
            for (std::size_t i = 0; i < nBlock; ++i)
                aSamples[i] = correctSample(aSamples[i], pOffsets[i], pGains[i], sPoint, uFull);
            packSamples(rFormat, aSamples.data(), iFirst, nBlock, pImage);
        }
    }

    std::string description() const override { return "scalar"; }

private:
    ImageLayout m_sLayout;
    FixedPoint m_sPoint;
    std::vector<T> m_vOffsets;
    std::vector<T> m_vGains;
};

}  // namespace

std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight) {
    const CFormula sFormula(rLayout, pDark, pLight);
    const FixedPoint sCompact = compactPoint(rLayout, sFormula);
    if (isCompactEnough(rLayout, sFormula, sCompact))
        return std::make_unique<CScalarCorrection<uint16_t>>(rLayout, sFormula, sCompact);
    return std::make_unique<CScalarCorrection<uint32_t>>(rLayout, sFormula, WIDE);
}

}  // namespace StandIn
}  // namespace XAPEL2
