// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Adds the samples of a frame to sums that are as narrow as they can be.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// Colour classes within a run of samples: the sites of a row of a filter array, or channels.
constexpr std::size_t RUN_CLASSES_MAX = 3;

/// What there is to know about a run of samples besides themselves. By class where that takes an array: sample i of the
/// run is of class i modulo the number of classes. The centre is 0 for 8-bit samples and FRAME_CENTRE for wider ones,
/// so that signed 16-bit products do.
struct FrameFigures {
    std::array<int64_t, RUN_CLASSES_MAX> aiSums{};      ///< of (sample - centre)
    std::array<uint64_t, RUN_CLASSES_MAX> auSquares{};  ///< of (sample - centre)^2
    uint64_t nSaturated = 0;                            ///< samples at full scale
    uint32_t uLargest = 0;                              ///< the largest sample
};
constexpr uint32_t FRAME_CENTRE = 1U << 15;

/// Adds each of nSamples samples, at most 2^28, to its sum. Reads the run once, the sums once, and writes the sums.
/// The sums do not overflow for 257 frames of 8 bits or 65537 frames of 16 bits from 0 on.
/// @param[in] nClasses  1, 2 or 3.
/// @param[in] uFull     full scale; samples above it count as full scale.
/// @param[in] pSamples  borrowed for the call, any alignment.
/// @threads any, one at a time for one range of sums.
FrameFigures addFrame(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums);
FrameFigures addFrame(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                      uint32_t* pSums);

}  // namespace StandIn
}  // namespace XAPEL2
