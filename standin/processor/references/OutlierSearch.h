// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Which of the samples that were watched are none of their pixel's, and where they lie.

#pragma once

#include <cstdint>
#include <vector>

#include "standin/processor/references/FrameGroup.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// A sample that left its pixel's others.
struct OutlyingSample {
    uint64_t iSample = 0;
    uint64_t iFrame = 0;     ///< of the group, from 0 on
    double dValue = 0.0;     ///< DN
    double dExpected = 0.0;  ///< from the others, at the frame's brightness, DN
};

/// A pixel without its outlying samples.
struct CleanSample {
    uint64_t iSample = 0;
    double dMean = 0.0;  ///< of the others, at the mean brightness of all frames, DN
};

struct OutlyingSamples {
    std::vector<OutlyingSample> vecOut;  ///< by place, then by frame
    std::vector<CleanSample> vecClean;   ///< by place
    uint64_t nUnsteady = 0;              ///< pixels of which too many samples are far to tell which
};

/// Judges the watched samples of a group of three frames or more. A sample is out where it differs from the middle of
/// its pixel's by more than noise does once in 10,000 recordings; where the noise is not known at this level, by far
/// more than the pixel's own samples do among themselves; and no more than a quarter of a pixel's samples (a third
/// below eight frames) can be.
OutlyingSamples findOutlyingSamples(const ImageLayout& rLayout, const CFrameGroup& rGroup);

/// Puts neighbours of one frame together, the most far-reaching first. Frames are numbered as in the recording.
std::vector<FrameOutlier> outlierPlaces(const ImageLayout& rLayout, const CFrameGroup& rGroup,
                                        const OutlyingSamples& rSamples);

}  // namespace StandIn
}  // namespace XAPEL2
