// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the readers of image files share.

#include "standin/files/ImageFile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "standin/files/PngOutput.h"
#include "standin/files/TiffInput.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

enum eKind { ePixmap, eTiff, ePng };

constexpr std::size_t DESCRIPTION_MAX = 1024;

std::string suffixOf(const std::string& strPath) {
    std::string strSuffix = std::filesystem::path(strPath).extension().string();
    std::transform(strSuffix.begin(), strSuffix.end(), strSuffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strSuffix;
}

eKind kindOf(const std::string& strPath) {
    std::error_code ignored;
    std::array<char, 4> aBytes{};
    // A pipe would wait for its writer.
    if (std::filesystem::is_regular_file(strPath, ignored)) {
        std::ifstream(strPath, std::ios::binary).read(aBytes.data(), aBytes.size());
    }
    const std::string strSuffix = suffixOf(strPath);
    if (aBytes[0] == 'P' && (aBytes[1] == '5' || aBytes[1] == '6')) {
        return ePixmap;
    }
    if (std::memcmp(aBytes.data(), "II", 2) == 0 || std::memcmp(aBytes.data(), "MM", 2) == 0) {
        return eTiff;
    }
    if (std::memcmp(aBytes.data(), "\x89PNG", 4) == 0) {
        return ePng;
    }
    return strSuffix == ".pgm" || strSuffix == ".ppm" ? ePixmap : strSuffix == ".png" ? ePng : eTiff;
}

}  // namespace

namespace {

std::string pixmapComment(const std::string& strPath) {
    std::ifstream file(strPath, std::ios::binary);
    std::string strHead(DESCRIPTION_MAX, '\0');
    file.read(strHead.data(), static_cast<std::streamsize>(strHead.size()));
    strHead.resize(static_cast<std::size_t>(file.gcount()));
    // Behind the header there are samples.
    const std::size_t iBegin = strHead.find('#'), iEnd = std::min(strHead.find('\n', iBegin), strHead.size());
    const bool bComment = iBegin != std::string::npos && strHead.find_first_not_of(" \t\r\nP56") == iBegin;
    return bComment ? strHead.substr(iBegin + 1, iEnd - iBegin - 1) : "";
}

std::string tiffDescription(const std::string& strPath) {
    const CTiffInput tiff(strPath);
    const char* pText = nullptr;
    return TIFFGetField(tiff.get(), TIFFTAG_IMAGEDESCRIPTION, &pText) == 1 && pText != nullptr
               ? std::string(pText).substr(0, DESCRIPTION_MAX)
               : "";
}

}  // namespace

std::string imageDescription(const std::string& strPath) {
    const eKind eWhat = kindOf(strPath);
    try {
        return eWhat == ePixmap ? pixmapComment(strPath)
               : eWhat == ePng  ? pngDescription(strPath)
                                : tiffDescription(strPath);
    } catch (const CFileError&) {
        return "";
    }
}

std::string imageName(const std::string& strPath, std::size_t iPage, std::size_t nPages) {
    const std::string strStem = std::filesystem::path(strPath).stem().string(), strNumber = std::to_string(iPage);
    return nPages == 1 ? strStem
                       : strStem + '_' + std::string(4 - std::min<std::size_t>(4, strNumber.size()), '0') + strNumber;
}

bool hasImageSuffix(const std::string& strPath) {
    const std::string strSuffix = suffixOf(strPath);
    const auto fnIs = [&](const char* p) { return strSuffix == p; };
    return fnIs(".pgm") || fnIs(".ppm") || fnIs(".tif") || fnIs(".tiff") || fnIs(".png");
}

ImageFileLayout imageLayout(const std::string& strPath) {
    const eKind eWhat = kindOf(strPath);
    return (eWhat == ePixmap ? pgmLayout : eWhat == ePng ? pngLayout : tiffLayout)(strPath);
}

void readImageFile(const std::string& strPath, const ImageFileLayout& rLayout, std::size_t iPage, void* pImage) {
    const eKind eWhat = kindOf(strPath);
    if (eWhat == eTiff) {
        return readTiff(strPath, rLayout, pImage, iPage);
    }
    (eWhat == ePng ? readPng : readPgm)(strPath, rLayout, pImage);
}

void failImageFile(const std::string& strPath, const std::string& strText) {
    throw std::runtime_error(strPath + ": " + strText);
}

std::string layoutDifference(const ImageFileLayout& rExpected, const ImageFileLayout& rOther) {
    if (rOther.nWidth != rExpected.nWidth) {
        return "width " + std::to_string(rOther.nWidth) + " instead of " + std::to_string(rExpected.nWidth);
    }
    if (rOther.nHeight != rExpected.nHeight) {
        return "height " + std::to_string(rOther.nHeight) + " instead of " + std::to_string(rExpected.nHeight);
    }
    if (rOther.pFormat != rExpected.pFormat) {
        return std::string("format ") + rOther.pFormat->pName + " instead of " + rExpected.pFormat->pName;
    }
    return "";
}

}  // namespace StandIn
}  // namespace XAPEL2
