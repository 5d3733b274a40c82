// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Adds the samples of a frame to sums that are as narrow as they can be.

#pragma once

#include <cstddef>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// What there is to know about the samples of a frame besides themselves.
struct FrameFigures {
    /// Sum of (sample - centre)^2; the centre is 0 for 8-bit samples and FRAME_CENTRE for wider ones, so that signed
    /// 16-bit products do.
    uint64_t uSquares = 0;
    uint64_t nSaturated = 0;  ///< samples at full scale
};
constexpr uint32_t FRAME_CENTRE = 1U << 15;

/// Adds each of nSamples samples, at most 2^28, to its sum. Reads the frame once, the sums once, and writes the sums.
/// The sums do not overflow for 257 frames of 8 bits or 65537 frames of 16 bits from 0 on.
/// @param[in] uFull     full scale; samples above it count as full scale.
/// @param[in] pSamples  borrowed for the call, any alignment.
/// @threads any, one at a time for one range of sums.
FrameFigures addFrame(const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums);
FrameFigures addFrame(const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull, uint32_t* pSums);

}  // namespace StandIn
}  // namespace XAPEL2
