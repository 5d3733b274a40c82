// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A TIFF file that is read and may come from anywhere.

#include "standin/files/TiffInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "standin/files/ImageFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr uint64_t DIRECTORY_ENTRIES_MAX = 64;
constexpr uint32_t TILE_SIDE_MAX = 8192;
constexpr uint64_t TILE_BYTES_MAX = 16U << 20;

void require(bool bGood, const char* strElse) {
    if (!bGood) {
        throw CFileError(strElse);
    }
}

int openFile(const std::string& strFile) {
    require(!strFile.empty() && strFile.find('\0') == std::string::npos, "no file name");
    // Without O_NONBLOCK opening a pipe would wait for a writer.
    const int iFile = open(strFile.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (iFile < 0) {
        throw CFileError("cannot open: " + systemError());
    }
    return iFile;
}

/// Little or big endian number of nBytes bytes.
uint64_t number(const uint8_t* pBytes, std::size_t nBytes, bool bBig) {
    uint64_t uValue = 0;
    for (std::size_t i = 0; i < nBytes; ++i) {
        uValue = uValue << 8 | pBytes[bBig ? i : nBytes - 1 - i];
    }
    return uValue;
}

void readAt(int iFile, uint64_t uOffset, uint8_t* pBytes, std::size_t nBytes, const char* strElse) {
    ssize_t nRead = 0;
    do {
        nRead = uOffset <= INT64_MAX ? pread(iFile, pBytes, nBytes, static_cast<off_t>(uOffset)) : 0;
    } while (nRead < 0 && errno == EINTR);
    require(nRead == static_cast<ssize_t>(nBytes), strElse);
}

uint64_t sizeOf(int iFile) {
    struct stat status = {};
    require(fstat(iFile, &status) == 0 && S_ISREG(status.st_mode), "not a regular file");
    return static_cast<uint64_t>(status.st_size);
}

/// Checks that the directory at uPage, or the first one for 0, has few tags with no more values together than the file
/// has bytes. What is wrong otherwise is left to the TIFF library. Returns the place of the next directory, 0 where
/// there is none.
uint64_t checkDirectory(int iFile, uint64_t nFileBytes, uint64_t uPage) {
    std::array<uint8_t, 16> aHead = {};
    readAt(iFile, 0, aHead.data(), aHead.size(), "not a TIFF file");
    require((aHead[0] == 'I' || aHead[0] == 'M') && aHead[1] == aHead[0], "not a TIFF file");
    const bool bBig = aHead[0] == 'M';
    const bool bLarge = number(&aHead[2], 2, bBig) == 43;  // BigTIFF: 64-bit offsets and counts
    const std::size_t nCount = bLarge ? 8 : 2;
    const std::size_t nEntry = bLarge ? 20 : 12;
    const uint64_t uFirst = bLarge ? number(&aHead[8], 8, bBig) : number(&aHead[4], 4, bBig);
    const uint64_t uDirectory = uPage != 0 ? uPage : uFirst;
    std::vector<uint8_t> vecBytes(DIRECTORY_ENTRIES_MAX * nEntry);
    readAt(iFile, uDirectory, vecBytes.data(), nCount, "the directory lies outside the file");
    const uint64_t nEntries = number(vecBytes.data(), nCount, bBig);
    require(nEntries <= DIRECTORY_ENTRIES_MAX, "the directory has too many tags");
    readAt(iFile, uDirectory + nCount, vecBytes.data(), nEntries * nEntry, "the directory lies outside the file");
    uint64_t nValues = 0;
    for (uint64_t i = 0; i < nEntries; ++i) {
        // An entry is tag and type, 2 bytes each, the number of values, and the values or their place.
        const uint64_t n = number(&vecBytes[i * nEntry + 4], bLarge ? 8 : 4, bBig);
        require(n <= nFileBytes - nValues, "the tags claim more values than the file has bytes");
        nValues += n;
    }
    std::array<uint8_t, 8> aNext = {};
    const uint64_t uEnd = uDirectory + nCount + nEntries * nEntry;
    const std::size_t nPlace = bLarge ? 8 : 4;
    if (uEnd + nPlace > nFileBytes) {
        return 0;  // cut off there: the TIFF library takes it for the last one too
    }
    readAt(iFile, uEnd, aNext.data(), nPlace, "the directory lies outside the file");
    return number(aNext.data(), nPlace, bBig);
}

}  // namespace

// m: no memory map, which would raise a signal when somebody shortens the file; c: strips as they are in the file.
CTiffInput::CTiffInput(const std::string& strFile)
    : m_file(openFile(strFile)),
      m_nFileBytes(sizeOf(m_file.get())),
      m_uNextPage(checkDirectory(m_file.get(), m_nFileBytes, 0)),
      m_tiff(m_file.get(), "rmc", m_nFileBytes) {}

bool CTiffInput::nextPage() {
    if (m_uNextPage == 0) {
        return false;
    }
    m_uNextPage = checkDirectory(m_file.get(), m_nFileBytes, m_uNextPage);
    m_tiff.check(TIFFReadDirectory(get()) == 1, "the next page cannot be read");
    return true;
}

void CTiffInput::goTo(uint64_t uPlace) {
    m_uNextPage = checkDirectory(m_file.get(), m_nFileBytes, uPlace);
    m_tiff.check(TIFFSetSubDirectory(get(), uPlace) == 1, "the page cannot be read");
}

uint16_t CTiffInput::tag(uint32_t uTag) const {
    uint16_t uValue = 0;
    TIFFGetFieldDefaulted(get(), uTag, &uValue);
    return uValue;
}

uint64_t CTiffInput::rowsPerStrip(uint64_t nHeight) const {
    uint32_t nRows = 0;
    TIFFGetFieldDefaulted(get(), TIFFTAG_ROWSPERSTRIP, &nRows);
    return std::min<uint64_t>(nRows, nHeight);
}

void CTiffInput::checkOrder() const {
    require(tag(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_CONTIG, "the samples are in planes");
    require(tag(TIFFTAG_ORIENTATION) == ORIENTATION_TOPLEFT, "the image does not begin at the top left");
    require(tag(TIFFTAG_FILLORDER) == FILLORDER_MSB2LSB, "the bits are in reverse order");
}

void CTiffInput::checkPlaces(uint64_t nCount) const {
    for (uint64_t i = 0; i < nCount; ++i) {
        const uint64_t uOffset = TIFFGetStrileOffset(get(), static_cast<uint32_t>(i));
        const uint64_t nFound = TIFFGetStrileByteCount(get(), static_cast<uint32_t>(i));
        require(nFound != 0 && uOffset <= m_nFileBytes && nFound <= m_nFileBytes - uOffset,
                "a part of the image lies outside the file");
    }
}

std::array<uint32_t, 2> CTiffInput::tileSize() const {
    std::array<uint32_t, 2> aSides{};
    TIFFGetField(get(), TIFFTAG_TILEWIDTH, &aSides[0]);
    TIFFGetField(get(), TIFFTAG_TILELENGTH, &aSides[1]);
    return aSides;
}

void CTiffInput::checkImage(uint64_t nWidth, uint64_t nHeight, uint64_t nPixelBytes) const {
    const uint16_t uPacking = tag(TIFFTAG_COMPRESSION);
    const bool bTiled = TIFFIsTiled(get()) != 0;
    if (uPacking == COMPRESSION_NONE && !bTiled) {
        return checkStrips(nHeight, nWidth * nPixelBytes);
    }
    require(uPacking == COMPRESSION_NONE || uPacking == COMPRESSION_LZW || uPacking == COMPRESSION_ADOBE_DEFLATE ||
                uPacking == COMPRESSION_DEFLATE || uPacking == COMPRESSION_PACKBITS,
            "the samples are packed by another way than LZW, Deflate and PackBits");
    checkOrder();
    require(nWidth * nHeight * nPixelBytes <= unpackedMax(m_nFileBytes),
            "the image is too large for such a small file");
    if (!bTiled) {
        const uint64_t nRows = rowsPerStrip(nHeight);
        require(nRows != 0, "the strips have no rows");
        require(TIFFScanlineSize64(get()) == nWidth * nPixelBytes, "the rows have a wrong size");
        require(TIFFNumberOfStrips(get()) == (nHeight + nRows - 1) / nRows, "wrong number of strips");
        return checkPlaces(TIFFNumberOfStrips(get()));
    }
    const auto [nTileWidth, nTileHeight] = tileSize();
    require(nTileWidth != 0 && nTileHeight != 0 && nTileWidth <= TILE_SIDE_MAX && nTileHeight <= TILE_SIDE_MAX,
            "the tiles have an impossible size");
    const uint64_t nTileBytes = nTileWidth * nPixelBytes * nTileHeight;
    require(nTileBytes <= TILE_BYTES_MAX && TIFFTileSize64(get()) == nTileBytes, "the tiles have a wrong size");
    const uint64_t nTiles = ((nWidth + nTileWidth - 1) / nTileWidth) * ((nHeight + nTileHeight - 1) / nTileHeight);
    require(TIFFNumberOfTiles(get()) == nTiles, "wrong number of tiles");
    require(nTiles * nTileBytes <= unpackedMax(m_nFileBytes), "the tiles are too large for such a small file");
    checkPlaces(nTiles);
}

void CTiffInput::readImage(uint64_t nWidth, uint64_t nHeight, uint64_t nPixelBytes, void* pImage) const {
    const uint64_t nRowBytes = nWidth * nPixelBytes;
    if (!TIFFIsTiled(get())) {
        return read(nHeight, nRowBytes, pImage);
    }
    const auto [nTileWidth, nTileHeight] = tileSize();
    std::vector<uint8_t> vecTile(nTileWidth * nPixelBytes * nTileHeight);
    uint32_t iTile = 0;
    for (uint64_t iY = 0; iY < nHeight; iY += nTileHeight) {
        for (uint64_t iX = 0; iX < nWidth; iX += nTileWidth, ++iTile) {
            const auto nBytes = static_cast<tmsize_t>(vecTile.size());
            m_tiff.check(TIFFReadEncodedTile(get(), iTile, vecTile.data(), nBytes) == nBytes, "cannot read a tile");
            const uint64_t nCopied = std::min<uint64_t>(nTileWidth, nWidth - iX) * nPixelBytes;
            for (uint64_t iRow = 0; iRow < std::min<uint64_t>(nTileHeight, nHeight - iY); ++iRow) {
                std::memcpy(static_cast<uint8_t*>(pImage) + (iY + iRow) * nRowBytes + iX * nPixelBytes,
                            vecTile.data() + iRow * nTileWidth * nPixelBytes, nCopied);
            }
        }
    }
}

void CTiffInput::checkStrips(uint64_t nHeight, uint64_t nRowBytes) const {
    require(tag(TIFFTAG_COMPRESSION) == COMPRESSION_NONE, "the samples are compressed");
    require(!TIFFIsTiled(get()), "the samples are in tiles");
    checkOrder();
    require(nHeight != 0 && nRowBytes != 0 && nHeight <= m_nFileBytes / nRowBytes,
            "the file is too short for its samples");
    require(TIFFScanlineSize64(get()) == nRowBytes, "the rows have a wrong size");
    const uint64_t nRows = rowsPerStrip(nHeight);
    require(nRows != 0, "the strips have no rows");
    const uint64_t nStrips = (nHeight + nRows - 1) / nRows;
    require(TIFFNumberOfStrips(get()) == nStrips, "wrong number of strips");
    for (uint64_t i = 0; i < nStrips; ++i) {
        const uint64_t nBytes = std::min(nRows, nHeight - i * nRows) * nRowBytes;
        const uint64_t uOffset = TIFFGetStrileOffset(get(), static_cast<uint32_t>(i));
        const uint64_t nFound = TIFFGetStrileByteCount(get(), static_cast<uint32_t>(i));
        // Some writers fill up the last strip.
        require(nFound == nBytes || nFound == nRows * nRowBytes, "a strip has a wrong size");
        require(uOffset <= m_nFileBytes && nBytes <= m_nFileBytes - uOffset, "a strip lies outside the file");
    }
}

void CTiffInput::read(uint64_t nHeight, uint64_t nRowBytes, void* pImage) const {
    const uint64_t nRows = rowsPerStrip(nHeight);
    auto* pBytes = static_cast<uint8_t*>(pImage);
    uint32_t iStrip = 0;
    for (uint64_t iY = 0; iY < nHeight; iY += nRows, ++iStrip) {
        // Straight to its place: where nothing is packed the library keeps no copy of the strip.
        const auto nBytes = static_cast<tmsize_t>(std::min(nRows, nHeight - iY) * nRowBytes);
        m_tiff.check(TIFFReadEncodedStrip(get(), iStrip, pBytes, nBytes) == nBytes, "cannot read the samples");
        pBytes += nBytes;
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
