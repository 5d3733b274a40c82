// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Adds the samples of a frame to sums that are as narrow as they can be.

#include "standin/processor/references/FrameSums.h"

#include <algorithm>
#include <cstring>

#include "standin/pixels/PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/references/FrameSums.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// After so many steps of up to three vectors the lanes are emptied: a vector adds at most 4 * 255^2 or 2^16 to a
/// 32-bit lane of squares, 2^16 to one of sums, and 1 to a 16-bit lane that counts.
constexpr std::size_t STEPS = 4096;

using D16 = hn::ScalableTag<uint16_t>;
using D32 = hn::ScalableTag<uint32_t>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

/// The products of signed 16-bit samples, each lane the sum of one or two of them, at most 2^31.
HWY_INLINE V32 products(V16 vLeft, V16 vRight) {
    const hn::RebindToSigned<D16> di16;
    const hn::RebindToSigned<D32> di32;
    auto vMore = hn::Zero(di32);
    const auto vProducts =
        hn::ReorderWidenMulAccumulate(di32, hn::BitCast(di16, vLeft), hn::BitCast(di16, vRight), hn::Zero(di32), vMore);
    return hn::Add(hn::BitCast(D32(), vProducts), hn::BitCast(D32(), vMore));
}

template <class T, class D>
int64_t sumLanes(D d, hn::Vec<D> v) {
    HWY_ALIGN hn::TFromD<D> aLanes[hn::MaxLanes(d)];
    hn::Store(v, d, aLanes);
    int64_t iSum = 0;
    for (std::size_t i = 0; i < hn::Lanes(d); ++i) {
        iSum += static_cast<T>(aLanes[i]);
    }
    return iSum;
}

/// All bits of the lanes of one class, in vector iVector of a step.
HWY_INLINE V16 lanesOf(std::size_t nClasses, std::size_t iClass, std::size_t iVector) {
    const D16 d16;
    const std::size_t L = hn::Lanes(d16);
    HWY_ALIGN uint16_t aLanes[hn::MaxLanes(d16)];
    for (std::size_t i = 0; i < L; ++i) {
        aLanes[i] = (iVector * L + i) % nClasses == iClass ? 0xFFFF : 0;
    }
    return hn::Load(d16, aLanes);
}

/// Adds up one class of centred samples in lanes of 32 bits. Squares of 16-bit samples go by halves.
template <bool WIDE>
HWY_INLINE void addLanes(V16 v, V32& rSums, V32& rLow, V32& rHigh) {
    const D32 d32;
    rSums = hn::Add(rSums, products(v, hn::Set(D16(), 1)));
    const V32 vSquares = products(v, v);
    if (WIDE) {
        rLow = hn::Add(rLow, hn::And(vSquares, hn::Set(d32, 0xFFFF)));
        rHigh = hn::Add(rHigh, hn::ShiftRight<16>(vSquares));
    } else {
        rLow = hn::Add(rLow, vSquares);
    }
}

HWY_INLINE void emptyLanes(FrameFigures& rFigures, std::size_t iClass, V32 vSums, V32 vLow, V32 vHigh) {
    rFigures.aiSums[iClass] += sumLanes<int32_t>(D32(), vSums);
    rFigures.auSquares[iClass] += static_cast<uint64_t>(sumLanes<uint32_t>(D32(), vLow)) +
                                  (static_cast<uint64_t>(sumLanes<uint32_t>(D32(), vHigh)) << 16);
}

/// Loads a vector of samples and adds them to their sums. @return the samples, none above uFull.
HWY_INLINE V16 addToSums(const uint8_t* pSamples, V16 vFull, uint16_t* pSums) {
    const D16 d16;
    const hn::Rebind<uint8_t, D16> d8;
    (void)vFull;
    const V16 v = hn::PromoteTo(d16, hn::LoadU(d8, pSamples));
    hn::StoreU(hn::Add(hn::LoadU(d16, pSums), v), d16, pSums);
    return v;
}
HWY_INLINE V16 addToSums(const uint16_t* pSamples, V16 vFull, uint32_t* pSums) {
    const D16 d16;
    const D32 d32;
    const hn::Rebind<uint16_t, D32> dHalf;
    const auto vFullHalf = hn::Set(dHalf, hn::GetLane(vFull));
    for (std::size_t k = 0; k < hn::Lanes(d16); k += hn::Lanes(d32)) {
        const auto vHalf = hn::Min(hn::LoadU(dHalf, pSamples + k), vFullHalf);
        hn::StoreU(hn::Add(hn::LoadU(d32, pSums + k), hn::PromoteTo(d32, vHalf)), d32, pSums + k);
    }
    return hn::Min(hn::LoadU(d16, pSamples), vFull);
}

/// The samples of each class in turn: the last one gets what the others leave of the whole.
template <std::size_t CLASSES, class TSample, class TSum>
FrameFigures addRun(const TSample* pSamples, std::size_t nSamples, uint32_t uFull, TSum* pSums) {
    constexpr bool WIDE = sizeof(TSample) == 2;
    constexpr std::size_t VECTORS = CLASSES == 3 ? 3 : 1;
    const D16 d16;
    const D32 d32;
    const std::size_t L = hn::Lanes(d16);
    const std::size_t nStep = VECTORS * L;
    const V16 vFull = hn::Set(d16, static_cast<uint16_t>(uFull));
    const V16 vCentre = hn::Set(d16, static_cast<uint16_t>(WIDE ? FRAME_CENTRE : 0));
    const V16 vFirst0 = lanesOf(CLASSES, 0, 0), vSecond0 = lanesOf(CLASSES, 1, 0);
    const V16 vFirst1 = lanesOf(CLASSES, 0, 1), vSecond1 = lanesOf(CLASSES, 1, 1);
    const V16 vFirst2 = lanesOf(CLASSES, 0, 2), vSecond2 = lanesOf(CLASSES, 1, 2);
    FrameFigures figures;
    V16 vLargest = hn::Zero(d16);
    std::size_t i = 0;
    // A lane by itself, where there are no vectors, is of every class.
    while (nStep % CLASSES == 0 && i + nStep <= nSamples) {
        const std::size_t nEnd = i + std::min(STEPS, (nSamples - i) / nStep) * nStep;
        V32 vSums = hn::Zero(d32), vLow = vSums, vHigh = vSums;
        V32 vSumsFirst = vSums, vLowFirst = vSums, vHighFirst = vSums;
        V32 vSumsSecond = vSums, vLowSecond = vSums, vHighSecond = vSums;
        V16 vSaturated = hn::Zero(d16);
        const auto fnAdd = [&](std::size_t iFirst, V16 vFirst, V16 vSecond) HWY_ATTR {
            const V16 v = addToSums(pSamples + iFirst, vFull, pSums + iFirst);
            vSaturated = hn::Sub(vSaturated, hn::VecFromMask(d16, hn::Eq(v, vFull)));
            vLargest = hn::Max(vLargest, v);
            const V16 vCentred = hn::Xor(v, vCentre);
            addLanes<WIDE>(vCentred, vSums, vLow, vHigh);
            if (CLASSES > 1) {
                addLanes<WIDE>(hn::And(vCentred, vFirst), vSumsFirst, vLowFirst, vHighFirst);
            }
            if (CLASSES > 2) {
                addLanes<WIDE>(hn::And(vCentred, vSecond), vSumsSecond, vLowSecond, vHighSecond);
            }
        };
        for (; i < nEnd; i += nStep) {
            fnAdd(i, vFirst0, vSecond0);
            if (VECTORS > 1) {
                fnAdd(i + L, vFirst1, vSecond1);
                fnAdd(i + 2 * L, vFirst2, vSecond2);
            }
        }
        FrameFigures part;
        emptyLanes(part, CLASSES - 1, vSums, vLow, vHigh);
        if (CLASSES > 1) {
            emptyLanes(part, 0, vSumsFirst, vLowFirst, vHighFirst);
        }
        if (CLASSES > 2) {
            emptyLanes(part, 1, vSumsSecond, vLowSecond, vHighSecond);
        }
        for (std::size_t k = 0; k + 1 < CLASSES; ++k) {
            part.aiSums[CLASSES - 1] -= part.aiSums[k];
            part.auSquares[CLASSES - 1] -= part.auSquares[k];
        }
        for (std::size_t k = 0; k < CLASSES; ++k) {
            figures.aiSums[k] += part.aiSums[k];
            figures.auSquares[k] += part.auSquares[k];
        }
        // At most 3 * STEPS in a lane.
        figures.nSaturated += static_cast<uint64_t>(sumLanes<uint16_t>(d16, vSaturated));
    }
    HWY_ALIGN uint16_t aLargest[hn::MaxLanes(d16)];
    hn::Store(vLargest, d16, aLargest);
    for (std::size_t k = 0; k < L; ++k) {
        figures.uLargest = std::max<uint32_t>(figures.uLargest, aLargest[k]);
    }
    for (; i < nSamples; ++i) {
        TSample tRead = 0;
        std::memcpy(&tRead, reinterpret_cast<const uint8_t*>(pSamples) + sizeof(TSample) * i, sizeof(TSample));
        const uint32_t uSample = std::min<uint32_t>(tRead, uFull);
        const int64_t iCentred = static_cast<int64_t>(uSample) - static_cast<int64_t>(WIDE ? FRAME_CENTRE : 0);
        pSums[i] = static_cast<TSum>(pSums[i] + uSample);
        figures.aiSums[i % CLASSES] += iCentred;
        figures.auSquares[i % CLASSES] += static_cast<uint64_t>(iCentred * iCentred);
        figures.nSaturated += uSample == uFull;
        figures.uLargest = std::max(figures.uLargest, uSample);
    }
    return figures;
}

FrameFigures addU8(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums) {
    return nClasses == 1   ? addRun<1>(pSamples, nSamples, 255, pSums)
           : nClasses == 2 ? addRun<2>(pSamples, nSamples, 255, pSums)
                           : addRun<3>(pSamples, nSamples, 255, pSums);
}

FrameFigures addU16(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                    uint32_t* pSums) {
    return nClasses == 1   ? addRun<1>(pSamples, nSamples, uFull, pSums)
           : nClasses == 2 ? addRun<2>(pSamples, nSamples, uFull, pSums)
                           : addRun<3>(pSamples, nSamples, uFull, pSums);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(addU8);
HWY_EXPORT(addU16);

FrameFigures addFrame(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums) {
    return HWY_DYNAMIC_DISPATCH(addU8)(nClasses, pSamples, nSamples, pSums);
}
FrameFigures addFrame(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                      uint32_t* pSums) {
    return HWY_DYNAMIC_DISPATCH(addU16)(nClasses, pSamples, nSamples, uFull, pSums);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
