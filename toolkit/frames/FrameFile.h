// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary) or TIFF.

#pragma once

#include <filesystem>

#include "toolkit/frames/Frame.h"

namespace XAPEL2 {
namespace Toolkit {

enum eFrameFile { ePixmap, eTiff };

/// The file that writeFrame writes: FOLDER/NAME.pgm, FOLDER/NAME.ppm for a format with three channels, FOLDER/NAME.tif.
std::filesystem::path frameFile(const std::filesystem::path& rFolder, const Frame& rFrame, eFrameFile eKind = ePixmap);

/// Writes a frame; packed formats are unpacked, three channels always in the order red, green, blue. A file that exists
/// is replaced. The file appears whole or not at all, but for a loss of power.
/// Pixmap: maxval is the full scale of the format; above 255 samples take two bytes, high byte first.
/// TIFF: one uncompressed image of 8 or 16 bits, MaxSampleValue is the full scale.
/// @return the file's path.
/// @throws std::runtime_error  the file cannot be written; names it.
std::filesystem::path writeFrame(const std::filesystem::path& rFolder, const Frame& rFrame, eFrameFile eKind = ePixmap);

}  // namespace Toolkit
}  // namespace XAPEL2
