// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes an image as a TIFF file.

#pragma once

#include <cstdint>
#include <vector>

#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

/// What a TIFF file says of its image.
struct TiffImage {
    uint64_t nWidth = 0, nHeight = 0;    ///< pixels
    uint16_t nChannels = 1;              ///< 1, or 3 for red, green, blue
    uint16_t nBits = 0;                  ///< of a sample: unsigned integers of 8 or 16, floating point of 32
    uint16_t uLargest = 0;               ///< largest value that a sample may have; 0: not said
    const char* pDescription = nullptr;  ///< borrowed; null: none
    const char* pPageName = nullptr;     ///< the same
};

/// One page of a file.
struct TiffPage {
    TiffImage image;
    const void* pSamples = nullptr;  ///< row by row without gaps, in the byte order of this machine; borrowed
};

/// Writes an uncompressed file, the first line at the top, and flushes it out of the TIFF library.
/// @param[in] iFile      empty and open for reading and writing; borrowed.
/// @param[in] rPages  one or more; any reader shows the first.
/// @throws CFileError
void writeTiff(int iFile, const std::vector<TiffPage>& rPages);

}  // namespace StandIn
}  // namespace XAPEL2
