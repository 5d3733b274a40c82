// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Box filter of a plane: sums of columns that slide down, differences of their running sum along the row.
//
// The work for a pixel does not depend on the radius. All sums are integers that wrap, so nothing drifts and every
// target has the same result: 16-bit samples are summed in 32 bits (63 * 63 * 65535 < 2^28), floats in 64 bits as whole
// numbers of 2^-24 DN, the unit of all floats from 1 DN on (63 * 63 * 65535 * 2^24 < 2^52).

#include <algorithm>
#include <vector>

#include "PlaneFilter.h"

#include "PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "PlaneBox.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr double UNITS = 16777216.0;             // 2^24 a DN
constexpr double INTEGERS = 4503599627370496.0;  // 2^52: doubles from here on hold an integer in their low bits

template <class D>
HWY_INLINE hn::Vec<D> loadUnits(D d, const uint16_t* p) {
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<uint16_t, D>(), p));
}
template <class D>
HWY_INLINE hn::Vec<D> loadUnits(D d, const float* p) {
    const hn::Rebind<double, D> dd;
    const auto vUnits = hn::Mul(hn::PromoteTo(dd, hn::LoadU(hn::Rebind<float, D>(), p)), hn::Set(dd, UNITS));
    const auto vBase = hn::Set(dd, INTEGERS);
    return hn::Xor(hn::BitCast(d, hn::Add(vUnits, vBase)), hn::BitCast(d, vBase));
}

/// The mean of a window of nSamples from the difference of two running sums.
///
/// The product with the rounded reciprocal gives the same float as the quotient: a sum S < 2^28 over an odd number
/// n < 2^12 is at least 1 / (2^25 n) > 2^-37 of itself away from the middle between two floats, the product at most
/// 2^-52.
template <class D>
HWY_INLINE void storeMean(D d, const uint32_t* pEnd, const uint32_t* pBegin, double dSamples, float* pOut) {
    const hn::Rebind<int32_t, D> di;
    const auto vSum = hn::BitCast(di, hn::Sub(hn::LoadU(d, pEnd), hn::LoadU(d, pBegin)));
    const hn::Rebind<double, D> dd;
    const auto vMean = hn::Mul(hn::PromoteTo(dd, vSum), hn::Set(dd, 1.0 / dSamples));
    hn::StoreU(hn::DemoteTo(hn::Rebind<float, D>(), vMean), hn::Rebind<float, D>(), pOut);
}
template <class D>
HWY_INLINE void storeMean(D d, const uint64_t* pEnd, const uint64_t* pBegin, double dSamples, float* pOut) {
    const hn::Rebind<double, D> dd;
    const auto vBase = hn::Set(dd, INTEGERS);
    const auto vSum = hn::Xor(hn::Sub(hn::LoadU(d, pEnd), hn::LoadU(d, pBegin)), hn::BitCast(d, vBase));
    const auto vMean = hn::Div(hn::Sub(hn::BitCast(dd, vSum), vBase), hn::Set(dd, UNITS * dSamples));
    hn::StoreU(hn::DemoteTo(hn::Rebind<float, D>(), vMean), hn::Rebind<float, D>(), pOut);
}

/// The filter for samples T with sums S.
template <class T, class S>
class CBox {
public:
    CBox(const PlaneSize& rSize, const T* pIn, unsigned nRadius)
        : m_sSize(rSize),
          m_pIn(pIn),
          m_nRadius(nRadius),
          m_nPadded(rSize.nWidth + 2 * m_nRadius),
          m_vColumns(m_nPadded),
          m_vRunning(m_nPadded + 1) {}

    void run(float* pOut) {
        const std::vector<T> vNone(m_sSize.nWidth);
        for (std::size_t i = 0; i <= 2 * m_nRadius; ++i) slide(row(i, m_nRadius + 1), vNone.data());
        for (std::size_t iY = 0; iY < m_sSize.nHeight; ++iY) {
            slide(row(iY + m_nRadius, 0), row(iY, m_nRadius + 1));
            std::fill_n(m_vColumns.begin(), m_nRadius, m_vColumns[m_nRadius]);
            std::fill_n(m_vColumns.end() - static_cast<std::ptrdiff_t>(m_nRadius), m_nRadius,
                        m_vColumns[m_nPadded - m_nRadius - 1]);
            accumulate();
            float* const pRow = pOut + iY * m_sSize.nWidth;
            const std::size_t iX = store(hn::Rebind<S, hn::ScalableTag<double>>(), 0, pRow);
            store(hn::Rebind<S, hn::CappedTag<double, 1>>(), iX, pRow);
        }
    }

private:
    /// Row iRow - nAbove, or the border row that is nearest to it.
    const T* row(std::size_t iRow, std::size_t nAbove) const {
        return m_pIn + std::min(std::max(iRow, nAbove) - nAbove, m_sSize.nHeight - 1) * m_sSize.nWidth;
    }

    /// Takes a row into the sums of the columns and another out of them.
    void slide(const T* pEnters, const T* pLeaves) {
        const std::size_t i = slide(hn::ScalableTag<S>(), 0, pEnters, pLeaves);
        slide(hn::CappedTag<S, 1>(), i, pEnters, pLeaves);
    }
    template <class D>
    std::size_t slide(D d, std::size_t i, const T* pEnters, const T* pLeaves) {
        S* const pSums = m_vColumns.data() + m_nRadius;
        for (; i + hn::Lanes(d) <= m_sSize.nWidth; i += hn::Lanes(d)) {
            const auto vChange = hn::Sub(loadUnits(d, pEnters + i), loadUnits(d, pLeaves + i));
            hn::StoreU(hn::Add(hn::LoadU(d, pSums + i), vChange), d, pSums + i);
        }
        return i;
    }

    /// Running sums of the column sums, from 0 on.
    void accumulate() {
        std::size_t i = 0;
        S* const pRunning = m_vRunning.data() + 1;
#if HWY_TARGET != HWY_SCALAR
        const hn::FixedTag<S, 16 / sizeof(S)> d;
        auto vBefore = hn::Zero(d);
        for (; i + hn::Lanes(d) <= m_nPadded; i += hn::Lanes(d)) {
            auto v = hn::LoadU(d, m_vColumns.data() + i);
            v = hn::Add(v, hn::ShiftLeftLanes<1>(d, v));
            if constexpr (sizeof(S) == 4)
                v = hn::Add(v, hn::ShiftLeftLanes<2>(d, v));
            hn::StoreU(hn::Add(v, vBefore), d, pRunning + i);
            vBefore = hn::Add(vBefore, hn::Broadcast<16 / sizeof(S) - 1>(v));
        }
#endif
        for (; i < m_nPadded; ++i) pRunning[i] = static_cast<S>(m_vRunning[i] + m_vColumns[i]);
    }

    template <class D>
    std::size_t store(D d, std::size_t i, float* pOut) const {
        const double dSide = static_cast<double>(2 * m_nRadius + 1);
        const S* const p = m_vRunning.data();
        for (; i + hn::Lanes(d) <= m_sSize.nWidth; i += hn::Lanes(d))
            storeMean(d, p + i + 2 * m_nRadius + 1, p + i, dSide * dSide, pOut + i);
        return i;
    }

    PlaneSize m_sSize;
    const T* m_pIn;
    std::size_t m_nRadius;
    std::size_t m_nPadded;      // columns of the plane and of its continued border
    std::vector<S> m_vColumns;  // sums over the rows of the window
    std::vector<S> m_vRunning;  // sums of the columns before each
};

void boxU16(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, float* pOut) {
    CBox<uint16_t, uint32_t>(rSize, pIn, nRadius).run(pOut);
}
void boxF32(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut) {
    CBox<float, uint64_t>(rSize, pIn, nRadius).run(pOut);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(boxU16);
HWY_EXPORT(boxF32);

void boxFilter(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, float* pOut) {
    HWY_DYNAMIC_DISPATCH(boxU16)(rSize, pIn, nRadius, pOut);
}
void boxFilter(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut) {
    HWY_DYNAMIC_DISPATCH(boxF32)(rSize, pIn, nRadius, pOut);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
