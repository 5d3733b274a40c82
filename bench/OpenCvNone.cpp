// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Stands in where OpenCV is not installed.

#include "OpenCvCorrection.h"

namespace XapelBench {

std::vector<OpenCvWay> openCvWays(const CScene&) {
    return {};
}

}  // namespace XapelBench
