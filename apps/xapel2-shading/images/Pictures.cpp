// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Pictures of a frame before and after correction, on one common scale.

#include "images/Pictures.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include <png.h>

#include "demo/Figures.h"

namespace XAPEL2 {
namespace App {

namespace {

struct Picture {
    uint64_t nWidth = 0, nHeight = 0;
    unsigned nChannels = 1;
    std::vector<double> aValues;
};

Picture binnedSites(const Frame& rFrame) {
    Picture Result{rFrame.nWidth / 2, rFrame.nHeight / 2, 1, {}};
    for (uint64_t iY = 0; iY < Result.nHeight; ++iY) {
        for (uint64_t iX = 0; iX < Result.nWidth; ++iX) {
            const uint16_t* pSite = &rFrame.aSamples[2 * iY * rFrame.nWidth + 2 * iX];
            const unsigned nSum =
                static_cast<unsigned>(pSite[0]) + pSite[1] + pSite[rFrame.nWidth] + pSite[rFrame.nWidth + 1];
            Result.aValues.push_back(nSum / 4.0);
        }
    }
    return Result;
}

Picture pictureOf(const Frame& rFrame) {
    if (rFrame.pFormat->isCfa() && rFrame.nWidth > 1 && rFrame.nHeight > 1) {
        return binnedSites(rFrame);
    }
    Picture Result{rFrame.nWidth, rFrame.nHeight, rFrame.pFormat->nChannels, {}};
    Result.aValues.assign(rFrame.aSamples.begin(), rFrame.aSamples.end());
    if (std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0) {
        for (std::size_t i = 0; i + 2 < Result.aValues.size(); i += 3) {
            std::swap(Result.aValues[i], Result.aValues[i + 2]);
        }
    }
    return Result;
}

struct Scale {
    double fBlack, fWhite;
};

Scale commonScale(const Picture& rFirst, const Picture& rSecond) {
    std::vector<double> aAll = rFirst.aValues;
    aAll.insert(aAll.end(), rSecond.aValues.begin(), rSecond.aValues.end());
    const double fLow = percentile(aAll, 0.001);
    const double fHigh = std::max(percentile(aAll, 0.999), fLow + 1.0);
    const double fMargin = 0.02 * (fHigh - fLow);
    return {fLow - fMargin, fHigh + fMargin};
}

void writePng(const std::filesystem::path& rFile, const Picture& rPicture, const Scale& rScale) {
    std::vector<png_byte> aBytes;
    aBytes.reserve(rPicture.aValues.size());
    for (const double fValue : rPicture.aValues) {
        const double fShare = (fValue - rScale.fBlack) / (rScale.fWhite - rScale.fBlack);
        aBytes.push_back(static_cast<png_byte>(std::lround(255.0 * std::clamp(fShare, 0.0, 1.0))));
    }
    png_image Image{};
    Image.version = PNG_IMAGE_VERSION;
    Image.width = static_cast<png_uint_32>(rPicture.nWidth);
    Image.height = static_cast<png_uint_32>(rPicture.nHeight);
    Image.format = rPicture.nChannels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (png_image_write_to_file(&Image, rFile.c_str(), 0, aBytes.data(), 0, nullptr) == 0) {
        throw std::runtime_error(rFile.string() + " cannot be written: " + Image.message);
    }
}

}  // namespace

void writePicturePair(const std::filesystem::path& rBeforeFile, const Frame& rBefore,
                      const std::filesystem::path& rAfterFile, const Frame& rAfter) {
    const Picture Before = pictureOf(rBefore);
    const Picture After = pictureOf(rAfter);
    const Scale Common = commonScale(Before, After);
    writePng(rBeforeFile, Before, Common);
    writePng(rAfterFile, After, Common);
}

}  // namespace App
}  // namespace XAPEL2
