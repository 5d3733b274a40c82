// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading and writing of image files by means of the tests' own.

#include "ImageFiles.h"

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include <png.h>
#include <tiffio.h>

namespace XAPEL2 {
namespace Test {

namespace {

void require(bool bGood, const std::filesystem::path& rFile, const char* pWhat) {
    if (!bGood) {
        throw std::runtime_error(rFile.string() + ": " + pWhat);
    }
}

}  // namespace

Image<uint16_t> readPixmap(const std::filesystem::path& rFile) {
    std::ifstream In(rFile, std::ios::binary);
    std::string strMagic;
    Image<uint16_t> Result;
    In >> strMagic >> Result.nWidth >> Result.nHeight >> Result.uFullScale;
    require(In.good() && (strMagic == "P5" || strMagic == "P6"), rFile, "no binary pixmap");
    In.get();  // the one separator
    Result.nChannels = strMagic == "P6" ? 3 : 1;
    Result.aSamples.resize(Result.nWidth * Result.nHeight * Result.nChannels);
    for (uint16_t& rSample : Result.aSamples) {
        const int iHigh = Result.uFullScale > 255 ? In.get() : 0;
        rSample = static_cast<uint16_t>(iHigh << 8 | In.get());
    }
    require(In.good(), rFile, "too short");
    require(In.get() == std::ifstream::traits_type::eof(), rFile, "too long");
    return Result;
}

void writePgm(const std::filesystem::path& rFile, const Image<uint16_t>& rImage) {
    std::ofstream Out(rFile, std::ios::binary);
    Out << "P5\n" << rImage.nWidth << ' ' << rImage.nHeight << '\n' << rImage.uFullScale << '\n';
    for (const uint16_t uSample : rImage.aSamples) {
        if (rImage.uFullScale > 255) {
            Out.put(static_cast<char>(uSample >> 8));
        }
        Out.put(static_cast<char>(uSample & 0xFF));
    }
    Out.close();
    require(Out.good(), rFile, "cannot be written");
}

Image<float> readFloatTiff(const std::filesystem::path& rFile) {
    const std::unique_ptr<TIFF, void (*)(TIFF*)> pTiff(TIFFOpen(rFile.c_str(), "r"), TIFFClose);
    require(pTiff != nullptr, rFile, "no TIFF");
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    uint16_t nBits = 0;
    uint16_t uKind = 0;
    uint16_t nChannels = 0;
    TIFFGetField(pTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth);
    TIFFGetField(pTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight);
    TIFFGetField(pTiff.get(), TIFFTAG_BITSPERSAMPLE, &nBits);
    TIFFGetField(pTiff.get(), TIFFTAG_SAMPLEFORMAT, &uKind);
    TIFFGetFieldDefaulted(pTiff.get(), TIFFTAG_SAMPLESPERPIXEL, &nChannels);
    require(nBits == 32 && uKind == SAMPLEFORMAT_IEEEFP, rFile, "no 32-bit float samples");
    Image<float> Result;
    Result.nWidth = nWidth;
    Result.nHeight = nHeight;
    Result.nChannels = nChannels;
    Result.aSamples.resize(Result.nWidth * Result.nHeight * Result.nChannels);
    for (uint32_t iRow = 0; iRow < nHeight; ++iRow) {
        float* pRow = &Result.aSamples[iRow * Result.nWidth * Result.nChannels];
        require(TIFFReadScanline(pTiff.get(), pRow, iRow, 0) == 1, rFile, "unreadable line");
    }
    return Result;
}

Image<uint16_t> readPng(const std::filesystem::path& rFile) {
    png_image Png{};
    Png.version = PNG_IMAGE_VERSION;
    require(png_image_begin_read_from_file(&Png, rFile.c_str()) != 0, rFile, "no PNG");
    Png.format = PNG_FORMAT_GRAY;
    std::vector<png_byte> aBytes(PNG_IMAGE_SIZE(Png));
    require(png_image_finish_read(&Png, nullptr, aBytes.data(), 0, nullptr) != 0, rFile, "unreadable PNG");
    return {Png.width, Png.height, 1, 255, {aBytes.begin(), aBytes.end()}};
}

}  // namespace Test
}  // namespace XAPEL2
