// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a device identifier names.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "standin/cameras/interface/Camera.h"
#include "standin/cameras/interface/FrameSource.h"

namespace XAPEL2 {
namespace StandIn {

/// NODE=VALUE, for a node of an open camera.
struct NodeSetting {
    std::string strText;  ///< as it was given
    std::string strNode;  ///< empty where the text names none
    std::string strValue;
};

/// A camera, and the settings that it is to have, in this order.
struct NamedCamera {
    std::unique_ptr<ICamera> pCamera;
    std::vector<NodeSetting> vecSettings;
};

/// The camera that a device identifier names (see openDevice).
/// @throws std::invalid_argument  the text names no camera or carries a bad setting.
/// @throws CCameraError           a real camera cannot be had.
/// @throws std::runtime_error     a folder or file cannot be used; names it.
NamedCamera makeCamera(const std::string& strId);

/// A camera of these image files (see openFiles). @throws as makeCamera.
NamedCamera makeFileCamera(const std::vector<std::string>& vecFiles, const std::string& strFormat);

/// The real cameras that are found, by identifiers that makeCamera() takes. @throws CCameraError
std::vector<CameraInfo> findRealCameras();

/// The source that an identifier names that begins with "sim" or "replay:". @throws as makeCamera.
std::unique_ptr<IFrameSource> makeFrameSource(const std::string& strId);

/// A source of these image files (see openFiles). @throws as makeCamera.
std::unique_ptr<IFrameSource> makeFileSource(const std::vector<std::string>& vecFiles, const std::string& strFormat);

}  // namespace StandIn
}  // namespace XAPEL2
