// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The order of the bytes of 16-bit samples. Short loops, which the compiler makes vectors of.

#include "standin/files/SampleBytes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace XAPEL2 {
namespace StandIn {

namespace {

template <typename T>
void exchange(T* pSamples, std::size_t nSamples) noexcept {
    for (std::size_t i = 0; i + 2 < nSamples; i += 3) {
        std::swap(pSamples[i], pSamples[i + 2]);
    }
}

}  // namespace

void swapSamples(const void* pFrom, std::size_t nSamples, void* pTo) noexcept {
    constexpr uint64_t LOW_BYTES = 0x00FF00FF00FF00FFU;
    const auto* pIn = static_cast<const uint8_t*>(pFrom);
    auto* pOut = static_cast<uint8_t*>(pTo);
    std::size_t i = 0;
    for (; i + 4 <= nSamples; i += 4) {
        uint64_t uFour = 0;
        std::memcpy(&uFour, pIn + 2 * i, sizeof uFour);
        uFour = (uFour & LOW_BYTES) << 8 | (uFour >> 8 & LOW_BYTES);
        std::memcpy(pOut + 2 * i, &uFour, sizeof uFour);
    }
    for (; i < nSamples; ++i) {
        const uint8_t uFirst = pIn[2 * i];
        pOut[2 * i] = pIn[2 * i + 1];
        pOut[2 * i + 1] = uFirst;
    }
}

uint8_t largestSample(const uint8_t* pSamples, std::size_t nSamples) noexcept {
    uint8_t uLargest = 0;
    for (std::size_t i = 0; i < nSamples; ++i) {
        uLargest = std::max(uLargest, pSamples[i]);
    }
    return uLargest;
}

uint16_t largestSample16(const void* pSamples, std::size_t nSamples) noexcept {
    const auto* pBytes = static_cast<const uint8_t*>(pSamples);
    uint16_t uLargest = 0;
    for (std::size_t i = 0; i < nSamples; ++i) {
        uint16_t uSample = 0;
        std::memcpy(&uSample, pBytes + 2 * i, sizeof uSample);
        uLargest = std::max(uLargest, uSample);
    }
    return uLargest;
}

void exchangeRedAndBlue(uint8_t* pSamples, std::size_t nSamples) noexcept {
    exchange(pSamples, nSamples);
}

void exchangeRedAndBlue(uint16_t* pSamples, std::size_t nSamples) noexcept {
    exchange(pSamples, nSamples);
}

}  // namespace StandIn
}  // namespace XAPEL2
