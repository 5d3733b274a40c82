// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Pictures for people: frames as 8-bit PNG images, on a scale that two of them share.

#include "toolkit/frames/Pictures.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include <png.h>

#include "toolkit/frames/Percentile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

std::vector<png_byte> shadesOf(const Picture& rPicture, const Shades& rShades) {
    std::vector<png_byte> vecBytes;
    vecBytes.reserve(rPicture.vValues.size());
    for (const float fValue : rPicture.vValues) {
        const double dShare = (static_cast<double>(fValue) - rShades.dBlack) / (rShades.dWhite - rShades.dBlack);
        vecBytes.push_back(static_cast<png_byte>(std::lround(255.0 * std::clamp(dShare, 0.0, 1.0))));
    }
    return vecBytes;
}

std::string encode(const Picture& rPicture, const Shades& rShades, png_uint_32 uFormat, const png_byte* pColourMap) {
    const std::vector<png_byte> vecBytes = shadesOf(rPicture, rShades);
    png_image Image{};
    Image.version = PNG_IMAGE_VERSION;
    Image.width = static_cast<png_uint_32>(rPicture.nWidth);
    Image.height = static_cast<png_uint_32>(rPicture.nHeight);
    Image.format = uFormat;
    Image.colormap_entries = pColourMap != nullptr ? 256 : 0;
    std::string strPng(PNG_IMAGE_PNG_SIZE_MAX(Image), '\0');
    png_alloc_size_t nBytes = strPng.size();
    if (png_image_write_to_memory(&Image, strPng.data(), &nBytes, 0, vecBytes.data(), 0, pColourMap) == 0) {
        throw std::runtime_error("a picture of " + std::to_string(rPicture.nWidth) + " x " +
                                 std::to_string(rPicture.nHeight) + " pixels cannot be made");
    }
    strPng.resize(nBytes);
    return strPng;
}

}  // namespace

Picture blockMeans(const Picture& rSource, unsigned nStep) {
    Picture Result{rSource.nWidth / nStep, rSource.nHeight / nStep, rSource.nChannels, rSource.nStep * nStep, {}};
    const uint64_t nChannels = rSource.nChannels;
    std::vector<double> vecRow(Result.nWidth * nChannels);
    Result.vValues.reserve(vecRow.size() * Result.nHeight);
    for (uint64_t iY = 0; iY < Result.nHeight; ++iY) {
        std::fill(vecRow.begin(), vecRow.end(), 0.0);
        for (uint64_t iLine = iY * nStep; iLine < (iY + 1) * nStep; ++iLine) {
            const float* pLine = &rSource.vValues[iLine * rSource.nWidth * nChannels];
            for (uint64_t iX = 0; iX < Result.nWidth * nStep; ++iX) {
                for (uint64_t iChannel = 0; iChannel < nChannels; ++iChannel) {
                    vecRow[iX / nStep * nChannels + iChannel] += static_cast<double>(pLine[iX * nChannels + iChannel]);
                }
            }
        }
        for (const double dSum : vecRow) {
            Result.vValues.push_back(static_cast<float>(dSum / (static_cast<double>(nStep) * nStep)));
        }
    }
    return Result;
}

Picture grey(Picture Source) {
    if (Source.nChannels == 1) {
        return Source;
    }
    Picture Result{Source.nWidth, Source.nHeight, 1, Source.nStep, {}};
    for (std::size_t i = 0; i < Source.vValues.size(); i += Source.nChannels) {
        const auto it = Source.vValues.begin() + static_cast<std::ptrdiff_t>(i);
        Result.vValues.push_back(std::accumulate(it, it + Source.nChannels, 0.0F) /
                                 static_cast<float>(Source.nChannels));
    }
    return Result;
}

Picture scaledDown(Picture Source, uint64_t nSideMax, uint64_t nSamplesMax) {
    unsigned nStep = 1;
    const auto fits = [&] {
        const uint64_t nWidth = Source.nWidth / nStep, nHeight = Source.nHeight / nStep;
        return std::max(nWidth, nHeight) <= nSideMax && nWidth * nHeight * Source.nChannels <= nSamplesMax;
    };
    while (!fits() && nStep < std::min(Source.nWidth, Source.nHeight)) {
        ++nStep;
    }
    return nStep == 1 ? Source : blockMeans(Source, nStep);
}

Picture pictureOf(const Frame& rFrame, uint64_t nSideMax, uint64_t nSamplesMax) {
    Picture Result{rFrame.nWidth, rFrame.nHeight, rFrame.pFormat->nChannels, 1, {}};
    Result.vValues.assign(rFrame.aSamples.begin(), rFrame.aSamples.end());
    if (rFrame.pFormat->isCfa() && rFrame.nWidth > 1 && rFrame.nHeight > 1) {
        Result = blockMeans(Result, 2);
    }
    if (std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0) {
        for (std::size_t i = 0; i + 2 < Result.vValues.size(); i += 3) {
            std::swap(Result.vValues[i], Result.vValues[i + 2]);
        }
    }
    return scaledDown(std::move(Result), nSideMax, nSamplesMax);
}

Shades commonShades(const Picture& rFirst, const Picture& rSecond) {
    std::vector<float> vecAll = rFirst.vValues;
    vecAll.insert(vecAll.end(), rSecond.vValues.begin(), rSecond.vValues.end());
    const double dLow = static_cast<double>(percentile(vecAll, 0.001));
    const double dHigh = std::max(static_cast<double>(percentile(std::move(vecAll), 0.999)), dLow + 1.0);
    const double dMargin = 0.02 * (dHigh - dLow);
    return {dLow - dMargin, dHigh + dMargin};
}

std::string pngOf(const Picture& rPicture, const Shades& rShades) {
    return encode(rPicture, rShades, rPicture.nChannels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY, nullptr);
}

std::string pngOf(const Picture& rPicture, const Shades& rShades, const std::vector<uint32_t>& vecColours) {
    std::vector<png_byte> vecMap;
    for (const uint32_t uColour : vecColours) {
        for (const unsigned uShift : {16U, 8U, 0U}) {
            vecMap.push_back(static_cast<png_byte>(uColour >> uShift & 0xFF));
        }
    }
    return encode(rPicture, rShades, PNG_FORMAT_RGB_COLORMAP, vecMap.data());
}

PicturePair picturePair(const Frame& rBefore, const Frame& rAfter, uint64_t nSideMax, uint64_t nSamplesMax) {
    const Picture After = pictureOf(rAfter, nSideMax, nSamplesMax);
    PicturePair Result{pictureOf(rBefore, nSideMax, nSamplesMax), {}, {}, {}};
    Result.Common = commonShades(Result.Before, After);
    Result.strBefore = pngOf(Result.Before, Result.Common);
    Result.strAfter = pngOf(After, Result.Common);
    return Result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
