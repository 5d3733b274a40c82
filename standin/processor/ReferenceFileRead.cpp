// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading reference files, which may come from anywhere.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "ReferenceDescription.h"
#include "ReferenceFile.h"
#include "TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr uint64_t DIRECTORY_ENTRIES_MAX = 64;

void require(bool bGood, const char* strElse) {
    if (!bGood)
        throw CReferenceFileError(strElse);
}

/// Little or big endian number of nBytes bytes.
uint64_t number(const uint8_t* pBytes, std::size_t nBytes, bool bBig) {
    uint64_t uValue = 0;
    for (std::size_t i = 0; i < nBytes; ++i) uValue = uValue << 8 | pBytes[bBig ? i : nBytes - 1 - i];
    return uValue;
}

/// The TIFF library keeps the values of every tag that it meets, also of unknown ones, in memory: bounds their number
/// before it sees the file. What is wrong otherwise is left to the library.
void checkDirectorySize(int iFile) {
    std::array<uint8_t, 16> aHead = {};
    require(pread(iFile, aHead.data(), aHead.size(), 0) == static_cast<ssize_t>(aHead.size()), "not a TIFF file");
    const bool bBig = aHead[0] == 'M';
    const bool bLarge = number(&aHead[2], 2, bBig) == 43;  // BigTIFF: 64-bit offsets
    const uint64_t uDirectory = bLarge ? number(&aHead[8], 8, bBig) : number(&aHead[4], 4, bBig);
    const std::size_t nCount = bLarge ? 8 : 2;
    std::array<uint8_t, 8> aCount = {};
    require(uDirectory <= INT64_MAX, "the directory lies outside the file");
    require(pread(iFile, aCount.data(), nCount, static_cast<off_t>(uDirectory)) == static_cast<ssize_t>(nCount),
            "the directory lies outside the file");
    require(number(aCount.data(), nCount, bBig) <= DIRECTORY_ENTRIES_MAX, "the directory has too many tags");
}

/// The value of a tag with a 16-bit value, its default where the file has none.
uint16_t tag(const CTiffHandle& rTiff, ttag_t uTag) {
    uint16_t uValue = 0;
    TIFFGetFieldDefaulted(rTiff.get(), uTag, &uValue);
    return uValue;
}

/// Kind, format and figures from the description, size from the tags.
ReferenceImage readDescription(const CTiffHandle& rTiff) {
    char* pText = nullptr;
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    require(TIFFGetField(rTiff.get(), TIFFTAG_IMAGEDESCRIPTION, &pText) == 1 && pText, "the file has no description");
    require(TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth) == 1 &&
                TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight) == 1,
            "the file has no size");
    return parseDescription(pText, nWidth, nHeight);
}

/// Checks that the file holds the samples of the layout, uncompressed, within its size.
/// @return rows of a strip
std::size_t checkLayout(const CTiffHandle& rTiff, const ImageLayout& rLayout, uint64_t nFileBytes) {
    TIFF* pTiff = rTiff.get();
    const bool bColour = rLayout.pFormat->nChannels == 3;
    require(tag(rTiff, TIFFTAG_COMPRESSION) == COMPRESSION_NONE, "the samples are compressed");
    require(!TIFFIsTiled(pTiff), "the samples are in tiles");
    require(tag(rTiff, TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_IEEEFP && tag(rTiff, TIFFTAG_BITSPERSAMPLE) == 32,
            "the samples are not 32-bit floating point");
    require(tag(rTiff, TIFFTAG_SAMPLESPERPIXEL) == rLayout.pFormat->nChannels,
            "the samples per pixel do not fit the pixel format");
    require(tag(rTiff, TIFFTAG_PLANARCONFIG) == PLANARCONFIG_CONTIG, "the samples are in planes");
    require(tag(rTiff, TIFFTAG_PHOTOMETRIC) == (bColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK),
            "the samples are not grey or RGB values");
    require(tag(rTiff, TIFFTAG_ORIENTATION) == ORIENTATION_TOPLEFT, "the image is turned");
    require(tag(rTiff, TIFFTAG_FILLORDER) == FILLORDER_MSB2LSB, "the bits are in reverse order");

    uint32_t nRowsPerStrip = 0;
    require(TIFFGetFieldDefaulted(pTiff, TIFFTAG_ROWSPERSTRIP, &nRowsPerStrip) == 1 && nRowsPerStrip != 0,
            "the strips have no rows");
    const uint64_t nRows = std::min<uint64_t>(nRowsPerStrip, rLayout.nHeight);
    const uint64_t nRowBytes = rLayout.samplesPerRow() * sizeof(float);
    const uint64_t nStrips = (rLayout.nHeight + nRows - 1) / nRows;
    require(TIFFNumberOfStrips(pTiff) == nStrips && nStrips * nRows >= rLayout.nHeight, "wrong number of strips");
    require(rLayout.nHeight * nRowBytes <= nFileBytes, "the file is too short for its samples");
    for (uint64_t i = 0; i < nStrips; ++i) {
        const uint64_t nBytes = std::min(nRows, rLayout.nHeight - i * nRows) * nRowBytes;
        const uint64_t uOffset = TIFFGetStrileOffset(pTiff, static_cast<uint32_t>(i));
        require(TIFFGetStrileByteCount(pTiff, static_cast<uint32_t>(i)) == nBytes, "a strip has a wrong size");
        require(uOffset <= nFileBytes && nBytes <= nFileBytes - uOffset, "a strip lies outside the file");
    }
    return static_cast<std::size_t>(nRows);
}

void readSamples(const CTiffHandle& rTiff, std::size_t nRowsPerStrip, ReferenceImage& rReference) {
    const std::size_t nStrip = rReference.sLayout.samplesPerRow() * nRowsPerStrip;
    const auto fFull = static_cast<float>(rReference.sLayout.pFormat->fullScale());
    rReference.vSamples.resize(rReference.sLayout.samples());
    uint32_t iStrip = 0;
    for (std::size_t iFirst = 0; iFirst < rReference.vSamples.size(); iFirst += nStrip, ++iStrip) {
        float* pSamples = &rReference.vSamples[iFirst];
        const std::size_t nSamples = std::min(nStrip, rReference.vSamples.size() - iFirst);
        const auto nBytes = static_cast<tmsize_t>(nSamples * sizeof(float));
        rTiff.check(TIFFReadEncodedStrip(rTiff.get(), iStrip, pSamples, nBytes) == nBytes, "cannot read the samples");
        for (std::size_t i = 0; i < nSamples; ++i)
            require(pSamples[i] >= 0.0F && pSamples[i] <= fFull, "a sample is no number from 0 to full scale");
    }
}

}  // namespace

ReferenceImage readReferenceFile(const std::string& strFile) {
    require(!strFile.empty() && strFile.find('\0') == std::string::npos, "no file name");
    // Without O_NONBLOCK opening a pipe would wait for a writer.
    const CFileDescriptor sFile(open(strFile.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (sFile.get() < 0)
        throw CReferenceFileError("cannot open: " + systemError());
    struct stat sStatus = {};
    require(fstat(sFile.get(), &sStatus) == 0 && S_ISREG(sStatus.st_mode), "not a regular file");
    checkDirectorySize(sFile.get());
    // m: no memory map, which would raise a signal when somebody shortens the file; c: strips as they are in the file.
    const CTiffHandle sTiff(sFile.get(), "rmc");
    ReferenceImage sReference = readDescription(sTiff);
    const std::size_t nRowsPerStrip = checkLayout(sTiff, sReference.sLayout, static_cast<uint64_t>(sStatus.st_size));
    readSamples(sTiff, nRowsPerStrip, sReference);
    return sReference;
}

}  // namespace StandIn
}  // namespace XAPEL2
