// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading and writing of image files by means of the tests' own, so that a fault of the code under test shows.

#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace XAPEL2 {
namespace Test {

/// Samples row by row, channels of a pixel side by side.
template <typename T>
struct Image {
    std::size_t nWidth = 0, nHeight = 0, nChannels = 1;
    unsigned uFullScale = 0;  ///< maxval of a pixmap, 0 for TIFF
    std::vector<T> aSamples;
};

/// Reads a binary PGM or PPM file. @throws std::runtime_error  it is none, or too short or too long.
Image<uint16_t> readPixmap(const std::filesystem::path& rFile);

/// Writes a binary PGM file.
void writePgm(const std::filesystem::path& rFile, const Image<uint16_t>& rImage);

/// Reads a TIFF of 32-bit float samples. @throws std::runtime_error  it is none.
Image<float> readFloatTiff(const std::filesystem::path& rFile);

/// Reads a PNG file as grey of 8 bit. @throws std::runtime_error  it is none.
Image<uint16_t> readPng(const std::filesystem::path& rFile);

}  // namespace Test
}  // namespace XAPEL2
