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
    vecBytes.reserve(rPicture.vecValues.size());
    for (const float fValue : rPicture.vecValues) {
        const double dShare = (static_cast<double>(fValue) - rShades.dBlack) / (rShades.dWhite - rShades.dBlack);
        vecBytes.push_back(static_cast<png_byte>(std::lround(255.0 * std::clamp(dShare, 0.0, 1.0))));
    }
    return vecBytes;
}

std::string encode(const Picture& rPicture, const Shades& rShades, png_uint_32 uFormat, const png_byte* pColourMap) {
    const std::vector<png_byte> vecBytes = shadesOf(rPicture, rShades);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(rPicture.nWidth);
    image.height = static_cast<png_uint_32>(rPicture.nHeight);
    image.format = uFormat;
    image.colormap_entries = pColourMap != nullptr ? 256 : 0;
    std::string strPng(PNG_IMAGE_PNG_SIZE_MAX(image), '\0');
    png_alloc_size_t nBytes = strPng.size();
    if (png_image_write_to_memory(&image, strPng.data(), &nBytes, 0, vecBytes.data(), 0, pColourMap) == 0) {
        throw std::runtime_error("a picture of " + std::to_string(rPicture.nWidth) + " x " +
                                 std::to_string(rPicture.nHeight) + " pixels cannot be made");
    }
    strPng.resize(nBytes);
    return strPng;
}

}  // namespace

Picture blockMeans(const Picture& rSource, unsigned nStep) {
    Picture result{rSource.nWidth / nStep, rSource.nHeight / nStep, rSource.nChannels, rSource.nStep * nStep, {}};
    const uint64_t nChannels = rSource.nChannels;
    std::vector<double> vecRow(result.nWidth * nChannels);
    result.vecValues.reserve(vecRow.size() * result.nHeight);
    for (uint64_t iY = 0; iY < result.nHeight; ++iY) {
        std::fill(vecRow.begin(), vecRow.end(), 0.0);
        for (uint64_t iLine = iY * nStep; iLine < (iY + 1) * nStep; ++iLine) {
            const float* pLine = &rSource.vecValues[iLine * rSource.nWidth * nChannels];
            for (uint64_t iX = 0; iX < result.nWidth * nStep; ++iX) {
                for (uint64_t iChannel = 0; iChannel < nChannels; ++iChannel) {
                    vecRow[iX / nStep * nChannels + iChannel] += static_cast<double>(pLine[iX * nChannels + iChannel]);
                }
            }
        }
        for (const double dSum : vecRow) {
            result.vecValues.push_back(static_cast<float>(dSum / (static_cast<double>(nStep) * nStep)));
        }
    }
    return result;
}

Picture grey(Picture source) {
    if (source.nChannels == 1) {
        return source;
    }
    Picture result{source.nWidth, source.nHeight, 1, source.nStep, {}};
    for (std::size_t i = 0; i < source.vecValues.size(); i += source.nChannels) {
        const auto it = source.vecValues.begin() + static_cast<std::ptrdiff_t>(i);
        result.vecValues.push_back(std::accumulate(it, it + source.nChannels, 0.0F) /
                                   static_cast<float>(source.nChannels));
    }
    return result;
}

Picture scaledDown(Picture source, uint64_t nSideMax, uint64_t nSamplesMax) {
    unsigned nStep = 1;
    const auto fits = [&] {
        const uint64_t nWidth = source.nWidth / nStep, nHeight = source.nHeight / nStep;
        return std::max(nWidth, nHeight) <= nSideMax && nWidth * nHeight * source.nChannels <= nSamplesMax;
    };
    while (!fits() && nStep < std::min(source.nWidth, source.nHeight)) {
        ++nStep;
    }
    return nStep == 1 ? source : blockMeans(source, nStep);
}

Picture pictureOf(const Frame& rFrame, uint64_t nSideMax, uint64_t nSamplesMax) {
    Picture result{rFrame.nWidth, rFrame.nHeight, rFrame.pFormat->nChannels, 1, {}};
    result.vecValues.assign(rFrame.vecSamples.begin(), rFrame.vecSamples.end());
    if (rFrame.pFormat->isCfa() && rFrame.nWidth > 1 && rFrame.nHeight > 1) {
        result = blockMeans(result, 2);
    }
    if (std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0) {
        for (std::size_t i = 0; i + 2 < result.vecValues.size(); i += 3) {
            std::swap(result.vecValues[i], result.vecValues[i + 2]);
        }
    }
    return scaledDown(std::move(result), nSideMax, nSamplesMax);
}

Shades commonShades(const Picture& rFirst, const Picture& rSecond) {
    std::vector<float> vecAll = rFirst.vecValues;
    vecAll.insert(vecAll.end(), rSecond.vecValues.begin(), rSecond.vecValues.end());
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
    const Picture after = pictureOf(rAfter, nSideMax, nSamplesMax);
    PicturePair result{pictureOf(rBefore, nSideMax, nSamplesMax), {}, {}, {}};
    result.common = commonShades(result.before, after);
    result.strBefore = pngOf(result.before, result.common);
    result.strAfter = pngOf(after, result.common);
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
