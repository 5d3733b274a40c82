// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What left the other frames of a recording, judged and in words.

#pragma once

#include <nlohmann/json_fwd.hpp>

#include "toolkit/judgement/Judgement.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// "outlying-frames" and "outlying-samples": warnings with the frame's number, the place and the size of each, as far
/// as they are listed; a note where all there is are some single samples, which are left out. Nothing of a steady
/// recording.
Findings judgeOutliers(const StandIn::RecordingOutliers& rOutliers);

/// {"frames", "framesLeftOut", "samples", "samplesLeftOut", "places": [{"what": "brightness" | "shape" | "samples",
/// "frame", "x", "y", "width", "height", "samples", "deviation", "leftOut"}]}
nlohmann::ordered_json outliersJson(const StandIn::RecordingOutliers& rOutliers);

}  // namespace Toolkit
}  // namespace XAPEL2
