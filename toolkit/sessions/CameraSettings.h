// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The settings of a camera that a reference depends on.

#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "xapel2/XapelNodes.h"
#include "xapel2_standin/ImageGeometry.h"

namespace XAPEL2 {
namespace Toolkit {

/// What a camera says of itself. A setting that it does not have is absent, never assumed.
struct CameraSettings {
    std::string strPixelFormat;  ///< PFNC name; empty: unknown
    uint64_t nWidth = 0;         ///< pixels; 0: unknown
    uint64_t nHeight = 0;        ///< pixels; 0: unknown
    std::string strModel;        ///< of the camera; empty: unknown, as it is for recorded frames
    std::string strSerial;       ///< tells it from others of its model; empty: unknown
    std::string strDate;         ///< of a reference: when it was recorded, ISO 8601 in UTC; empty: unknown
    /// By node name: ExposureTime (us), Gain (unit of the camera), OffsetX, OffsetY (pixels), BinningHorizontal,
    /// BinningVertical (pixels), ReverseX, ReverseY (0 or 1), SensorWidth, SensorHeight (pixels).
    std::map<std::string, double> mapValues;
    /// By node name: BinningHorizontalMode, BinningVerticalMode ("Sum", "Average").
    std::map<std::string, std::string> mapModes{};

    bool has(const std::string& strName) const { return mapValues.count(strName) != 0; }
    /// True when nothing at all is known.
    bool empty() const {
        return strPixelFormat.empty() && nWidth == 0 && nHeight == 0 && strModel.empty() && strSerial.empty() &&
               strDate.empty() && mapValues.empty();
    }
};

/// Names of mapValues in the order in which they are shown and compared; the sensor's size is neither.
const std::vector<std::string>& cameraSettingNames();

/// Where on its sensor the camera's image lies; not known where the settings do not tell all of it, or what cannot be.
StandIn::ImageGeometry geometryOf(const CameraSettings& rSettings);

class CSession;
/// "window 640 x 480 at 1200, 900, binned 2 x 2 (mean)", of the image that the camera takes now; its size alone where
/// nothing more is known.
std::string placeInWords(const CSession& rSession);
/// {"sensorWidth", "sensorHeight", "offsetX", "offsetY", "width", "height", "binningX", "binningY", "modeX", "modeY"
/// ("sum", "mean"), "mirrorX", "mirrorY"} of the same; null where it is not known.
nlohmann::ordered_json geometryJson(const CSession& rSession);

/// Reads the settings from the camera's nodes. A node that is missing, cannot be read or holds no number is left out.
CameraSettings readCameraSettings(NodeMap& rNodes);

/// A JSON object with the node names as members and the date as "Recorded"; ReverseX and ReverseY are booleans.
nlohmann::ordered_json toJson(const CameraSettings& rSettings);

/// From the "camera" object of a reference file. An empty text, another type of JSON, unknown members and members of
/// another type than expected are unknown settings, no errors.
CameraSettings cameraSettingsFromJson(const std::string& strJson);

}  // namespace Toolkit
}  // namespace XAPEL2
