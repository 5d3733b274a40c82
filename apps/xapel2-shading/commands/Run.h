// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command run: corrects a live stream.

#pragma once

#include <cstdint>
#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Pair.h"

namespace XAPEL2 {
namespace App {

struct RunOptions {
    std::string strDevice;  ///< device identifier
    PairOptions pair;
    std::string strScene = "Scene";  ///< what a camera with selectable scenes shows: Dark, Light, Scene
    uint64_t nFrames = 0;            ///< frames to fetch; 0: those that the camera has, else until Ctrl-C
    std::string strOut;              ///< folder to write frames to; empty: none are written
    std::string strFormat = "pgm";   ///< pgm (ppm for colour), tiff or png
    bool bRaw = false;               ///< write the uncorrected frames too
    bool bOverwrite = false;         ///< replace files that exist
    double dTimeoutS = 10.0;         ///< longest wait for a frame beyond its exposure, seconds
    bool bForce = false;             ///< a refusal only warns
    bool bJson = false;
};

/// Fetches frames with correction on, and tells what became of them.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runRun(const RunOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
