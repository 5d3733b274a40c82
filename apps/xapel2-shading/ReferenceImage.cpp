// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading the mean image of a reference file.

#include "ReferenceImage.h"

#include <memory>
#include <stdexcept>

#include <tiffio.h>

namespace XAPEL2 {
namespace App {

ReferenceImage readReferenceImage(const std::filesystem::path& rFile) {
    const std::unique_ptr<TIFF, void (*)(TIFF*)> pTiff(TIFFOpen(rFile.c_str(), "r"), TIFFClose);
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    uint16_t nBits = 0;
    uint16_t nChannels = 1;
    uint16_t uKind = 0;
    if (pTiff == nullptr || TIFFGetField(pTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth) == 0 ||
        TIFFGetField(pTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight) == 0 ||
        TIFFGetField(pTiff.get(), TIFFTAG_BITSPERSAMPLE, &nBits) == 0 ||
        TIFFGetField(pTiff.get(), TIFFTAG_SAMPLEFORMAT, &uKind) == 0 || nBits != 32 || uKind != SAMPLEFORMAT_IEEEFP ||
        TIFFGetFieldDefaulted(pTiff.get(), TIFFTAG_SAMPLESPERPIXEL, &nChannels) == 0) {
        throw std::runtime_error(rFile.string() + " is no reference file");
    }
    ReferenceImage Result;
    Result.nWidth = nWidth;
    Result.nHeight = nHeight;
    const std::size_t nRow = std::size_t{nWidth} * nChannels;
    Result.aSamples.resize(nRow * nHeight);
    if (static_cast<std::size_t>(TIFFScanlineSize(pTiff.get())) != nRow * sizeof(float)) {
        throw std::runtime_error(rFile.string() + " has lines of an unexpected size");
    }
    for (uint32_t iRow = 0; iRow < nHeight; ++iRow) {
        if (TIFFReadScanline(pTiff.get(), &Result.aSamples[iRow * nRow], iRow, 0) != 1) {
            throw std::runtime_error(rFile.string() + " ends too early");
        }
    }
    return Result;
}

}  // namespace App
}  // namespace XAPEL2
