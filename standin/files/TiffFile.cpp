// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads TIFF files.

#include <cstdlib>
#include <cstring>
#include <utility>

#include "standin/files/ImageFile.h"
#include "standin/files/TiffInput.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t PAGES_MAX = 10000;
constexpr std::size_t BLOCKS_MAX = 1U << 22;  // strips or tiles of all pages, which may share one list

void require(bool bFine, const std::string& strText) {
    if (!bFine) {
        throw CFileError(strText);
    }
}

const PixelFormat* formatOfTags(const CTiffInput& rTiff) {
    const uint16_t uBits = rTiff.tag(TIFFTAG_BITSPERSAMPLE);
    const uint16_t uSamples = rTiff.tag(TIFFTAG_SAMPLESPERPIXEL);
    require((uSamples == 1 || uSamples == 3) && (uBits == 8 || uBits == 16),
            "samples per pixel: " + std::to_string(uSamples) + ", bits: " + std::to_string(uBits) +
                "; 1 or 3 of 8 or 16 can be used");
    require(rTiff.tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_UINT, "the samples are not unsigned integers");
    require(rTiff.tag(TIFFTAG_PHOTOMETRIC) == (uSamples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK),
            uSamples == 3 ? "three channels that are not RGB" : "not grey with black as 0");
    return findPixelFormat(std::string(uSamples == 3 ? "RGB" : "Mono") + (uBits == 8 ? "8" : "16"));
}

uint64_t pixelBytes(const ImageFileLayout& rLayout) {
    return imageBytes(*rLayout.pFormat, 1, 1);
}

std::size_t blocks(const CTiffInput& rTiff) {
    return TIFFIsTiled(rTiff.get()) != 0 ? TIFFNumberOfTiles(rTiff.get()) : TIFFNumberOfStrips(rTiff.get());
}

// Of the present page.
ImageFileLayout pageLayout(const CTiffInput& rTiff) {
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth);
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight);
    require(nWidth >= 1 && nHeight >= 1 && nWidth <= IMAGE_SIDE_MAX && nHeight <= IMAGE_SIDE_MAX,
            std::to_string(nWidth) + " x " + std::to_string(nHeight) + " pixels; each side may be 1 to " +
                std::to_string(IMAGE_SIDE_MAX));
    ImageFileLayout layout;
    layout.nWidth = nWidth;
    layout.nHeight = nHeight;
    layout.pFormat = formatOfTags(rTiff);
    layout.uMaxval = layout.pFormat->fullScale();
    rTiff.checkImage(layout.nWidth, layout.nHeight, pixelBytes(layout));
    return layout;
}

// A small picture of another page, or a mask for it.
bool isSideImage(const CTiffInput& rTiff) {
    uint32_t uKind = 0;
    TIFFGetFieldDefaulted(rTiff.get(), TIFFTAG_SUBFILETYPE, &uKind);
    return (uKind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) != 0;
}

// ImageJ writes stacks above 4 GB as one page and tells in words how many images follow it.
void refuseHiddenImages(const CTiffInput& rTiff) {
    const char* pText = nullptr;
    if (TIFFGetField(rTiff.get(), TIFFTAG_IMAGEDESCRIPTION, &pText) != 1 || pText == nullptr) {
        return;
    }
    const char* const pCount = std::strncmp(pText, "ImageJ=", 7) == 0 ? std::strstr(pText, "\nimages=") : nullptr;
    require(pCount == nullptr || std::strtol(pCount + 8, nullptr, 10) <= 1,
            "a stack above 4 GB, of which only the first image can be found; save it in parts");
}

ImageFileLayout layoutOf(CTiffInput& rTiff) {
    ImageFileLayout layout = pageLayout(rTiff);
    std::vector<uint64_t> vecPages = {rTiff.place()};
    std::size_t nBlocks = blocks(rTiff);
    while (rTiff.nextPage()) {
        if (isSideImage(rTiff)) {
            continue;
        }
        nBlocks += blocks(rTiff);
        require(nBlocks <= BLOCKS_MAX, "more than " + std::to_string(BLOCKS_MAX) + " strips or tiles on its pages");
        require(vecPages.size() < PAGES_MAX, "more than " + std::to_string(PAGES_MAX) + " pages");
        const std::string strDifference = layoutDifference(layout, pageLayout(rTiff));
        require(strDifference.empty(),
                "page " + std::to_string(vecPages.size() + 1) + " differs from the first one: " + strDifference);
        vecPages.push_back(rTiff.place());
    }
    if (vecPages.size() > 1) {
        layout.vecPages = std::move(vecPages);
    } else {
        rTiff.goTo(vecPages[0]);
        refuseHiddenImages(rTiff);
    }
    return layout;
}

// Calls with the open file; what is wrong with it is said with its name.
template <typename Use>
auto withTiff(const std::string& strPath, Use fnUse) {
    try {
        CTiffInput tiff(strPath);
        return fnUse(tiff);
    } catch (const CFileError& rError) {
        failImageFile(strPath, std::string("TIFF cannot be used: ") + rError.what());
    }
}

}  // namespace

ImageFileLayout tiffLayout(const std::string& strPath) {
    return withTiff(strPath, layoutOf);
}

void readTiff(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage, std::size_t iPage) {
    withTiff(strPath, [&](CTiffInput& rTiff) {
        if (iPage < rLayout.vecPages.size()) {
            rTiff.goTo(rLayout.vecPages[iPage]);
        }
        const std::string strDifference = layoutDifference(rLayout, pageLayout(rTiff));
        require(strDifference.empty(), "changed since it was opened: " + strDifference);
        rTiff.readImage(rLayout.nWidth, rLayout.nHeight, pixelBytes(rLayout), pImage);
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
