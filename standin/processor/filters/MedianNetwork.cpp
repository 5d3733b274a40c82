// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of small windows by networks of minima and maxima, the lanes of a vector along the row.
//
// A network takes the minimum and the maximum of two samples, over and over, in an order that does not depend on the
// samples; so one instruction works for as many pixels as a vector has lanes. How it is made, for windows of K = 2R+1:
//
// 1. Two rows of the result are made at once. Their windows share the 2R rows in the middle, the core; each has one row
//    of its own besides. The core is paid for once.
// 2. The core's columns are sorted, then merged: pairs of columns, where it pays pairs of pairs, then the whole core.
//    As the lanes lie along the row, the sorted column of a neighbour, or pair, is the same list loaded from another
//    place. So it is made once, kept in a buffer and used by all windows that hold it.
// 3. Merging is Batcher's odd-even merge (Knuth, The Art of Computer Programming 3, 5.3.4), for any two lengths.
// 4. Of K * K samples the K * K / 2 + 1 smallest and as many of the largest include the median. The core lacks the K
//    samples of the row, so the median of the window lies between the core's ranks K * K / 2 - K and K * K / 2. A
//    sample that has too many others of its list below or above it for that is dropped from the list, and what only
//    served to find it is never computed: the compiler leaves out what has no use.
// 5. The K + 1 ranks that are left of the core and the K sorted samples of the row have 2K + 1 samples, whose median is
//    the smallest of max(core[i], row[K - 1 - i]) and core[K].
//
// Floats that are not negative have the order of the integers that their bits are, and are filtered as such: processors
// take the minima of integers at least as fast.
//
// Networks of this kind: Adams, "Fast median filters using separable sorting networks", ACM Transactions on Graphics
// 40(4), 2021.

#include "standin/processor/filters/PlaneFilter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "standin/pixels/PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/filters/MedianNetwork.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"
// For each target once more.
#include "standin/processor/filters/PlaneRows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

// ---- Lists of N samples in ascending order; each vector holds one place of the list for every lane's pixel

template <class V, unsigned N>
struct List {
    V v[N];
};
template <class V>
struct List<V, 0> {};

/// COUNT places of a list, every STEP-th from FIRST on.
template <unsigned FIRST, unsigned STEP, unsigned COUNT, class V, unsigned N, std::size_t... I>
HWY_INLINE List<V, COUNT> pick(const List<V, N>& r, std::index_sequence<I...>) {
    return {{r.v[FIRST + STEP * I]...}};
}
template <unsigned FIRST, unsigned STEP, unsigned COUNT, class V, unsigned N>
HWY_INLINE List<V, COUNT> pick(const List<V, N>& r) {
    if constexpr (COUNT == 0) {
        return {};
    } else {
        return pick<FIRST, STEP, COUNT>(r, std::make_index_sequence<COUNT>());
    }
}

/// Place I of the merged list, where the even places of both lists are merged already, and the odd ones.
template <unsigned I, class V, unsigned NEVEN, unsigned NODD>
HWY_INLINE V weave(const List<V, NEVEN>& rEven, const List<V, NODD>& rOdd) {
    constexpr unsigned J = I / 2;
    if constexpr (I % 2 == 0) {
        if constexpr (J >= 1 && J <= NODD) {
            return hn::Max(rOdd.v[J - 1], rEven.v[J]);
        } else {
            return rEven.v[J];
        }
    } else {
        if constexpr (J < NODD && J + 1 < NEVEN) {
            return hn::Min(rOdd.v[J], rEven.v[J + 1]);
        } else if constexpr (J < NODD) {
            return rOdd.v[J];
        } else {
            return rEven.v[J + 1];
        }
    }
}
template <class V, unsigned NEVEN, unsigned NODD, std::size_t... I>
HWY_INLINE List<V, NEVEN + NODD> weave(const List<V, NEVEN>& rEven, const List<V, NODD>& rOdd,
                                       std::index_sequence<I...>) {
    return {{weave<I>(rEven, rOdd)...}};
}

template <class V, unsigned N, unsigned M>
HWY_INLINE List<V, N + M> merge(const List<V, N>& a, const List<V, M>& b) {
    if constexpr (N == 0) {
        return b;
    } else if constexpr (M == 0) {
        return a;
    } else if constexpr (N == 1 && M == 1) {
        return {{hn::Min(a.v[0], b.v[0]), hn::Max(a.v[0], b.v[0])}};
    } else {
        return weave(merge(pick<0, 2, (N + 1) / 2>(a), pick<0, 2, (M + 1) / 2>(b)),
                     merge(pick<1, 2, N / 2>(a), pick<1, 2, M / 2>(b)), std::make_index_sequence<N + M>());
    }
}

template <class V, unsigned N>
HWY_INLINE List<V, N> sort(const List<V, N>& r) {
    if constexpr (N == 1) {
        return r;
    } else {
        return merge(sort(pick<0, 1, N / 2>(r)), sort(pick<N / 2, 1, N - N / 2>(r)));
    }
}

// ---- Parts of the core, of which only some places are of use

/// The core of windows of radius R.
template <unsigned R>
struct Core {
    static constexpr unsigned K = 2 * R + 1;  // side of a window
    static constexpr unsigned SIZE = K * (K - 1);
    static constexpr unsigned LAST = K * K / 2;  // ranks that can be the median of a window
    static constexpr unsigned FIRST = LAST - K;

    /// Of nSize sorted samples of the core the first place of use: only SIZE - FIRST can be at rank FIRST or above.
    static constexpr unsigned first(unsigned nSize) { return std::max(nSize, SIZE - FIRST) - (SIZE - FIRST); }
    static constexpr unsigned count(unsigned nSize) { return std::min(nSize, LAST + 1) - first(nSize); }
};

/// The places of use of SIZE samples of the core.
template <unsigned R, class V, unsigned SIZE>
struct Part {
    List<V, Core<R>::count(SIZE)> list;
};

template <unsigned R, class V, unsigned N, unsigned M>
HWY_INLINE Part<R, V, N + M> merge(const Part<R, V, N>& a, const Part<R, V, M>& b) {
    using C = Core<R>;
    // Samples dropped below take part as if they were smaller than all others.
    return {pick<C::first(N + M) - C::first(N) - C::first(M), 1, C::count(N + M)>(merge(a.list, b.list))};
}

// ---- Buffers: place i of a list in row i, one element for each pixel of a block

// The lists of a block stay in the first cache, so blocks are shorter where lists are long.
constexpr std::size_t blockBytes(unsigned nRadius) {
    return nRadius <= 2 ? 1024 : 384;
}

template <unsigned COUNT, class D, class T, std::size_t... I>
HWY_INLINE List<hn::Vec<D>, COUNT> loadList(D d, const T* p, std::size_t nStride, std::index_sequence<I...>) {
    return {{hn::LoadU(d, p + I * nStride)...}};
}
template <unsigned COUNT, class D, class T>
HWY_INLINE List<hn::Vec<D>, COUNT> loadList(D d, const T* p, std::size_t nStride) {
    return loadList<COUNT>(d, p, nStride, std::make_index_sequence<COUNT>());
}
template <class D, class T, unsigned N, std::size_t... I>
HWY_INLINE void storeList(D d, const List<hn::Vec<D>, N>& r, T* p, std::size_t nStride, std::index_sequence<I...>) {
    (hn::StoreU(r.v[I], d, p + I * nStride), ...);
}

/// The steps for one radius and one type of sample.
template <unsigned R, class T>
class CNetwork {
public:
    static constexpr unsigned K = Core<R>::K;
    static constexpr std::size_t BLOCK = blockBytes(R) / sizeof(T);
    static constexpr bool HAS_QUADS = K >= 8;  // a window of fewer columns would use a pair of pairs once
    static constexpr unsigned COLUMN = K - 1;

    using D = hn::ScalableTag<T>;
    using V = hn::Vec<D>;

    CNetwork() : m_vecWork(STRIDE_BYTES / 64 * (COLUMN * (HAS_QUADS ? 7 : 3) + 1)) {}

    /// Medians of nPixels pixels, at most BLOCK, of two rows.
    /// @param ppRows  K + 1 rows, each from R samples left of the first pixel on, with room for a vector after the
    /// last.
    HWY_NOINLINE void run(const T* const* ppRows, std::size_t nPixels, T* pUpper, T* pLower) {
        const D d;
        const std::size_t L = hn::Lanes(d);
        for (std::size_t i = 0; i < nPixels + K - 1; i += L) {
            List<V, COLUMN> column = loadColumn(ppRows + 1, i, std::make_index_sequence<COLUMN>());
            storeList(d, sort(column), columns() + i, STRIDE, std::make_index_sequence<COLUMN>());
        }
        for (std::size_t i = 0; i < nPixels + K - 2; i += L) {
            const auto pair = merge(part<1>(i), part<1>(i + 1));
            storeList(d, pair.list, pairs() + i, STRIDE, std::make_index_sequence<std::size_t{2} * COLUMN>());
        }
        if constexpr (HAS_QUADS) {
            for (std::size_t i = 0; i < nPixels + K - 4; i += L) {
                const auto quad = merge(part<2>(i), part<2>(i + 2));
                storeList(d, quad.list, quads() + i, STRIDE, std::make_index_sequence<std::size_t{4} * COLUMN>());
            }
        }
        for (std::size_t i = 0; i < nPixels; i += L) {
            const auto middle = core<0>(i);
            const std::size_t nLeft = nPixels - i;
            storeSome(median(middle.list, sort(loadWindow(ppRows[0] + i))), pUpper + i, nLeft);
            storeSome(median(middle.list, sort(loadWindow(ppRows[K] + i))), pLower + i, nLeft);
        }
    }

private:
    // Room for the window's width and a last vector.
    static constexpr std::size_t STRIDE_BYTES = blockBytes(R) + std::size_t{3} * 64;
    static constexpr std::size_t STRIDE = STRIDE_BYTES / sizeof(T);

    T* columns() { return reinterpret_cast<T*>(m_vecWork.data()); }
    T* pairs() { return columns() + COLUMN * STRIDE; }
    T* quads() { return pairs() + std::size_t{2} * COLUMN * STRIDE; }

    template <std::size_t... I>
    static HWY_INLINE List<V, COLUMN> loadColumn(const T* const* ppRows, std::size_t i, std::index_sequence<I...>) {
        return {{hn::LoadU(D(), ppRows[I] + i)...}};
    }
    static HWY_INLINE List<V, K> loadWindow(const T* p) { return loadList<K>(D(), p, 1); }

    /// The sorted samples of NCOLUMNS columns, the first of them i columns from the block's left.
    template <unsigned NCOLUMNS>
    HWY_INLINE Part<R, V, NCOLUMNS * COLUMN> part(std::size_t i) {
        T* const pLists = NCOLUMNS == 1 ? columns() : NCOLUMNS == 2 ? pairs() : quads();
        return {loadList<NCOLUMNS * COLUMN>(D(), pLists + i, STRIDE)};
    }
    /// The sorted samples of the window's columns from column FIRST on.
    template <unsigned FIRST>
    HWY_INLINE Part<R, V, (K - FIRST) * COLUMN> core(std::size_t i) {
        constexpr unsigned LEFT = K - FIRST;
        constexpr unsigned TAKE = LEFT >= 4 && HAS_QUADS ? 4 : LEFT >= 2 ? 2 : 1;
        if constexpr (TAKE == LEFT) {
            return part<TAKE>(i + FIRST);
        } else {
            return merge(part<TAKE>(i + FIRST), core<FIRST + TAKE>(i));
        }
    }

    template <std::size_t... I>
    static HWY_INLINE V median(const List<V, K + 1>& rCore, const List<V, K>& rRow, std::index_sequence<I...>) {
        V v = rCore.v[K];
        ((v = hn::Min(v, hn::Max(rCore.v[I], rRow.v[K - 1 - I]))), ...);
        return v;
    }
    static HWY_INLINE V median(const List<V, K + 1>& rCore, const List<V, K>& rRow) {
        return median(rCore, rRow, std::make_index_sequence<K>());
    }

    static HWY_INLINE void storeSome(V v, T* p, std::size_t nLeft) {
        const D d;
        if (nLeft >= hn::Lanes(d)) {
            hn::StoreU(v, d, p);
        } else {
            HWY_ALIGN T aLanes[hn::MaxLanes(d)];
            hn::Store(v, d, aLanes);
            std::memcpy(p, aLanes, nLeft * sizeof(T));
        }
    }

    std::vector<CacheLine> m_vecWork;
};

/// Filters from row iY of the plane on. Returns its height, or the row whose windows have a sample that is no T.
template <unsigned R, class T>
std::size_t filter(CPlaneRows<T>& rRows, std::size_t iY) {
    using Network = CNetwork<R, T>;
    const Plane& rPlane = rRows.plane();
    Network oNetwork;
    std::array<T, Network::BLOCK> aUpper;
    std::array<T, Network::BLOCK> aLower;
    std::array<const T*, Network::K + 1> apRows;
    for (; iY < rPlane.nHeight && rRows.fetch(iY + apRows.size()); iY += 2) {
        for (std::size_t iX = 0; iX < rPlane.nWidth; iX += Network::BLOCK) {
            const std::size_t nPixels = std::min(Network::BLOCK, rPlane.nWidth - iX);
            for (std::size_t i = 0; i < apRows.size(); ++i) {
                apRows[i] = rRows.row(iY + i) + iX;
            }
            oNetwork.run(apRows.data(), nPixels, aUpper.data(), aLower.data());
            rRows.write(iY, iX, aUpper.data(), nPixels);
            if (iY + 1 < rPlane.nHeight) {
                rRows.write(iY + 1, iX, aLower.data(), nPixels);
            }
        }
    }
    return std::min(iY, rPlane.nHeight);
}

template <unsigned R>
void filter(const Plane& rPlane) {
    CPlaneRows<uint16_t> oWhole(rPlane, R);
    const std::size_t iY = filter<R>(oWhole, 0);
    if (iY == rPlane.nHeight) {
        return;
    }
    CPlaneRows<int32_t> oBits(oWhole);
    filter<R>(oBits, iY);
}

void filterPlane(const Plane& rPlane, unsigned nRadius) {
    switch (nRadius) {
        case 1:
            return filter<1>(rPlane);
        case 2:
            return filter<2>(rPlane);
        case 3:
            return filter<3>(rPlane);
        case 4:
            return filter<4>(rPlane);
        default:
            return filter<5>(rPlane);
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

HWY_EXPORT(filterPlane);

void medianByNetwork(const Plane& rPlane, unsigned nRadius) {
    HWY_DYNAMIC_DISPATCH(filterPlane)(rPlane, nRadius);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
