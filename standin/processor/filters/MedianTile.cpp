// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of the windows of a tile by histograms.
//
// After Perreault and Hebert, "Median filtering in constant time", IEEE Transactions on Image Processing 16(9), 2007:
// every column of the tile has a histogram of the 2R+1 samples around the present row. From row to row a sample enters
// each and one leaves it; from pixel to pixel the histogram of a column enters that of the window and one leaves it.
// What differs here:
//
// - Keys have up to 16 bits, so there are three levels. The upper 5 bits choose a bin of the first level; each of its
//   bins is a bucket of the second, with bins by the next 5 bits, and each of those one of the third, by the lower 6.
// - Where keys are ranks, no two the same, the third level needs no histogram: a bucket of 64 keys is 64 samples whose
//   places are known. Those that lie in the window are found by comparing their places with its sides.
// - The bins of a window are kept for the buckets that medians were found in. A bucket that comes up again is brought
// up
//   to date by the columns in between, or made anew from all, whichever is less.
// - Histograms are cumulative within a bucket: a bin counts the samples of its own and all lower keys of the bucket. So
//   the bin of the median is the number of bins that count too few, found by comparing the bins as they are computed.
// - A column has at most 63 samples, its bins are bytes.

#include "standin/processor/filters/MedianTile.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "standin/pixels/PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/filters/MedianTile.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t SIDE_MAX = 63;

/// A level whose buckets have 2^BITS bins and hold keys that agree down to bit BITS + LOWER_BITS.
template <unsigned BITS, unsigned LOWER_BITS>
class CLevel {
public:
    static constexpr std::size_t BINS = std::size_t{1} << BITS;

    CLevel(TileMemory::Level& rMemory, const Tile& rTile, std::size_t nSide)
        : m_nSide(nSide), m_nColumns(rTile.nColumns) {
        const std::size_t nBuckets = bucket(rTile.uLargest) + 1;
        const auto enlarge = [](auto& r, std::size_t n) { r.resize(std::max(r.size(), n)); };
        enlarge(rMemory.vColumns, nBuckets * m_nColumns * BINS / sizeof(CacheLine) + 1);
        enlarge(rMemory.vWindow, nBuckets * BINS * sizeof(int16_t) / sizeof(CacheLine));
        rMemory.vMadeAt.assign(nBuckets, 0);
        m_pColumns = rMemory.vColumns.data()->aBytes;
        m_pWindow = reinterpret_cast<int16_t*>(rMemory.vWindow.data()->aBytes);
        m_pMadeAt = rMemory.vMadeAt.data();
    }

    static std::size_t bucket(std::size_t uKey) { return uKey >> (BITS + LOWER_BITS); }
    static std::size_t bin(std::size_t uKey) { return uKey >> LOWER_BITS & (BINS - 1); }

    static void beginRow(std::size_t) {}
    HWY_INLINE void enter(std::size_t iColumn, std::size_t uKey) {
        change(column(bucket(uKey), iColumn), steps(bin(uKey)), steps(BINS));
    }
    HWY_INLINE void leave(std::size_t iColumn, std::size_t uKey) {
        change(column(bucket(uKey), iColumn), steps(BINS), steps(bin(uKey)));
    }

    /// The bin that the nSmaller + 1-st smallest key of a bucket lies in.
    /// @param[in] iFirst  first column of the window.
    /// @param[in] uAt     grows by 1 from column to column and by more than SIDE_MAX from row to row.
    HWY_INLINE std::size_t find(std::size_t iBucket, std::size_t iFirst, uint32_t uAt, std::size_t nSmaller) {
        int16_t* const pWindow = m_pWindow + iBucket * BINS;
        const std::size_t nBehind = uAt - std::exchange(m_pMadeAt[iBucket], uAt);
        if (2 * nBehind >= m_nSide)
            return build(pWindow, column(iBucket, iFirst), nSmaller);
        std::size_t iBin = 0;
        for (std::size_t i = iFirst - nBehind; i < iFirst; ++i)
            iBin = slide(pWindow, column(iBucket, i + m_nSide), column(iBucket, i), nSmaller);
        return iBin;
    }
    /// Samples of the window in the bucket's bins before iBin.
    std::size_t below(std::size_t iBucket, std::size_t iBin) const {
        return iBin == 0 ? 0 : static_cast<std::size_t>(m_pWindow[iBucket * BINS + iBin - 1]);
    }

private:
    using D16 = hn::CappedTag<int16_t, BINS>;
    using D8 = hn::Rebind<uint8_t, D16>;

    uint8_t* column(std::size_t iBucket, std::size_t iColumn) {
        return m_pColumns + (iBucket * m_nColumns + iColumn) * BINS;
    }

    /// What a sample adds to the bins: 1 from its own on. Nothing for bin BINS.
    static const uint8_t* steps(std::size_t iBin) {
        struct Steps {
            uint8_t aBytes[2 * BINS];
        };
        static constexpr Steps STEPS = [] {
            Steps s = {};
            for (std::size_t i = BINS; i < 2 * BINS; ++i) s.aBytes[i] = 1;
            return s;
        }();
        return STEPS.aBytes + BINS - iBin;
    }
    static HWY_INLINE void change(uint8_t* pBins, const uint8_t* pMore, const uint8_t* pLess) {
        const hn::CappedTag<uint8_t, BINS> d;
        for (std::size_t i = 0; i < BINS; i += hn::Lanes(d)) {
            const auto vChange = hn::Sub(hn::LoadU(d, pMore + i), hn::LoadU(d, pLess + i));
            hn::Store(hn::Add(hn::Load(d, pBins + i), vChange), d, pBins + i);
        }
    }

    /// Takes one column into the window and another out of it.
    static HWY_INLINE std::size_t slide(int16_t* pWindow, const uint8_t* pEnters, const uint8_t* pLeaves,
                                        std::size_t nSmaller) {
        const D16 d;
        std::size_t nBins = 0;
        for (std::size_t i = 0; i < BINS; i += hn::Lanes(d)) {
            const auto vEnters = hn::PromoteTo(d, hn::LoadU(D8(), pEnters + i));
            const auto vLeaves = hn::PromoteTo(d, hn::LoadU(D8(), pLeaves + i));
            const auto v = hn::Add(hn::Load(d, pWindow + i), hn::Sub(vEnters, vLeaves));
            hn::Store(v, d, pWindow + i);
            nBins += countFew(v, nSmaller);
        }
        return nBins;
    }
    /// Makes the window's bins from the columns.
    HWY_INLINE std::size_t build(int16_t* pWindow, const uint8_t* pColumns, std::size_t nSmaller) const {
        const D16 d;
        std::size_t nBins = 0;
        for (std::size_t i = 0; i < BINS; i += hn::Lanes(d)) {
            auto v = hn::Zero(d);
            for (std::size_t k = 0; k < m_nSide; ++k)
                v = hn::Add(v, hn::PromoteTo(d, hn::LoadU(D8(), pColumns + k * BINS + i)));
            hn::Store(v, d, pWindow + i);
            nBins += countFew(v, nSmaller);
        }
        return nBins;
    }
    static HWY_INLINE std::size_t countFew(hn::Vec<D16> v, std::size_t nSmaller) {
        const D16 d;
        return hn::CountTrue(d, hn::Lt(v, hn::Set(d, static_cast<int16_t>(nSmaller + 1))));
    }

    std::size_t m_nSide;  // columns of a window
    std::size_t m_nColumns;
    uint8_t* m_pColumns = nullptr;
    int16_t* m_pWindow = nullptr;
    uint32_t* m_pMadeAt = nullptr;  // uAt of the bins of the window, by bucket
};

/// The third level for ranks.
class CPlaces {
public:
    static constexpr std::size_t BINS = Tile::PLACES_AT_ONCE;

    CPlaces(TileMemory::Level&, const Tile& rTile, std::size_t nSide) : m_rTile(rTile), m_nSide(nSide) {}

    void beginRow(std::size_t iRow) { m_iRow = iRow; }
    void enter(std::size_t, std::size_t) {}
    void leave(std::size_t, std::size_t) {}

    std::size_t find(std::size_t iBucket, std::size_t iFirst, uint32_t, std::size_t nSmaller) const {
        uint64_t uInWindow = inWindow(iBucket * BINS, iFirst);
        for (; nSmaller != 0; --nSmaller) uInWindow &= uInWindow - 1;
        return hwy::Num0BitsBelowLS1Bit_Nonzero64(uInWindow);
    }

private:
    /// Which of the samples from uRank on lie in the window that begins at the column.
    HWY_INLINE uint64_t inWindow(std::size_t uRank, std::size_t iColumn) const {
        const hn::CappedTag<uint8_t, BINS> d;
        const auto vSide = hn::Set(d, static_cast<uint8_t>(m_nSide));
        const auto vColumn = hn::Set(d, static_cast<uint8_t>(iColumn));
        const auto vRow = hn::Set(d, static_cast<uint8_t>(m_iRow));
        uint64_t uBits = 0;
        for (std::size_t i = 0; i < BINS; i += hn::Lanes(d)) {
            // What lies before the window wraps around and is at least as far away as what lies behind it.
            const auto vX = hn::Sub(hn::LoadU(d, &m_rTile.vColumnOf[uRank + i]), vColumn);
            const auto vY = hn::Sub(hn::LoadU(d, &m_rTile.vRowOf[uRank + i]), vRow);
            uint8_t aBytes[8] = {};
            hn::StoreMaskBits(d, hn::And(hn::Lt(vX, vSide), hn::Lt(vY, vSide)), aBytes);
            uint64_t uLanes = 0;
            std::memcpy(&uLanes, aBytes, sizeof uLanes);
            uBits |= uLanes << i;
        }
        return uBits;
    }

    const Tile& m_rTile;
    std::size_t m_nSide;
    std::size_t m_iRow = 0;  // first row of the window
};

template <class THIRD>
class CHistograms {
public:
    CHistograms(const Tile& rTile, unsigned nRadius, TileMemory& rMemory)
        : m_rTile(rTile),
          m_nSide(2 * nRadius + 1),
          m_oFirst(rMemory.aLevels[0], rTile, m_nSide),
          m_oSecond(rMemory.aLevels[1], rTile, m_nSide),
          m_oThird(rMemory.aLevels[2], rTile, m_nSide) {}

    void run(uint16_t* pOut) {
        for (std::size_t i = 0; i < m_rTile.nRows; ++i) {
            if (i >= m_nSide)
                leave(i - m_nSide);
            enter(i);
            if (i + 1 >= m_nSide)
                pOut = findMedians(i + 1 - m_nSide, pOut);
        }
        // Leaves the columns empty for the next tile.
        for (std::size_t i = m_rTile.nRows - m_nSide; i < m_rTile.nRows; ++i) leave(i);
    }

private:
    void enter(std::size_t iRow) {
        const uint16_t* const pKeys = m_rTile.vKeys.data() + iRow * m_rTile.nColumns;
        for (std::size_t i = 0; i < m_rTile.nColumns; ++i) {
            m_oFirst.enter(i, pKeys[i]);
            m_oSecond.enter(i, pKeys[i]);
            m_oThird.enter(i, pKeys[i]);
        }
    }
    void leave(std::size_t iRow) {
        const uint16_t* const pKeys = m_rTile.vKeys.data() + iRow * m_rTile.nColumns;
        for (std::size_t i = 0; i < m_rTile.nColumns; ++i) {
            m_oFirst.leave(i, pKeys[i]);
            m_oSecond.leave(i, pKeys[i]);
            m_oThird.leave(i, pKeys[i]);
        }
    }

    uint16_t* findMedians(std::size_t iRow, uint16_t* pOut) {
        m_oThird.beginRow(iRow);
        m_uAt += 2 * SIDE_MAX;
        for (std::size_t i = 0; i + m_nSide <= m_rTile.nColumns; ++i, ++m_uAt) {
            std::size_t nSmaller = m_nSide * m_nSide / 2;  // samples of the window before its median
            const std::size_t iFirst = m_oFirst.find(0, i, m_uAt, nSmaller);
            nSmaller -= m_oFirst.below(0, iFirst);
            const std::size_t iSecond = m_oSecond.find(iFirst, i, m_uAt, nSmaller);
            nSmaller -= m_oSecond.below(iFirst, iSecond);
            const std::size_t iBucket = iFirst * m_oSecond.BINS + iSecond;
            const std::size_t iThird = m_oThird.find(iBucket, i, m_uAt, nSmaller);
            *pOut++ = static_cast<uint16_t>(iBucket * m_oThird.BINS + iThird);
        }
        return pOut;
    }

    const Tile& m_rTile;
    std::size_t m_nSide;
    uint32_t m_uAt = 0;
    CLevel<5, 11> m_oFirst;
    CLevel<5, 6> m_oSecond;
    THIRD m_oThird;
};

void filterTile(const Tile& rTile, unsigned nRadius, TileMemory& rMemory, uint16_t* pOut) {
    if (rTile.vColumnOf.empty())
        CHistograms<CLevel<6, 0>>(rTile, nRadius, rMemory).run(pOut);
    else
        CHistograms<CPlaces>(rTile, nRadius, rMemory).run(pOut);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(filterTile);

void medianOfTile(const Tile& rTile, unsigned nRadius, TileMemory& rMemory, uint16_t* pOut) {
    HWY_DYNAMIC_DISPATCH(filterTile)(rTile, nRadius, rMemory, pOut);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
