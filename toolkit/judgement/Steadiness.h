// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether the frames of a recording are alike.

#pragma once

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

/// How the frames of a reference keep to each other: "no-noise", "drift", and what judgeOutliers() says.
/// @param[in] rFigures  kind, layout, frames, mean, noise, means and outliers of it count.
Findings judgeSteadiness(const ReferenceFigures& rFigures);

/// "moving-light": light that moved over the image, which counts as noise unless it is taken off (noiseShare()).
Findings judgeMovement(const StandIn::ReferenceImage& rReference);

/// The warnings of judgeSteadiness() on an even light, each text with the name before it.
Findings judgeLevelSteadiness(const std::string& strName, const MeanImage& rLight,
                              const StandIn::RecordingOutliers& rOutliers);

}  // namespace Toolkit
}  // namespace XAPEL2
