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

/// Which samples are to be looked at again, because they lie far from the mean of their pixel's earlier ones.
struct FrameScreen {
    float fFactor = 1.0F;                         ///< frames in the sums, over the brightness relative to their mean
    std::array<float, RUN_CLASSES_MAX> afMost{};  ///< by class: what |sample * fFactor - sum| may be
    uint32_t* pHits = nullptr;                    ///< borrowed, one for each sample of the run: first samples of groups
    std::size_t nHits = 0;                        ///< groups found
    std::size_t nGroup = 1;                       ///< samples of a group, fewer at the end of the run
};

/// Adds each of nSamples samples, at most 2^28, to its sum. Reads the run once, the sums once, and writes the sums.
/// The sums do not overflow for 257 frames of 8 bits or 65537 frames of 16 bits from 0 on.
/// @param[in] nClasses  1, 2 or 3.
/// @param[in] uFull     full scale; samples above it count as full scale.
/// @param[in] pSamples  borrowed for the call, any alignment.
/// @param[in,out] pScreen  where it is not null: gets the groups of samples of which one at least lies too far from the
///                 sums as they were before. Of 8-bit samples the factor must be below 256.
/// @threads any, one at a time for one range of sums.
FrameFigures addFrame(std::size_t nClasses, const uint8_t* pSamples, std::size_t nSamples, uint16_t* pSums,
                      FrameScreen* pScreen = nullptr);
FrameFigures addFrame(std::size_t nClasses, const uint16_t* pSamples, std::size_t nSamples, uint32_t uFull,
                      uint32_t* pSums, FrameScreen* pScreen = nullptr);

}  // namespace StandIn
}  // namespace XAPEL2
