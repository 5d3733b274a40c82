// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command record: records a reference.

#pragma once

#include <cstdint>
#include <string>

namespace XAPEL2 {
namespace App {

struct RecordOptions {
    bool bLight = false;         ///< a light reference, otherwise a dark one
    std::string strDevice;       ///< device identifier
    std::string strFrom;         ///< in its place: a float TIFF, the mean of nFrames frames
    std::string strFormat;       ///< pixel format of those frames
    uint64_t nFrames = 16;       ///< frames to average
    std::string strFile;         ///< reference file to write
    double dTimeoutS = 10.0;     ///< longest wait for a frame beyond its exposure, seconds
    bool bTimeoutNamed = false;  ///< dTimeoutS was asked for
    bool bKeepOutliers = false;  ///< what left the other frames stays in the mean
    bool bLine = false;          ///< average over rows too, for line-scan cameras
    bool bForce = false;
    bool bJson = false;
};

/// Records a reference from the live stream, files the camera's settings with it, and judges it.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runRecord(const RecordOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
