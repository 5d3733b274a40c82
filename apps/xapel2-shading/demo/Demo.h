// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration: record references, apply them, and show what correction does to the frames of a camera.

#pragma once

#include <string>

namespace XAPEL2 {
namespace App {

struct DemoOptions {
    std::string strCamera = "sim";       ///< device identifier
    std::string strOut = "demo-output";  ///< folder to write to
    bool bOverwrite = false;             ///< replace files that no earlier demonstration has written
    bool bJson = false;
};

/// Runs the demonstration and prints its table. References that judgement refuses are shown all the same.
/// @return the exit code.
/// @throws std::runtime_error, Exceptions::IException  the camera or a file cannot be used.
int runDemo(const DemoOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
