// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Pictures of a frame before and after correction, on one common scale.

#pragma once

#include <filesystem>

#include "images/Frame.h"

namespace XAPEL2 {
namespace App {

/// Writes two 8-bit PNG files. Black and white stand for the same values in both: a little beyond the 0.1 % and 99.9 %
/// percentiles of the two frames together. A colour filter array is shown as grey, each square of 2 x 2 sites one
/// pixel; three channels as colour.
/// @throws std::runtime_error  a file cannot be written; names it.
void writePicturePair(const std::filesystem::path& rBeforeFile, const Frame& rBefore,
                      const std::filesystem::path& rAfterFile, const Frame& rAfter);

}  // namespace App
}  // namespace XAPEL2
