// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Rows on their way from a plane of floats to a filter and back. Compiled for each target of the including file.

#if defined(XAPEL2_PLANE_ROWS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef XAPEL2_PLANE_ROWS_INL
#undef XAPEL2_PLANE_ROWS_INL
#else
#define XAPEL2_PLANE_ROWS_INL
#endif

#include <algorithm>
#include <cstring>
#include <vector>

#include "hwy/highway.h"
#include "standin/processor/filters/PlaneFilter.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Floats to the numbers that a filter works with: false where one is none of these.
inline bool fromFloats(const float* pFloats, std::size_t nSamples, uint16_t* pTo) {
    const hn::ScalableTag<float> d;
    const hn::Rebind<int32_t, decltype(d)> di;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    auto vDifferences = hn::Zero(di);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= nSamples; i += hn::Lanes(d)) {
        const auto v = hn::LoadU(d, pFloats + i);
        const auto vWhole = hn::ConvertTo(di, v);
        vDifferences = hn::Or(vDifferences, hn::BitCast(di, hn::Sub(hn::ConvertTo(d, vWhole), v)));
        hn::StoreU(hn::DemoteTo(d16, vWhole), d16, pTo + i);
    }
    bool bWhole = hn::AllTrue(di, hn::Eq(vDifferences, hn::Zero(di)));
    for (; i < nSamples; ++i) {
        pTo[i] = static_cast<uint16_t>(pFloats[i]);
        bWhole = bWhole && static_cast<float>(pTo[i]) == pFloats[i];
    }
    return bWhole;
}
/// Floats as they are, or as the integers that their bits are.
template <class T>
bool fromFloats(const float* pFloats, std::size_t nSamples, T* pTo) {
    static_assert(sizeof(T) == sizeof(float));
    std::memcpy(pTo, pFloats, nSamples * sizeof(T));
    return true;
}

inline void toFloats(const uint16_t* pFrom, std::size_t nSamples, float* pFloats) {
    const hn::ScalableTag<float> d;
    const hn::Rebind<int32_t, decltype(d)> di;
    const hn::Rebind<uint16_t, decltype(d)> d16;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= nSamples; i += hn::Lanes(d)) {
        hn::StoreU(hn::ConvertTo(d, hn::PromoteTo(di, hn::LoadU(d16, pFrom + i))), d, pFloats + i);
    }
    for (; i < nSamples; ++i) {
        pFloats[i] = static_cast<float>(pFrom[i]);
    }
}
template <class T>
void toFloats(const T* pFrom, std::size_t nSamples, float* pFloats) {
    std::memcpy(pFloats, pFrom, nSamples * sizeof(T));
}

/// The rows of a plane that a filter of radius R works on, each with the border continued by R samples on both sides,
/// as numbers of type T. Row i is row i - R of the plane, or the border row that is nearest to it. The last 2R + 2 rows
/// are held, so that rows of the result can take the place of those in the plane that have been fetched.
template <class T>
class CPlaneRows {
public:
    CPlaneRows(const Plane& rPlane, unsigned nRadius)
        : m_plane(rPlane),
          m_nRadius(nRadius),
          m_nRows(std::size_t{2} * nRadius + 2),
          m_nStride(width() + 128 / sizeof(T)),
          m_vecRows(m_nRows * m_nStride),
          m_vecFloats(rPlane.nWidth) {}
    /// The same rows as other numbers.
    explicit CPlaneRows(const CPlaneRows<uint16_t>& r) : CPlaneRows(r.plane(), r.radius()) {
        std::vector<float> vecFloats(width());
        for (m_nFetched = r.fetched(); m_nFetched != r.fetched() + m_nRows; ++m_nFetched) {
            toFloats(r.row(m_nFetched), width(), vecFloats.data());
            fromFloats(vecFloats.data(), width(), place(m_nFetched));
        }
        m_nFetched = r.fetched();
    }

    const Plane& plane() const { return m_plane; }
    unsigned radius() const { return m_nRadius; }
    std::size_t fetched() const { return m_nFetched; }
    /// Of a row with its border.
    std::size_t width() const { return m_plane.nWidth + std::size_t{2} * m_nRadius; }

    /// Fetches the rows before row iEnd. False where one has a sample that is no T; that row has not been fetched.
    bool fetch(std::size_t iEnd) {
        for (; m_nFetched < iEnd; ++m_nFetched) {
            const std::size_t iRow =
                std::min(std::max<std::size_t>(m_nFetched, m_nRadius) - m_nRadius, m_plane.nHeight - 1);
            const float* pFrom = m_plane.pFirst + iRow * m_plane.nStepY;
            if (m_plane.nStepX != 1) {
                for (std::size_t i = 0; i < m_plane.nWidth; ++i) {
                    m_vecFloats[i] = pFrom[i * m_plane.nStepX];
                }
                pFrom = m_vecFloats.data();
            }
            T* const pRow = place(m_nFetched);
            T* const pInside = pRow + m_nRadius;
            if (!fromFloats(pFrom, m_plane.nWidth, pInside)) {
                return false;
            }
            std::fill_n(pRow, m_nRadius, pInside[0]);
            std::fill_n(pInside + m_plane.nWidth, m_nRadius, pInside[m_plane.nWidth - 1]);
        }
        return true;
    }
    /// One of the last 2R + 2 rows that were fetched, from its border's first sample on, with room for a vector behind.
    const T* row(std::size_t iRow) const { return m_vecRows.data() + iRow % m_nRows * m_nStride; }

    /// Writes samples of the result to row iRow of the plane.
    template <class TOut>
    void write(std::size_t iRow, std::size_t iColumn, const TOut* pFrom, std::size_t nSamples) {
        float* const pTo = m_plane.pFirst + iRow * m_plane.nStepY + iColumn * m_plane.nStepX;
        if (m_plane.nStepX == 1) {
            return toFloats(pFrom, nSamples, pTo);
        }
        toFloats(pFrom, nSamples, m_vecFloats.data());
        for (std::size_t i = 0; i < nSamples; ++i) {
            pTo[i * m_plane.nStepX] = m_vecFloats[i];
        }
    }

private:
    T* place(std::size_t iRow) { return m_vecRows.data() + iRow % m_nRows * m_nStride; }

    Plane m_plane;
    unsigned m_nRadius;
    std::size_t m_nRows;
    std::size_t m_nStride;
    std::size_t m_nFetched = 0;
    std::vector<T> m_vecRows;
    std::vector<float> m_vecFloats;  // a row of a plane whose samples do not lie side by side
};

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#endif  // XAPEL2_PLANE_ROWS_INL
