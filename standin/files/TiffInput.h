// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF file that is read and may come from anywhere.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

/// A regular file with a directory, at first the first one, that the TIFF library has read. Before that, the
/// directory's size is checked: the library keeps the values of every tag in memory, also of unknown ones, and its own
/// limit is one for each allocation. Memory and time are thereby bounded by a few times the size of the file.
/// @threads any, one object from one thread at a time.
class CTiffInput {
public:
    /// Does not wait, neither for a pipe nor for a device. @throws CFileError
    explicit CTiffInput(const std::string& strFile);

    /// Goes on to the next directory, checked as the first one was; false, and nothing changed, where there is none.
    /// @throws CFileError
    bool nextPage();

    /// The place of the present directory in the file; and goes to the one that stands there, checked as the first one
    /// was. @throws CFileError
    uint64_t place() const { return TIFFCurrentDirOffset(get()); }
    void goTo(uint64_t uPlace);

    TIFF* get() const { return m_tiff.get(); }

    /// The value of a tag with a 16-bit value, its default where the file has none, 0 where there is neither.
    uint16_t tag(uint32_t uTag) const;

    /// Checks that the samples are uncompressed, side by side, in sound strips that lie within the file, so that the
    /// image takes no more memory than the file has bytes. Nothing is allocated for it.
    /// @throws CFileError
    void checkStrips(uint64_t nHeight, uint64_t nRowBytes) const;

    /// Reads the image, nHeight * nRowBytes bytes. Needs checkStrips first, with the same values.
    /// @throws CFileError  the memory at pImage may be written in part.
    void read(uint64_t nHeight, uint64_t nRowBytes, void* pImage) const;

    /// The same for images in tiles, or packed by LZW, Deflate or PackBits: an image takes unpackedMax() bytes at most.
    /// @throws CFileError
    void checkImage(uint64_t nWidth, uint64_t nHeight, uint64_t nPixelBytes) const;
    /// @throws CFileError  the memory at pImage may be written in part.
    void readImage(uint64_t nWidth, uint64_t nHeight, uint64_t nPixelBytes, void* pImage) const;

private:
    uint64_t rowsPerStrip(uint64_t nHeight) const;
    void checkOrder() const;
    void checkPlaces(uint64_t nCount) const;
    std::array<uint32_t, 2> tileSize() const;

    CFileDescriptor m_file;
    uint64_t m_nFileBytes;
    uint64_t m_uNextPage = 0;  // place of the next directory, 0: none
    CTiffHandle m_tiff;
};

}  // namespace StandIn
}  // namespace XAPEL2
