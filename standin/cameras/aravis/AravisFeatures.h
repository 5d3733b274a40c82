// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The features of a camera as nodes.

#pragma once

#include <string>
#include <vector>

#include "standin/cameras/interface/NodeSpec.h"
#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

class CAravisCamera;

/// Those of the known features that the camera has. The caller holds the camera's commands lock; the nodes take it
/// themselves, and must not outlive the camera. @throws CCameraError
NodeTable aravisNodes(CAravisCamera& rCamera);

/// Says that a format is not known, and those that the camera and the host both know.
std::string unknownFormatText(const std::string& strFormat, const std::vector<const PixelFormat*>& rCommon);

}  // namespace StandIn
}  // namespace XAPEL2
