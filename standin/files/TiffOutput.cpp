// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes an image as a TIFF file.

#include "standin/files/TiffOutput.h"

#include <algorithm>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr uint64_t STRIP_BYTES = 1 << 20;
constexpr uint64_t CLASSIC_BYTES_MAX = 4'000'000'000;  // a classic TIFF has 32-bit offsets

// Numbers pass as varargs: of the type that the library reads.
bool setTags(TIFF* pTiff, const TiffImage& rImage, uint64_t nRowsPerStrip) {
    const bool bColour = rImage.nChannels == 3;
    const int iFormat = rImage.nBits == 32 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT;
    return TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(rImage.nWidth)) &&
           TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(rImage.nHeight)) &&
           TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(rImage.nChannels)) &&
           TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(rImage.nBits)) &&
           TIFFSetField(pTiff, TIFFTAG_SAMPLEFORMAT, iFormat) &&
           TIFFSetField(pTiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
           TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, bColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
           TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
           TIFFSetField(pTiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
           TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(nRowsPerStrip)) &&
           (rImage.uLargest == 0 || TIFFSetField(pTiff, TIFFTAG_MAXSAMPLEVALUE, static_cast<int>(rImage.uLargest))) &&
           (rImage.pDescription == nullptr || TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, rImage.pDescription)) &&
           (rImage.pPageName == nullptr || TIFFSetField(pTiff, TIFFTAG_PAGENAME, rImage.pPageName));
}

uint64_t rowBytes(const TiffImage& rImage) {
    return rImage.nWidth * rImage.nChannels * (rImage.nBits / 8);
}

void writePage(const CTiffHandle& rTiff, const TiffPage& rPage) {
    const TiffImage& rImage = rPage.image;
    const uint64_t nRowBytes = rowBytes(rImage);
    const uint64_t nRowsPerStrip = std::max<uint64_t>(1, STRIP_BYTES / nRowBytes);
    rTiff.check(setTags(rTiff.get(), rImage, nRowsPerStrip), "the TIFF library refuses a tag");
    // The library takes a pointer to non-const, but changes the samples only to swap the order of their bytes.
    auto* pBytes = const_cast<uint8_t*>(static_cast<const uint8_t*>(rPage.pSamples));
    uint32_t iStrip = 0;
    for (uint64_t iY = 0; iY < rImage.nHeight; iY += nRowsPerStrip, ++iStrip) {
        const auto nBytes = static_cast<tmsize_t>(std::min(nRowsPerStrip, rImage.nHeight - iY) * nRowBytes);
        rTiff.check(TIFFWriteEncodedStrip(rTiff.get(), iStrip, pBytes, nBytes) == nBytes, "cannot write the samples");
        pBytes += nBytes;
    }
}

}  // namespace

void writeTiff(int iFile, const std::vector<TiffPage>& rPages) {
    uint64_t nBytes = 0;
    for (const TiffPage& rPage : rPages) {
        nBytes += rPage.image.nHeight * rowBytes(rPage.image);
    }
    const CTiffHandle tiff(iFile, nBytes > CLASSIC_BYTES_MAX ? "w8" : "w", 0);
    for (std::size_t i = 0; i < rPages.size(); ++i) {
        tiff.check(i == 0 || TIFFWriteDirectory(tiff.get()) == 1, "cannot write the directory");
        writePage(tiff, rPages[i]);
    }
    // Closing would flush too, but reports nothing.
    tiff.check(TIFFFlush(tiff.get()) == 1, "cannot write the directory");
}

}  // namespace StandIn
}  // namespace XAPEL2
