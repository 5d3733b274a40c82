// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of windows of any size by sets of ranks.
//
// The plane is filtered in tiles of at most 2^16 samples with their border. Sorting these once gives each a rank of its
// own, also among equals, so the samples of a window are a set of 2^16 bits, which stays in the nearest cache. As the
// window moves, samples leave and enter the set; the median is the bit with as many others below as above, found from
// where it was last. A set of ranks in words, searched by their counts: Suomela, "Median filtering is equivalent to
// sorting", arXiv:1406.1717, 2014.

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "hwy/contrib/sort/vqsort.h"
#include "standin/pixels/PlaneVectors.h"
#include "standin/processor/filters/PlaneFilter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/filters/MedianRanks.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

/// The ranks of the samples in a window, and the place of their median.
class CRankSet {
public:
    explicit CRankSet(std::size_t nSide) : m_nSide(nSide), m_nHalf(nSide * nSide / 2) {}

    /// Takes a row or column of the window in where it was not, and out where it was.
    template <bool ENTERS>
    HWY_INLINE void change(const uint16_t* pRanks, std::size_t nStep) {
        uint32_t nBelow = 0;
        for (std::size_t i = 0; i < m_nSide; ++i) {
            const std::size_t iRank = pRanks[i * nStep];
            m_aWords[iRank / 64] ^= uint64_t{1} << iRank % 64;
        }
        const auto uFirst = static_cast<uint32_t>(64 * m_iWord);
        for (std::size_t i = 0; i < m_nSide; ++i) {
            nBelow += pRanks[i * nStep] < uFirst;
        }
        m_nBelow = ENTERS ? m_nBelow + nBelow : m_nBelow - nBelow;
    }

    HWY_INLINE std::size_t median() {
        while (m_nBelow > m_nHalf) {
            m_nBelow -= hwy::PopCount(m_aWords[--m_iWord]);
        }
        for (std::size_t n = 0; m_nBelow + (n = hwy::PopCount(m_aWords[m_iWord])) <= m_nHalf; ++m_iWord) {
            m_nBelow += n;
        }
        uint64_t uWord = m_aWords[m_iWord];
        for (std::size_t i = m_nBelow; i != m_nHalf; ++i) {
            uWord &= uWord - 1;
        }
        return m_iWord * 64 + hwy::Num0BitsBelowLS1Bit_Nonzero64(uWord);
    }

private:
    std::size_t m_nSide, m_nHalf;
    std::size_t m_iWord = 0;   // where the median was
    std::size_t m_nBelow = 0;  // ranks in the words before it
    std::array<uint64_t, 1024> m_aWords = {};
};

/// Calls fn(column, row, rank of the median) for each window of a tile, nColumns ranks to a row. The window goes down
/// the first column of the result, up the next one and so on.
template <class F>
HWY_INLINE void forEachMedian(const uint16_t* pRanks, std::size_t nColumns, std::size_t nRows, std::size_t nSide,
                              F fn) {
    CRankSet window(nSide);
    for (std::size_t i = 0; i < nSide; ++i) {
        window.change<true>(pRanks + i * nColumns, 1);
    }
    const std::size_t iLast = nRows - nSide;
    std::size_t iY = 0;
    for (std::size_t iX = 0;; ++iX) {
        fn(iX, iY, window.median());
        for (std::size_t i = 0; i < iLast; ++i) {
            const uint16_t* const pFirst = pRanks + iY * nColumns + iX;
            const bool bDown = iX % 2 == 0;
            window.change<false>(bDown ? pFirst : pFirst + (nSide - 1) * nColumns, 1);
            window.change<true>(bDown ? pFirst + nSide * nColumns : pFirst - nColumns, 1);
            iY = bDown ? iY + 1 : iY - 1;
            fn(iX, iY, window.median());
        }
        if (iX + nSide == nColumns) {
            return;
        }
        window.change<false>(pRanks + iY * nColumns + iX, nColumns);
        window.change<true>(pRanks + iY * nColumns + iX + nSide, nColumns);
    }
}

/// The samples of a tile in order, and the ranks that they have there.
struct Ranking {
    std::vector<uint64_t> vecSorted;  // bits of a sample, which have its order, above its place in the tile
    std::vector<uint16_t> vecRanks;   // by place
};

/// Ranks nColumns x nRows samples of a plane without gaps. The first lies nBorder columns and rows before (iLeft,
/// iTop), maybe beyond the border of the plane.
void rank(const std::vector<float>& rIn, const Plane& rPlane, std::size_t iLeft, std::size_t iTop, std::size_t nBorder,
          std::size_t nColumns, std::size_t nRows, Ranking& rRanking) {
    const auto inside = [nBorder](std::size_t i, std::size_t n) {
        return std::min(std::max(i, nBorder) - nBorder, n - 1);
    };
    std::vector<uint64_t>& rSorted = rRanking.vecSorted;
    rSorted.resize(nColumns * nRows);
    rRanking.vecRanks.resize(nColumns * nRows);
    for (std::size_t iY = 0, i = 0; iY < nRows; ++iY) {
        const float* const pRow = &rIn[inside(iTop + iY, rPlane.nHeight) * rPlane.nWidth];
        for (std::size_t iX = 0; iX < nColumns; ++iX, ++i) {
            // No negative zero, whose bits are not in order.
            const float fSample = pRow[inside(iLeft + iX, rPlane.nWidth)] + 0.0F;
            uint32_t uBits = 0;
            std::memcpy(&uBits, &fSample, sizeof uBits);
            rSorted[i] = uint64_t{uBits} << 32 | i;
        }
    }
    hwy::Sorter()(rSorted.data(), rSorted.size(), hwy::SortAscending());
    for (std::size_t i = 0; i < rSorted.size(); ++i) {
        rRanking.vecRanks[rSorted[i] & 0xFFFF] = static_cast<uint16_t>(i);
    }
}

void filterByRanks(const Plane& rPlane, unsigned nRadius) {
    const std::size_t nBorder = nRadius;
    const std::size_t nTile = 256 - 2 * nBorder;
    std::vector<float> vecIn;  // tiles need what lies around them as it was
    vecIn.reserve(rPlane.nWidth * rPlane.nHeight);
    for (std::size_t iY = 0; iY < rPlane.nHeight; ++iY) {
        for (std::size_t iX = 0; iX < rPlane.nWidth; ++iX) {
            vecIn.push_back(rPlane.pFirst[iY * rPlane.nStepY + iX * rPlane.nStepX]);
        }
    }
    Ranking ranking;
    for (std::size_t iTop = 0; iTop < rPlane.nHeight; iTop += nTile) {
        for (std::size_t iLeft = 0; iLeft < rPlane.nWidth; iLeft += nTile) {
            const std::size_t nColumns = std::min(nTile, rPlane.nWidth - iLeft) + 2 * nBorder;
            const std::size_t nRows = std::min(nTile, rPlane.nHeight - iTop) + 2 * nBorder;
            rank(vecIn, rPlane, iLeft, iTop, nBorder, nColumns, nRows, ranking);
            float* const pOut = rPlane.pFirst + iTop * rPlane.nStepY + iLeft * rPlane.nStepX;
            forEachMedian(ranking.vecRanks.data(), nColumns, nRows, 2 * nBorder + 1,
                          [&](std::size_t iX, std::size_t iY, std::size_t iRank) {
                              const auto uBits = static_cast<uint32_t>(ranking.vecSorted[iRank] >> 32);
                              std::memcpy(pOut + iY * rPlane.nStepY + iX * rPlane.nStepX, &uBits, sizeof uBits);
                          });
        }
    }
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(filterByRanks);

void medianByRanks(const Plane& rPlane, unsigned nRadius) {
    HWY_DYNAMIC_DISPATCH(filterByRanks)(rPlane, nRadius);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
