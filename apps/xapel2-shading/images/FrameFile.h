// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary).

#pragma once

#include <filesystem>

#include "images/Frame.h"

namespace XAPEL2 {
namespace App {

/// Writes FOLDER/NAME.pgm, or NAME.ppm for a format with three channels (always in the order red, green, blue).
/// The file's maxval is the full scale of the format; above 255 samples take two bytes, high byte first.
/// @return the file's path.
/// @throws std::runtime_error  the file cannot be written; names it.
std::filesystem::path writeFrame(const std::filesystem::path& rFolder, const Frame& rFrame);

}  // namespace App
}  // namespace XAPEL2
