// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The order of the bytes of 16-bit samples.

#pragma once

#include <cstddef>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// Samples that go through the caches in one piece: whole pixels of three, whole bytes of packed ones.
constexpr std::size_t SAMPLE_BLOCK = 3U << 14;

/// Turns 16-bit samples from the high byte first to the low byte first, or back.
/// @param[in] pFrom  2 * nSamples bytes of any alignment. @param[out] pTo  as many; may be pFrom.
void swapSamples(const void* pFrom, std::size_t nSamples, void* pTo) noexcept;

/// The largest of some samples in the order of this machine; 0 of none.
uint8_t largestSample(const uint8_t* pSamples, std::size_t nSamples) noexcept;
uint16_t largestSample16(const void* pSamples, std::size_t nSamples) noexcept;

/// Exchanges the first and the third of each three samples: red, green, blue to blue, green, red, or back.
void exchangeRedAndBlue(uint8_t* pSamples, std::size_t nSamples) noexcept;
void exchangeRedAndBlue(uint16_t* pSamples, std::size_t nSamples) noexcept;

}  // namespace StandIn
}  // namespace XAPEL2
