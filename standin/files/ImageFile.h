// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Image files: binary PGM, PPM and TIFF. Every field of a file is checked before it is used.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

/// What the header of an image file says.
struct ImageFileLayout {
    uint64_t nWidth = 0, nHeight = 0;      ///< pixels, 1 to IMAGE_SIDE_MAX
    const PixelFormat* pFormat = nullptr;  ///< the smallest mono format that holds the samples, or RGB8
    uint32_t uMaxval = 0;                  ///< largest value that a sample may have
};

/// Reads the header of a file and checks that the image is there in full: a PGM ends with its last sample and has one
/// of Mono8, Mono10, Mono12, Mono14, Mono16 by its maxval; a PPM is RGB8. A TIFF holds one image in strips, grey with 8
/// or 16 bits (black is 0) or RGB with 8, the first line at the top. It is uncompressed: a small packed file can become
/// an image of any size.
/// @throws std::runtime_error  the file cannot be read or is none of these; names it. @threads any thread.
ImageFileLayout pgmLayout(const std::string& strPath);
ImageFileLayout tiffLayout(const std::string& strPath);

/// Writes the image of the file, imageBytes() of the layout, which must be that of the file.
/// @throws std::runtime_error  the file is damaged, has a sample above its maxval or no longer the layout; names it.
///                             The memory at pImage may be written in part. @threads any thread.
void readPgm(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage);
void readTiff(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage);

/// What another layout has that differs from this one ("width 640 instead of 512"); empty when nothing does. Two
/// largest values of one format count as the same.
std::string layoutDifference(const ImageFileLayout& rExpected, const ImageFileLayout& rOther);

/// Throws std::runtime_error with path and text.
[[noreturn]] void failImageFile(const std::string& strPath, const std::string& strText);

}  // namespace StandIn
}  // namespace XAPEL2
