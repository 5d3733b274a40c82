// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median and box filters for references.

#include "ReferenceFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

namespace {

/// One plane of samples side by side, with access beyond its border.
template <typename T>
struct Plane {
    std::size_t nWidth = 0;
    std::size_t nHeight = 0;
    std::vector<T> vSamples;

    static std::size_t inside(std::ptrdiff_t i, std::size_t n) {
        return i < 0 ? 0 : std::min(static_cast<std::size_t>(i), n - 1);
    }
    T at(std::ptrdiff_t iX, std::ptrdiff_t iY) const {
        return vSamples[inside(iY, nHeight) * nWidth + inside(iX, nWidth)];
    }
};

/// Median by a sliding histogram (Huang, Yang and Tang 1979) over the ranks of the values in two levels, so that
/// samples need not be integers. The window moves in a meander: one column or row leaves and one enters per step.
class CMedian {
public:
    CMedian(Plane<float>& rPlane, unsigned nRadius)
        : m_rPlane(rPlane), m_nRadius(static_cast<std::ptrdiff_t>(nRadius)) {
        m_vValues = rPlane.vSamples;
        std::sort(m_vValues.begin(), m_vValues.end());
        m_vValues.erase(std::unique(m_vValues.begin(), m_vValues.end()), m_vValues.end());
        while ((m_vValues.size() >> m_nShift >> m_nShift) != 0) ++m_nShift;
        m_vFine.resize(((m_vValues.size() >> m_nShift) + 1) << m_nShift);
        m_vCoarse.resize((m_vValues.size() >> m_nShift) + 1);
        m_sRanks.nWidth = rPlane.nWidth;
        m_sRanks.nHeight = rPlane.nHeight;
        m_sRanks.vSamples.reserve(rPlane.vSamples.size());
        for (const float fSample : rPlane.vSamples)
            m_sRanks.vSamples.push_back(static_cast<uint32_t>(
                std::lower_bound(m_vValues.begin(), m_vValues.end(), fSample) - m_vValues.begin()));
    }

    void run() {
        const auto nWidth = static_cast<std::ptrdiff_t>(m_rPlane.nWidth);
        const auto nHeight = static_cast<std::ptrdiff_t>(m_rPlane.nHeight);
        for (std::ptrdiff_t iY = -m_nRadius; iY <= m_nRadius; ++iY) changeRow(0, iY, 1);
        std::ptrdiff_t iX = 0;
        std::ptrdiff_t iStep = 1;
        for (std::ptrdiff_t iY = 0;; ++iY) {
            store(iX, iY);
            for (; iX + iStep >= 0 && iX + iStep < nWidth; iX += iStep, store(iX, iY)) {
                changeColumn(iX - iStep * m_nRadius, iY, -1);
                changeColumn(iX + iStep * (m_nRadius + 1), iY, 1);
            }
            if (iY + 1 == nHeight)
                return;
            iStep = -iStep;
            changeRow(iX, iY - m_nRadius, -1);
            changeRow(iX, iY + m_nRadius + 1, 1);
        }
    }

private:
    void change(uint32_t uRank, int iBy) {
        const std::size_t iBucket = uRank >> m_nShift;
        m_vFine[uRank] = static_cast<uint16_t>(m_vFine[uRank] + iBy);
        m_vCoarse[iBucket] = static_cast<uint16_t>(m_vCoarse[iBucket] + iBy);
        if (iBucket < m_iBucket)
            m_nBelow += iBy;
    }
    void changeRow(std::ptrdiff_t iX, std::ptrdiff_t iY, int iBy) {
        for (std::ptrdiff_t i = iX - m_nRadius; i <= iX + m_nRadius; ++i) change(m_sRanks.at(i, iY), iBy);
    }
    void changeColumn(std::ptrdiff_t iX, std::ptrdiff_t iY, int iBy) {
        for (std::ptrdiff_t i = iY - m_nRadius; i <= iY + m_nRadius; ++i) change(m_sRanks.at(iX, i), iBy);
    }
    void store(std::ptrdiff_t iX, std::ptrdiff_t iY) {
        const std::ptrdiff_t nSide = 2 * m_nRadius + 1;
        const auto nSmaller = static_cast<int>(nSide * nSide / 2);  // samples of the window before the median
        while (m_nBelow > nSmaller) m_nBelow -= m_vCoarse[--m_iBucket];
        while (m_nBelow + m_vCoarse[m_iBucket] <= nSmaller) m_nBelow += m_vCoarse[m_iBucket++];
        std::size_t iRank = m_iBucket << m_nShift;
        for (int nBelow = m_nBelow + m_vFine[iRank]; nBelow <= nSmaller; nBelow += m_vFine[iRank]) ++iRank;
        m_rPlane.vSamples[static_cast<std::size_t>(iY) * m_rPlane.nWidth + static_cast<std::size_t>(iX)] =
            m_vValues[iRank];
    }

    Plane<float>& m_rPlane;
    std::ptrdiff_t m_nRadius;
    std::vector<float> m_vValues;  // every value once, sorted: rank to value
    Plane<uint32_t> m_sRanks;
    unsigned m_nShift = 1;            // a bucket of the coarse level holds 2^m_nShift ranks
    std::vector<uint16_t> m_vFine;    // samples of the window per rank, at most 63 * 63
    std::vector<uint16_t> m_vCoarse;  // per bucket
    std::size_t m_iBucket = 0;        // bucket of the median
    int m_nBelow = 0;                 // samples of the window in the buckets before m_iBucket
};

/// Box by column sums that slide down and a row sum that slides across. A sum stays below 63 * 63 * 2^40 < 2^52, so
/// it is exact as an integer and as a double.
void box(Plane<float>& rPlane, unsigned nWindowRadius) {
    constexpr double UNIT = 16777216.0;  // 2^24: every float from 1 DN on is a whole number of units
    const auto nRadius = static_cast<std::ptrdiff_t>(nWindowRadius);
    const auto nSide = static_cast<double>(2 * nRadius + 1);
    Plane<int64_t> sUnits{rPlane.nWidth, rPlane.nHeight, std::vector<int64_t>(rPlane.vSamples.size())};
    for (std::size_t i = 0; i < rPlane.vSamples.size(); ++i)
        sUnits.vSamples[i] = std::llround(static_cast<double>(rPlane.vSamples[i]) * UNIT);

    Plane<int64_t> sColumns{rPlane.nWidth, 1, std::vector<int64_t>(rPlane.nWidth)};
    const auto addRow = [&](std::ptrdiff_t iY, int64_t iBy) {
        const int64_t* pRow = &sUnits.vSamples[Plane<int64_t>::inside(iY, sUnits.nHeight) * sUnits.nWidth];
        for (std::size_t iX = 0; iX < sUnits.nWidth; ++iX) sColumns.vSamples[iX] += iBy * pRow[iX];
    };
    for (std::ptrdiff_t iY = -nRadius; iY < nRadius; ++iY) addRow(iY, 1);
    for (std::size_t iY = 0; iY < rPlane.nHeight; ++iY) {
        addRow(static_cast<std::ptrdiff_t>(iY) + nRadius, 1);
        int64_t iSum = 0;
        for (std::ptrdiff_t i = -nRadius; i < nRadius; ++i) iSum += sColumns.at(i, 0);
        for (std::size_t iX = 0; iX < rPlane.nWidth; ++iX) {
            iSum += sColumns.at(static_cast<std::ptrdiff_t>(iX) + nRadius, 0);
            rPlane.vSamples[iY * rPlane.nWidth + iX] =
                static_cast<float>(static_cast<double>(iSum) / (UNIT * nSide * nSide));
            iSum -= sColumns.at(static_cast<std::ptrdiff_t>(iX) - nRadius, 0);
        }
        addRow(static_cast<std::ptrdiff_t>(iY) - nRadius, -1);
    }
}

/// Where the samples of one colour lie in an image.
struct Site {
    std::size_t iFirst, nStepX, nStepY, nWidth, nHeight;
};

std::vector<Site> sitesOf(const ImageLayout& rLayout) {
    const auto nWidth = static_cast<std::size_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    std::vector<Site> vSites;
    if (rLayout.pFormat->isCfa()) {
        for (std::size_t i = 0; i < 4; ++i)
            vSites.push_back(
                {(i / 2) * nWidth + i % 2, 2, 2 * nWidth, (nWidth + 1 - i % 2) / 2, (nHeight + 1 - i / 2) / 2});
        return vSites;
    }
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t i = 0; i < nChannels; ++i) vSites.push_back({i, nChannels, nChannels * nWidth, nWidth, nHeight});
    return vSites;
}

}  // namespace

void filterReference(const ImageLayout& rLayout, const FilterRadii& rRadii, std::vector<float>& rSamples) {
    if (rRadii.nMedian == 0 && rRadii.nBox == 0)
        return;
    for (const Site& rSite : sitesOf(rLayout)) {
        if (rSite.nWidth == 0 || rSite.nHeight == 0)
            continue;
        Plane<float> sPlane{rSite.nWidth, rSite.nHeight, std::vector<float>(rSite.nWidth * rSite.nHeight)};
        const auto forEach = [&](auto fnSample) {
            for (std::size_t iY = 0; iY < rSite.nHeight; ++iY) {
                for (std::size_t iX = 0; iX < rSite.nWidth; ++iX)
                    fnSample(sPlane.vSamples[iY * rSite.nWidth + iX],
                             rSamples[rSite.iFirst + iY * rSite.nStepY + iX * rSite.nStepX]);
            }
        };
        forEach([](float& rInPlane, const float& rInImage) { rInPlane = rInImage; });
        if (rRadii.nMedian != 0)
            CMedian(sPlane, rRadii.nMedian).run();
        if (rRadii.nBox != 0)
            box(sPlane, rRadii.nBox);
        forEach([](const float& rInPlane, float& rInImage) { rInImage = rInPlane; });
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
