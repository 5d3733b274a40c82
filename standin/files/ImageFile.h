// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Image files: binary PGM, PPM, TIFF and PNG. Every field of a file is checked before it is used.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

/// What the header of an image file says.
struct ImageFileLayout {
    uint64_t nWidth = 0, nHeight = 0;      ///< pixels, 1 to IMAGE_SIDE_MAX
    const PixelFormat* pFormat = nullptr;  ///< the smallest mono format that holds the samples, or RGB8
    uint32_t uMaxval = 0;                  ///< largest value that a sample may have
    std::vector<uint64_t> vecPages{};      ///< of a TIFF: places of its images; empty: there is one

    /// Images of the file, all alike.
    std::size_t pages() const { return vecPages.empty() ? 1 : vecPages.size(); }
};

/// The name of image iPage of a file: that of the file without folder and suffix, with "_0003" behind it where there
/// are several.
std::string imageName(const std::string& strPath, std::size_t iPage, std::size_t nPages);

/// True for a name that ends as those of image files do, in capitals or not: .pgm, .ppm, .tif, .tiff, .png.
bool hasImageSuffix(const std::string& strPath);

/// The layout of an image file of any kind, which is told by its first bytes, or else by its name.
/// @throws std::runtime_error  as those of its kind below. @threads any thread.
ImageFileLayout imageLayout(const std::string& strPath);

/// Reads image iPage of the file, as those of its kind below do. @threads any thread.
void readImageFile(const std::string& strPath, const ImageFileLayout& rLayout, std::size_t iPage, void* pImage);

/// Reads the header of a file and checks that the image is there in full: a PGM ends with its last sample and has one
/// of Mono8, Mono10, Mono12, Mono14, Mono16 by its maxval; a PPM is RGB8 or RGB16. A TIFF holds images in strips or
/// tiles, grey (black is 0) or RGB, with 8 or 16 bits, the first line at the top, all of one layout; small pictures and
/// masks among them are left out. A PNG is grey or RGB, with 8 or 16 bits. Packed TIFFs (LZW, Deflate, PackBits) and
/// PNGs may be images of 32 MB, or of a hundred times the file: a small file could become an image of any size.
/// @throws std::runtime_error  the file cannot be read or is none of these; names it. @threads any thread.
ImageFileLayout pgmLayout(const std::string& strPath);
ImageFileLayout tiffLayout(const std::string& strPath);
ImageFileLayout pngLayout(const std::string& strPath);

/// Writes the image of the file, imageBytes() of the layout, which must be that of the file.
/// @throws std::runtime_error  the file is damaged, has a sample above its maxval or no longer the layout; names it.
///                             The memory at pImage may be written in part. @threads any thread.
void readPgm(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage);
void readTiff(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage, std::size_t iPage = 0);
void readPng(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage);

/// What the file says of its image: the first comment of a pixmap, the image description of a TIFF, the Description of
/// a PNG, up to a kilobyte of it. Empty where there is none, or the file cannot be read. @throws std::bad_alloc
/// @threads any thread.
std::string imageDescription(const std::string& strPath);

/// Most bytes of an image from a packed file of nFileBytes bytes.
constexpr uint64_t unpackedMax(uint64_t nFileBytes) {
    constexpr uint64_t LEAST = 32U << 20, TIMES = 100;
    return nFileBytes * TIMES > LEAST ? nFileBytes * TIMES : LEAST;
}

/// What another layout has that differs from this one ("width 640 instead of 512"); empty when nothing does. Two
/// largest values of one format count as the same.
std::string layoutDifference(const ImageFileLayout& rExpected, const ImageFileLayout& rOther);

/// Throws std::runtime_error with path and text.
[[noreturn]] void failImageFile(const std::string& strPath, const std::string& strText);

}  // namespace StandIn
}  // namespace XAPEL2
