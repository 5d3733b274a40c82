// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The same correction with OpenCV, where it is installed.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Scene.h"

namespace XapelBench {

/// One way to correct an image in place.
struct OpenCvWay {
    std::string strName;
    std::function<void(uint8_t* pImage)> fnCorrect;
};

/// Ways to correct images of the scene's references on one thread, for mono formats that fill whole bytes. None without
/// OpenCV.
std::vector<OpenCvWay> openCvWays(const CScene& rScene);

/// Ways to replace the marked pixels of a corrected image, for the same formats.
/// @param[in] rMap  of the scene's pixels, row by row; marked are those that are not 0.
std::vector<OpenCvWay> openCvDefectWays(const CScene& rScene, const std::vector<uint8_t>& rMap);

}  // namespace XapelBench
