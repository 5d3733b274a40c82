// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads TIFF files.

#include "standin/files/ImageFile.h"
#include "standin/files/TiffInput.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

void require(bool bFine, const std::string& strText) {
    if (!bFine) {
        throw CFileError(strText);
    }
}

const PixelFormat* formatOfTags(const CTiffInput& rTiff) {
    const uint16_t uBits = rTiff.tag(TIFFTAG_BITSPERSAMPLE);
    const uint16_t uSamples = rTiff.tag(TIFFTAG_SAMPLESPERPIXEL);
    const bool bColour = uSamples == 3 && uBits == 8;
    require(bColour || (uSamples == 1 && (uBits == 8 || uBits == 16)),
            std::to_string(uSamples) + " samples of " + std::to_string(uBits) +
                " bits; 1 of 8 or 16, or 3 of 8, can be replayed");
    require(rTiff.tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_UINT, "the samples are not unsigned integers");
    require(rTiff.tag(TIFFTAG_PHOTOMETRIC) == (bColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK),
            bColour ? "three channels that are not RGB" : "not grey with black as 0");
    return findPixelFormat(bColour ? "RGB8" : uBits == 8 ? "Mono8" : "Mono16");
}

uint64_t rowBytes(const ReplayLayout& rLayout) {
    return imageBytes(*rLayout.pFormat, rLayout.nWidth, 1);
}

ReplayLayout layoutOf(const CTiffInput& rTiff) {
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth);
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight);
    require(nWidth >= 1 && nHeight >= 1 && nWidth <= IMAGE_SIDE_MAX && nHeight <= IMAGE_SIDE_MAX,
            std::to_string(nWidth) + " x " + std::to_string(nHeight) + " pixels; each side may be 1 to " +
                std::to_string(IMAGE_SIDE_MAX));
    ReplayLayout layout;
    layout.nWidth = nWidth;
    layout.nHeight = nHeight;
    layout.pFormat = formatOfTags(rTiff);
    layout.uMaxval = layout.pFormat->fullScale();
    rTiff.checkStrips(layout.nHeight, rowBytes(layout));
    require(TIFFLastDirectory(rTiff.get()) != 0, "more than one image");
    return layout;
}

// Calls with the open file; what is wrong with it is said with its name.
template <typename Use>
auto withTiff(const std::string& strPath, Use fnUse) {
    try {
        return fnUse(CTiffInput(strPath));
    } catch (const CFileError& rError) {
        failReplay(strPath, std::string("TIFF cannot be used: ") + rError.what());
    }
}

}  // namespace

ReplayLayout tiffLayout(const std::string& strPath) {
    return withTiff(strPath, layoutOf);
}

void readTiff(const std::string& strPath, const ReplayLayout& rLayout, void* pImage) {
    withTiff(strPath, [&](const CTiffInput& rTiff) {
        const std::string strDifference = layoutDifference(rLayout, layoutOf(rTiff));
        require(strDifference.empty(), "changed since it was opened: " + strDifference);
        rTiff.read(rLayout.nHeight, rowBytes(rLayout), pImage);
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
