// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Adds the samples of a frame to sums that are as narrow as they can be.

#include "standin/processor/references/FrameSums.h"

#include <algorithm>
#include <cmath>
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

/// Steps between two looks at what the screen found: looking takes longer than finding.
constexpr std::size_t GROUP = 8;

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

/// What a step needs of the screen, spread over the lanes of its vectors.
template <class TSample>
struct Lanes;
template <>
struct Lanes<uint8_t> {
    // In units of the sums: 8-bit samples have at most 16 bits of them.
    HWY_ALIGN uint16_t aMost[3 * hn::MaxLanes(D16())];
    uint16_t uFactor;  // of 256
    void set(std::size_t i, float fMost) { aMost[i] = static_cast<uint16_t>(std::min(fMost, 32767.0F)); }
    void setFactor(float f) { uFactor = static_cast<uint16_t>(std::min(f * 256.0F + 0.5F, 65535.0F)); }
};
template <>
struct Lanes<uint16_t> {
    HWY_ALIGN float aMost[3 * hn::MaxLanes(D16())];
    float fFactor;
    void set(std::size_t i, float fMost) { aMost[i] = 0.5F * fMost; }
    void setFactor(float f) { fFactor = f; }
};

// In registers for 8-bit samples, of which the rest of the loop takes hardly longer.
HWY_INLINE V16 lanesFactor(const Lanes<uint8_t>& r) {
    return hn::Set(D16(), r.uFactor);
}
HWY_INLINE V16 lanesMost(const Lanes<uint8_t>& r, std::size_t i) {
    return hn::Load(D16(), r.aMost + i);
}
HWY_INLINE V16 lanesFactor(const Lanes<uint16_t>&) {
    return hn::Zero(D16());
}
HWY_INLINE V16 lanesMost(const Lanes<uint16_t>&, std::size_t) {
    return hn::Zero(D16());
}

/// What a lane has seen of samples that are far from their sums: how far, or above 0 if it was too far.
HWY_INLINE V16 noneFar(const uint8_t*) {
    return hn::Zero(D16());
}
HWY_INLINE auto noneFar(const uint16_t*) {
    return hn::Zero(hn::Rebind<float, D32>());
}
HWY_INLINE bool isFar(V16 vFar, V16 vMost) {
    return !hn::AllFalse(D16(), hn::Gt(vFar, hn::Add(vMost, vMost)));
}
HWY_INLINE bool isFar(hn::Vec<hn::Rebind<float, D32>> vFar, V16) {
    const hn::Rebind<float, D32> dFloat;
    return !hn::AllFalse(dFloat, hn::Gt(vFar, hn::Zero(dFloat)));
}

/// Loads a vector of samples and adds them to their sums. @return the samples, none above uFull.
/// @param[in] iLane     with SCREEN: place within the step, whose lanes of 8-bit samples are in vMost.
/// @param[in,out] rFar  with SCREEN: see noneFar().
template <bool SCREEN>
HWY_INLINE V16 addToSums(const uint8_t* pSamples, V16, uint16_t* pSums, const Lanes<uint8_t>&, std::size_t, V16 vFactor,
                         V16 vMost, V16& rFar) {
    const D16 d16;
    const hn::Rebind<uint8_t, D16> d8;
    const V16 v = hn::PromoteTo(d16, hn::LoadU(d8, pSamples));
    const V16 vSums = hn::LoadU(d16, pSums);
    if (SCREEN) {
        // Beyond either side of the limit is beyond twice the limit from one of them.
        const V16 vScaled = hn::MulHigh(hn::ShiftLeft<8>(v), vFactor);
        const V16 vApart = hn::Add(hn::Sub(vSums, vScaled), vMost);
        rFar = hn::Max(rFar, vApart);
    }
    hn::StoreU(hn::Add(vSums, v), d16, pSums);
    return v;
}
template <bool SCREEN>
HWY_INLINE V16 addToSums(const uint16_t* pSamples, V16 vFull, uint32_t* pSums, const Lanes<uint16_t>& rLanes,
                         std::size_t iLane, V16, V16, hn::Vec<hn::Rebind<float, D32>>& rFar) {
    const D16 d16;
    const D32 d32;
    const hn::Rebind<float, D32> dFloat;
    const hn::RebindToSigned<D32> di32;
    const hn::Rebind<uint16_t, D32> dHalf;
    const auto vFullHalf = hn::Set(dHalf, hn::GetLane(vFull));
    for (std::size_t k = 0; k < hn::Lanes(d16); k += hn::Lanes(d32)) {
        const V32 v = hn::PromoteTo(d32, hn::Min(hn::LoadU(dHalf, pSamples + k), vFullHalf));
        const V32 vSums = hn::LoadU(d32, pSums + k);
        if (SCREEN) {
            // Of sums from 2^31 on the conversion would make negative numbers: half of them does as well.
            const auto vHalf = hn::ConvertTo(dFloat, hn::BitCast(di32, hn::ShiftRight<1>(vSums)));
            const auto vScaled = hn::ConvertTo(dFloat, hn::BitCast(di32, v));
            const auto vApart = hn::Abs(hn::MulSub(vScaled, hn::Set(dFloat, 0.5F * rLanes.fFactor), vHalf));
            rFar = hn::Max(rFar, hn::Sub(vApart, hn::Load(dFloat, rLanes.aMost + iLane + k)));
        }
        hn::StoreU(hn::Add(vSums, v), d32, pSums + k);
    }
    return hn::Min(hn::LoadU(d16, pSamples), vFull);
}

/// The samples of each class in turn: the last one gets what the others leave of the whole.
template <std::size_t CLASSES, bool SCREEN, class TSample, class TSum>
FrameFigures addRun(const TSample* pSamples, std::size_t nSamples, uint32_t uFull, TSum* pSums, FrameScreen* pScreen) {
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
    Lanes<TSample> lanes{};
    if (SCREEN) {
        for (std::size_t k = 0; k < nStep; ++k) {
            lanes.set(k, pScreen->afMost[k % CLASSES]);
        }
        lanes.setFactor(pScreen->fFactor);
        pScreen->nGroup = GROUP * nStep;
    }
    const V16 vFactor = lanesFactor(lanes);
    const V16 vMost0 = lanesMost(lanes, 0), vMost1 = lanesMost(lanes, L * (VECTORS > 1)),
              vMost2 = lanesMost(lanes, 2 * L * (VECTORS > 1));
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
        auto vFar0 = noneFar(pSamples), vFar1 = vFar0, vFar2 = vFar0;
        const auto fnAdd = [&](std::size_t iFirst, std::size_t iLane, V16 vMost, V16 vFirst, V16 vSecond,
                               auto& rFar) HWY_ATTR {
            const V16 v =
                addToSums<SCREEN>(pSamples + iFirst, vFull, pSums + iFirst, lanes, iLane, vFactor, vMost, rFar);
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
        while (i < nEnd) {
            const std::size_t iGroup = i;
            const std::size_t nGroupEnd = SCREEN ? std::min(i + GROUP * nStep, nEnd) : nEnd;
            for (; i < nGroupEnd; i += nStep) {
                fnAdd(i, 0, vMost0, vFirst0, vSecond0, vFar0);
                if (VECTORS > 1) {
                    fnAdd(i + L, L, vMost1, vFirst1, vSecond1, vFar1);
                    fnAdd(i + 2 * L, 2 * L, vMost2, vFirst2, vSecond2, vFar2);
                }
            }
            if (SCREEN && (isFar(vFar0, vMost0) || (VECTORS > 1 && (isFar(vFar1, vMost1) || isFar(vFar2, vMost2))))) {
                pScreen->pHits[pScreen->nHits++] = static_cast<uint32_t>(iGroup);
                vFar0 = vFar1 = vFar2 = noneFar(pSamples);
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
        if (SCREEN && std::abs(static_cast<float>(uSample) * pScreen->fFactor - static_cast<float>(pSums[i])) >
                          pScreen->afMost[i % CLASSES]) {
            pScreen->pHits[pScreen->nHits++] = static_cast<uint32_t>(i);
        }
        pSums[i] = static_cast<TSum>(pSums[i] + uSample);
        figures.aiSums[i % CLASSES] += iCentred;
        figures.auSquares[i % CLASSES] += static_cast<uint64_t>(iCentred * iCentred);
        figures.nSaturated += uSample == uFull;
        figures.uLargest = std::max(figures.uLargest, uSample);
    }
    return figures;
}

template <bool SCREEN, class TSample, class TSum>
FrameFigures addClasses(std::size_t nClasses, const TSample* pSamples, std::size_t nSamples, uint32_t uFull,
                        TSum* pSums, FrameScreen* pScreen) {
    return nClasses == 1   ? addRun<1, SCREEN>(pSamples, nSamples, uFull, pSums, pScreen)
           : nClasses == 2 ? addRun<2, SCREEN>(pSamples, nSamples, uFull, pSums, pScreen)
                           : addRun<3, SCREEN>(pSamples, nSamples, uFull, pSums, pScreen);
}

FrameFigures addU8(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums,
                   FrameScreen* pScreen) {
    return pScreen ? addClasses<true>(nClasses, pSamples, nSamples, 255, pSums, pScreen)
                   : addClasses<false>(nClasses, pSamples, nSamples, 255, pSums, pScreen);
}

FrameFigures addU16(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                    uint32_t* pSums, FrameScreen* pScreen) {
    return pScreen ? addClasses<true>(nClasses, pSamples, nSamples, uFull, pSums, pScreen)
                   : addClasses<false>(nClasses, pSamples, nSamples, uFull, pSums, pScreen);
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

FrameFigures addFrame(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums,
                      FrameScreen* pScreen) {
    return HWY_DYNAMIC_DISPATCH(addU8)(nClasses, pSamples, nSamples, pSums, pScreen);
}
FrameFigures addFrame(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                      uint32_t* pSums, FrameScreen* pScreen) {
    return HWY_DYNAMIC_DISPATCH(addU16)(nClasses, pSamples, nSamples, uFull, pSums, pScreen);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
