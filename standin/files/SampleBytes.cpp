// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The order of the bytes of 16-bit samples.

#include "standin/files/SampleBytes.h"

#include <algorithm>
#include <utility>

#include "standin/pixels/PlaneVectors.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/files/SampleBytes.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

void swapBytes(const uint8_t* pFrom, std::size_t nSamples, uint8_t* pTo) {
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<uint8_t> d;
    const hn::Repartition<uint16_t, decltype(d)> d16;
    for (; i + hn::Lanes(d) <= 2 * nSamples; i += hn::Lanes(d)) {
        const auto vSamples = hn::BitCast(d16, hn::LoadU(d, pFrom + i));
        const auto vSwapped = hn::Or(hn::ShiftLeft<8>(vSamples), hn::ShiftRight<8>(vSamples));
        hn::StoreU(hn::BitCast(d, vSwapped), d, pTo + i);
    }
#endif
    for (; i < 2 * nSamples; i += 2) {
        const uint8_t uFirst = pFrom[i];
        pTo[i] = pFrom[i + 1];
        pTo[i + 1] = uFirst;
    }
}

/// @param[in] pBytes  samples of T at any address.
template <class T>
T largest(const uint8_t* pBytes, std::size_t nSamples) {
    const std::size_t nBytes = nSamples * sizeof(T);
    std::size_t i = 0;
    T uLargest = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<uint8_t> d;
    const hn::Repartition<T, decltype(d)> dT;
    auto vLargest = hn::Zero(dT);
    for (; i + hn::Lanes(d) <= nBytes; i += hn::Lanes(d)) {
        vLargest = hn::Max(vLargest, hn::BitCast(dT, hn::LoadU(d, pBytes + i)));
    }
    HWY_ALIGN T aLanes[hn::MaxLanes(dT)];
    hn::Store(vLargest, dT, aLanes);
    uLargest = *std::max_element(aLanes, aLanes + hn::Lanes(dT));
#endif
    for (; i < nBytes; i += sizeof(T)) {
        T uSample = 0;
        hwy::CopyBytes<sizeof(T)>(pBytes + i, &uSample);
        uLargest = std::max(uLargest, uSample);
    }
    return uLargest;
}

uint8_t largest8(const uint8_t* pBytes, std::size_t nSamples) {
    return largest<uint8_t>(pBytes, nSamples);
}

uint16_t largest16(const uint8_t* pBytes, std::size_t nSamples) {
    return largest<uint16_t>(pBytes, nSamples);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(swapBytes);
HWY_EXPORT(largest8);
HWY_EXPORT(largest16);

namespace {

template <typename T>
void exchange(T* pSamples, std::size_t nSamples) noexcept {
    for (std::size_t i = 0; i + 2 < nSamples; i += 3) {
        std::swap(pSamples[i], pSamples[i + 2]);
    }
}

}  // namespace

void swapSamples(const void* pFrom, std::size_t nSamples, void* pTo) noexcept {
    HWY_DYNAMIC_DISPATCH(swapBytes)(static_cast<const uint8_t*>(pFrom), nSamples, static_cast<uint8_t*>(pTo));
}

uint8_t largestSample(const uint8_t* pSamples, std::size_t nSamples) noexcept {
    return HWY_DYNAMIC_DISPATCH(largest8)(pSamples, nSamples);
}

uint16_t largestSample16(const void* pSamples, std::size_t nSamples) noexcept {
    return HWY_DYNAMIC_DISPATCH(largest16)(static_cast<const uint8_t*>(pSamples), nSamples);
}

void exchangeRedAndBlue(uint8_t* pSamples, std::size_t nSamples) noexcept {
    exchange(pSamples, nSamples);
}

void exchangeRedAndBlue(uint16_t* pSamples, std::size_t nSamples) noexcept {
    exchange(pSamples, nSamples);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
