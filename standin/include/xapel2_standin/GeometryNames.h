// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What tells of a camera where its images lie, by the names of the SFNC.

#pragma once

namespace XAPEL2 {
namespace StandIn {

/// The settings that tell one direction of a geometry.
struct AxisNames {
    const char* pSensor;   ///< samples of the whole sensor
    const char* pOffset;   ///< the region's first sample, in binned samples
    const char* pBinning;  ///< samples of the sensor per sample of an image
    const char* pMode;     ///< "Sum" or "Average" of the samples that are binned
    const char* pReverse;  ///< whether the direction is mirrored
};
/// Along a row.
constexpr AxisNames NAMES_X = {"SensorWidth", "OffsetX", "BinningHorizontal", "BinningHorizontalMode", "ReverseX"};
/// Along a column.
constexpr AxisNames NAMES_Y = {"SensorHeight", "OffsetY", "BinningVertical", "BinningVerticalMode", "ReverseY"};

}  // namespace StandIn
}  // namespace XAPEL2
