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

/// After so many steps the lanes are emptied: a step adds at most 4 * 255^2 or 2^16 to a 32-bit lane of squares, and 1
/// to a 16-bit lane that counts.
constexpr std::size_t STEPS = 4096;

using D32 = hn::ScalableTag<uint32_t>;
using V32 = hn::Vec<D32>;

/// The squares of signed 16-bit samples, each lane the sum of one or two of them, at most 2^31.
template <class D16>
HWY_INLINE V32 squares(D16 d16, hn::Vec<D16> v) {
    const hn::RebindToSigned<D16> di16;
    const hn::RebindToSigned<D32> di32;
    auto vMore = hn::Zero(di32);
    const auto vSquares =
        hn::ReorderWidenMulAccumulate(di32, hn::BitCast(di16, v), hn::BitCast(di16, v), hn::Zero(di32), vMore);
    (void)d16;
    return hn::Add(hn::BitCast(D32(), vSquares), hn::BitCast(D32(), vMore));
}

template <class D>
uint64_t sumLanes(D d, hn::Vec<D> v) {
    HWY_ALIGN hn::TFromD<D> aLanes[hn::MaxLanes(d)];
    hn::Store(v, d, aLanes);
    uint64_t uSum = 0;
    for (const auto uLane : aLanes) uSum += uLane;
    return uSum;
}

FrameFigures addU8(const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums) {
    const hn::ScalableTag<uint16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const std::size_t L = hn::Lanes(d16);
    const auto vFull = hn::Set(d16, 255);
    FrameFigures sFigures;
    std::size_t i = 0;
    while (i + L <= nSamples) {
        const std::size_t nEnd = i + std::min(STEPS, (nSamples - i) / L) * L;
        V32 vSquares = hn::Zero(D32());
        auto vSaturated = hn::Zero(d16);
        for (; i < nEnd; i += L) {
            const auto v = hn::PromoteTo(d16, hn::LoadU(d8, pSamples + i));
            hn::StoreU(hn::Add(hn::LoadU(d16, pSums + i), v), d16, pSums + i);
            vSquares = hn::Add(vSquares, squares(d16, v));
            vSaturated = hn::Sub(vSaturated, hn::VecFromMask(d16, hn::Eq(v, vFull)));
        }
        sFigures.uSquares += sumLanes(D32(), vSquares);
        sFigures.nSaturated += sumLanes(d16, vSaturated);
    }
    for (; i < nSamples; ++i) {
        const uint32_t uSample = pSamples[i];
        pSums[i] = static_cast<uint16_t>(pSums[i] + uSample);
        sFigures.uSquares += uint64_t{uSample} * uSample;
        sFigures.nSaturated += uSample == 255;
    }
    return sFigures;
}

FrameFigures addU16(const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull, uint32_t* pSums) {
    const hn::ScalableTag<uint16_t> d16;
    const D32 d32;
    const hn::Rebind<uint16_t, D32> dHalf;
    const std::size_t L = hn::Lanes(d16);
    const auto vFull = hn::Set(d16, static_cast<uint16_t>(uFull));
    const auto vCentre = hn::Set(d16, FRAME_CENTRE);
    const auto vLow = hn::Set(d32, 0xFFFF);
    FrameFigures sFigures;
    std::size_t i = 0;
    while (i + L <= nSamples) {
        const std::size_t nEnd = i + std::min(STEPS, (nSamples - i) / L) * L;
        V32 vSquaresLow = hn::Zero(d32);
        V32 vSquaresHigh = hn::Zero(d32);
        auto vSaturated = hn::Zero(d16);
        for (; i < nEnd; i += L) {
            for (std::size_t k = 0; k < L; k += hn::Lanes(d32)) {
                const auto vHalf =
                    hn::Min(hn::LoadU(dHalf, pSamples + i + k), hn::Set(dHalf, static_cast<uint16_t>(uFull)));
                hn::StoreU(hn::Add(hn::LoadU(d32, pSums + i + k), hn::PromoteTo(d32, vHalf)), d32, pSums + i + k);
            }
            const auto v = hn::Min(hn::LoadU(d16, pSamples + i), vFull);
            const V32 vSquares = squares(d16, hn::Xor(v, vCentre));
            vSquaresLow = hn::Add(vSquaresLow, hn::And(vSquares, vLow));
            vSquaresHigh = hn::Add(vSquaresHigh, hn::ShiftRight<16>(vSquares));
            vSaturated = hn::Sub(vSaturated, hn::VecFromMask(d16, hn::Eq(v, vFull)));
        }
        sFigures.uSquares += sumLanes(d32, vSquaresLow) + (sumLanes(d32, vSquaresHigh) << 16);
        sFigures.nSaturated += sumLanes(d16, vSaturated);
    }
    for (; i < nSamples; ++i) {
        uint16_t uRead = 0;
        std::memcpy(&uRead, reinterpret_cast<const uint8_t*>(pSamples) + 2 * i, 2);
        const uint32_t uSample = std::min<uint32_t>(uRead, uFull);
        const auto iCentred = static_cast<int64_t>(uSample) - static_cast<int64_t>(FRAME_CENTRE);
        pSums[i] += uSample;
        sFigures.uSquares += static_cast<uint64_t>(iCentred * iCentred);
        sFigures.nSaturated += uSample == uFull;
    }
    return sFigures;
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

FrameFigures addFrame(const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums) {
    return HWY_DYNAMIC_DISPATCH(addU8)(pSamples, nSamples, pSums);
}
FrameFigures addFrame(const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull, uint32_t* pSums) {
    return HWY_DYNAMIC_DISPATCH(addU16)(pSamples, nSamples, uFull, pSums);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
