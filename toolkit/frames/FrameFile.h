// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary) or TIFF.

#pragma once

#include <filesystem>
#include <string>

#include "toolkit/frames/Frame.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

enum eFrameFile { ePixmap, eTiff, ePng };

/// The file of a frame: FOLDER/NAME.pgm, FOLDER/NAME.ppm for a format with three channels, FOLDER/NAME.tif,
/// FOLDER/NAME.png.
std::filesystem::path frameFile(const std::filesystem::path& rFolder, const std::string& strName,
                                const StandIn::PixelFormat& rFormat, eFrameFile eKind = ePixmap);

/// Writes an image as it stands in memory; packed formats are unpacked, three channels always in the order red, green,
/// blue. A file that exists is replaced. The file appears whole or not at all, but for a loss of power.
/// Pixmap: maxval is the full scale of the format; above 255 samples take two bytes, high byte first.
/// TIFF: one uncompressed image of 8 or 16 bits, MaxSampleValue is the full scale.
/// PNG: 8 or 16 bits, samples as they are; the full scale is not told.
/// @param[in] strDescription  what the file is to say of the image, a line of text; empty: nothing.
/// @param[in] pImage  rLayout.bytes() bytes; borrowed. No copy is made of it, but block by block.
/// @throws std::runtime_error  the file cannot be written; names it.
/// @threads any.
void writeImage(const std::filesystem::path& rFile, const StandIn::ImageLayout& rLayout, const void* pImage,
                eFrameFile eKind, const std::string& strDescription = "");

/// The same of a frame, into a folder. @return the file's path.
std::filesystem::path writeFrame(const std::filesystem::path& rFolder, const Frame& rFrame, eFrameFile eKind = ePixmap);

}  // namespace Toolkit
}  // namespace XAPEL2
