// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Box filter of a plane: sums of columns that slide down, differences of their running sum along the row.
//
// The work for a pixel does not depend on the radius. All sums are integers that wrap, so nothing drifts and every
// target has the same result: 16-bit samples are summed in 32 bits (63 * 63 * 65535 < 2^28), floats in 64 bits as whole
// numbers of 2^-24 DN, the unit of all floats from 1 DN on (63 * 63 * 65535 * 2^24 < 2^52).

#include <algorithm>
#include <vector>

#include "standin/processor/filters/PlaneFilter.h"

#include "standin/pixels/PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/filters/PlaneBox.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
// For each target once more.
#include "standin/processor/filters/PlaneRows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

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
    CBox(const Plane& rPlane, unsigned nRadius)
        : m_oRows(rPlane, nRadius),
          m_nSide(std::size_t{2} * nRadius + 1),
          m_vecColumns(m_oRows.width()),
          m_vecRunning(m_oRows.width() + 1),
          m_vecMeans(rPlane.nWidth) {}
    /// Goes on where one for whole numbers has come to another.
    explicit CBox(const CBox<uint16_t, uint32_t>& r)
        : m_oRows(r.m_oRows),
          m_nSide(r.m_nSide),
          m_vecColumns(m_oRows.width()),
          m_vecRunning(m_oRows.width() + 1),
          m_vecMeans(m_oRows.plane().nWidth) {
        std::transform(r.m_vecColumns.begin(), r.m_vecColumns.end(), m_vecColumns.begin(),
                       [](uint32_t uSum) { return S{uSum} * static_cast<S>(UNITS); });
    }

    /// Filters from row iY of the plane on. Returns its height, or the row whose windows have a sample that is no T.
    std::size_t run(std::size_t iY) {
        const Plane& rPlane = m_oRows.plane();
        const std::vector<T> vecNone(m_oRows.width());
        for (; iY < rPlane.nHeight && m_oRows.fetch(iY + m_nSide); ++iY) {
            for (std::size_t i = 0; i + 1 < m_nSide && iY == 0; ++i) {
                slide(m_oRows.row(i), vecNone.data());
            }
            slide(m_oRows.row(iY + m_nSide - 1), iY == 0 ? vecNone.data() : m_oRows.row(iY - 1));
            accumulate();
            float* const pMeans = rPlane.nStepX == 1 ? rPlane.pFirst + iY * rPlane.nStepY : m_vecMeans.data();
            const std::size_t iX = store(hn::Rebind<S, hn::ScalableTag<double>>(), 0, pMeans);
            store(hn::Rebind<S, hn::CappedTag<double, 1>>(), iX, pMeans);
            if (rPlane.nStepX != 1) {
                m_oRows.write(iY, 0, pMeans, rPlane.nWidth);
            }
        }
        return iY;
    }

private:
    friend class CBox<float, uint64_t>;

    /// Takes a row into the sums of the columns and another out of them.
    void slide(const T* pEnters, const T* pLeaves) {
        const std::size_t i = slide(hn::ScalableTag<S>(), 0, pEnters, pLeaves);
        slide(hn::CappedTag<S, 1>(), i, pEnters, pLeaves);
    }
    template <class D>
    std::size_t slide(D d, std::size_t i, const T* pEnters, const T* pLeaves) {
        S* const pSums = m_vecColumns.data();
        for (; i + hn::Lanes(d) <= m_vecColumns.size(); i += hn::Lanes(d)) {
            const auto vChange = hn::Sub(loadUnits(d, pEnters + i), loadUnits(d, pLeaves + i));
            hn::StoreU(hn::Add(hn::LoadU(d, pSums + i), vChange), d, pSums + i);
        }
        return i;
    }

    /// Running sums of the column sums, from 0 on.
    void accumulate() {
        std::size_t i = 0;
        S* const pRunning = m_vecRunning.data() + 1;
#if HWY_TARGET != HWY_SCALAR
        const hn::FixedTag<S, 16 / sizeof(S)> d;
        auto vBefore = hn::Zero(d);
        for (; i + hn::Lanes(d) <= m_vecColumns.size(); i += hn::Lanes(d)) {
            auto v = hn::LoadU(d, m_vecColumns.data() + i);
            v = hn::Add(v, hn::ShiftLeftLanes<1>(d, v));
            if constexpr (sizeof(S) == 4) {
                v = hn::Add(v, hn::ShiftLeftLanes<2>(d, v));
            }
            hn::StoreU(hn::Add(v, vBefore), d, pRunning + i);
            vBefore = hn::Add(vBefore, hn::Broadcast<16 / sizeof(S) - 1>(v));
        }
#endif
        for (; i < m_vecColumns.size(); ++i) {
            pRunning[i] = static_cast<S>(m_vecRunning[i] + m_vecColumns[i]);
        }
    }

    template <class D>
    std::size_t store(D d, std::size_t i, float* pOut) const {
        const double dSide = static_cast<double>(m_nSide);
        const S* const p = m_vecRunning.data();
        for (; i + hn::Lanes(d) <= m_vecMeans.size(); i += hn::Lanes(d)) {
            storeMean(d, p + i + m_nSide, p + i, dSide * dSide, pOut + i);
        }
        return i;
    }

    CPlaneRows<T> m_oRows;
    std::size_t m_nSide;          // of a window
    std::vector<S> m_vecColumns;  // sums over the rows of the window, of the columns with the border
    std::vector<S> m_vecRunning;  // sums of the columns before each
    std::vector<float> m_vecMeans;
};

void filterBox(const Plane& rPlane, unsigned nRadius) {
    CBox<uint16_t, uint32_t> oWhole(rPlane, nRadius);
    const std::size_t iY = oWhole.run(0);
    if (iY != rPlane.nHeight) {
        CBox<float, uint64_t>(oWhole).run(iY);
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

HWY_EXPORT(filterBox);

void boxFilter(const Plane& rPlane, unsigned nRadius) {
    HWY_DYNAMIC_DISPATCH(filterBox)(rPlane, nRadius);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
