// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading reference files, which may come from anywhere.

#include <utility>
#include <vector>

#include "standin/files/TiffInput.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

void require(bool bGood, const char* strElse) {
    if (!bGood)
        throw CFileError(strElse);
}

/// Kind, format and figures from the description, size from the tags.
ReferenceImage readDescription(const CTiffInput& rTiff) {
    char* pText = nullptr;
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    require(TIFFGetField(rTiff.get(), TIFFTAG_IMAGEDESCRIPTION, &pText) == 1 && pText, "the file has no description");
    require(TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth) == 1 &&
                TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight) == 1,
            "the file has no size");
    return parseDescription(pText, nWidth, nHeight);
}

void checkSamples(const CTiffInput& rTiff, const PixelFormat& rFormat) {
    require(rTiff.tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_IEEEFP && rTiff.tag(TIFFTAG_BITSPERSAMPLE) == 32,
            "the samples are not 32-bit floating point");
    require(rTiff.tag(TIFFTAG_SAMPLESPERPIXEL) == rFormat.nChannels,
            "the samples per pixel do not fit the pixel format");
    require(rTiff.tag(TIFFTAG_PHOTOMETRIC) == (rFormat.nChannels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK),
            "the samples are not grey or RGB values");
}

/// The second page, which the file has been moved to.
void readDefects(const CTiffInput& rTiff, ReferenceImage& rReference) {
    require(rReference.eKind == eReferenceLight, "only a light reference has a second page, the defect map");
    const ImageLayout& rLayout = rReference.sLayout;
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    require(TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth) == 1 &&
                TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight) == 1 && nWidth == rLayout.nWidth &&
                nHeight == rLayout.nHeight,
            "the defect map has another size than the reference");
    require(rTiff.tag(TIFFTAG_BITSPERSAMPLE) == 8 && rTiff.tag(TIFFTAG_SAMPLESPERPIXEL) == 1 &&
                rTiff.tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_UINT &&
                rTiff.tag(TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_MINISBLACK,
            "the defect map does not have 8 bits per pixel");
    rTiff.checkStrips(rLayout.nHeight, rLayout.nWidth);
    std::vector<uint8_t> vecMap(static_cast<std::size_t>(rLayout.nWidth * rLayout.nHeight));
    rTiff.read(rLayout.nHeight, rLayout.nWidth, vecMap.data());
    uint64_t nMarked = 0;
    for (const uint8_t uBits : vecMap) {
        require((uBits & ~eDefectBits) == 0, "the defect map has unknown bits");
        nMarked += uBits != 0;
    }
    require(nMarked <= ReferenceImage::defectsMax(rLayout), "the defect map marks too many pixels");
    rReference.vecDefects = std::move(vecMap);
}

}  // namespace

ReferenceImage readReferenceFile(const std::string& strFile) {
    CTiffInput sTiff(strFile);
    ReferenceImage sReference = readDescription(sTiff);
    const ImageLayout& rLayout = sReference.sLayout;
    const uint64_t nRowBytes = rLayout.samplesPerRow() * sizeof(float);
    checkSamples(sTiff, *rLayout.pFormat);
    sTiff.checkStrips(rLayout.nHeight, nRowBytes);
    sReference.vSamples.resize(rLayout.samples());
    sTiff.read(rLayout.nHeight, nRowBytes, sReference.vSamples.data());
    const auto fFull = static_cast<float>(rLayout.pFormat->fullScale());
    for (const float fSample : sReference.vSamples)
        require(fSample >= 0.0F && fSample <= fFull, "a sample is no number from 0 to full scale");
    if (sTiff.nextPage()) {
        readDefects(sTiff, sReference);
        require(!sTiff.nextPage(), "the file has more than two pages");
    }
    return sReference;
}

}  // namespace StandIn
}  // namespace XAPEL2
