// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command settings: what can be set on a camera.

#pragma once

#include <string>

namespace XAPEL2 {
namespace App {

struct SettingsOptions {
    std::string strDevice;  ///< device identifier
    bool bJson = false;
};

/// Lists the camera's settings with their values and limits.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runSettings(const SettingsOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
