// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What tells of a camera where its images lie, by the names of the SFNC.

#pragma once

namespace XAPEL2 {
namespace StandIn {

/// The settings that tell one direction of a geometry.
struct AxisNames {
    const char* pSensor;
    const char* pOffset;
    const char* pBinning;
    const char* pMode;
    const char* pReverse;
};
constexpr AxisNames NAMES_X = {"SensorWidth", "OffsetX", "BinningHorizontal", "BinningHorizontalMode", "ReverseX"};
constexpr AxisNames NAMES_Y = {"SensorHeight", "OffsetY", "BinningVertical", "BinningVerticalMode", "ReverseY"};

}  // namespace StandIn
}  // namespace XAPEL2
