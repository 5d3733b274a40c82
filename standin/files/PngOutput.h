// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes an image as a PNG file.

#pragma once

#include <cstdint>
#include <string>

namespace XAPEL2 {
namespace StandIn {

/// An image for a PNG file.
struct PngImage {
    uint64_t nWidth = 0, nHeight = 0;    ///< pixels
    unsigned nChannels = 1;              ///< 1, or 3 for red, green, blue
    unsigned nBits = 8;                  ///< of a sample: 8 or 16
    const uint8_t* pSamples = nullptr;   ///< row by row without gaps, the high byte first; borrowed
    const char* pDescription = nullptr;  ///< borrowed; null: none
};

/// @param[in] iFile  empty and open for writing; borrowed.
/// @throws CFileError
void writePng(int iFile, const PngImage& rImage);

/// The description in a PNG file; empty where there is none or the file cannot be read.
std::string pngDescription(const std::string& strPath);

}  // namespace StandIn
}  // namespace XAPEL2
