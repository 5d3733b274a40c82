// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads TIFF files.

#include <tiffio.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ReplayFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// An open TIFF with handlers of its own: nothing is printed, the first error is kept for the message.
class CTiffFile {
public:
    explicit CTiffFile(const std::string& strPath) : m_strPath(strPath) {
        std::error_code error;
        m_nFileBytes = std::filesystem::file_size(strPath, error);
        if (error)
            failReplay(strPath, "cannot be read: " + error.message());
        const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> pOptions(TIFFOpenOptionsAlloc(),
                                                                                    TIFFOpenOptionsFree);
        TIFFOpenOptionsSetErrorHandlerExtR(pOptions.get(), keepError, this);
        TIFFOpenOptionsSetWarningHandlerExtR(pOptions.get(), dropWarning, nullptr);
        // Nothing that is read is larger than the file but one line of the image.
        TIFFOpenOptionsSetMaxSingleMemAlloc(pOptions.get(), static_cast<tmsize_t>(m_nFileBytes * 2 + (1U << 20)));
        // Without memory mapping, as a mapped file that shrinks would end the process.
        m_pTiff = TIFFOpenExt(strPath.c_str(), "rm", pOptions.get());
        if (m_pTiff == nullptr)
            fail("not a TIFF that can be read");
    }
    ~CTiffFile() {
        if (m_pTiff != nullptr)
            TIFFClose(m_pTiff);
    }
    CTiffFile(const CTiffFile&) = delete;
    CTiffFile& operator=(const CTiffFile&) = delete;

    TIFF* get() const { return m_pTiff; }
    uint64_t fileBytes() const { return m_nFileBytes; }

    [[noreturn]] void fail(const std::string& strText) const {
        failReplay(m_strPath, m_aError[0] == '\0' ? strText : strText + " (" + m_aError + ")");
    }

    void require(bool bFine, const std::string& strText) const {
        if (!bFine)
            fail(strText);
    }

    // A 16-bit tag or its default value; bFound tells whether there is either.
    uint16_t tag(uint32_t uTag, bool& rFound) const {
        uint16_t uValue = 0;
        rFound = TIFFGetFieldDefaulted(m_pTiff, uTag, &uValue) == 1;
        return uValue;
    }

    // Fails unless the tag has the value or, where it may be absent, is absent.
    void requireTag(uint32_t uTag, uint16_t uValue, const std::string& strText) const {
        bool bFound = false;
        const uint16_t uFound = tag(uTag, bFound);
        require(bFound && uFound == uValue, strText);
    }

private:
    static int keepError(TIFF*, void* pSelf, const char*, const char* pFormat, va_list aArguments) {
        auto* pFile = static_cast<CTiffFile*>(pSelf);
        if (pFile->m_aError[0] == '\0')
            std::vsnprintf(pFile->m_aError, sizeof(pFile->m_aError), pFormat, aArguments);
        return 1;
    }
    static int dropWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

    std::string m_strPath;
    uint64_t m_nFileBytes = 0;
    TIFF* m_pTiff = nullptr;
    char m_aError[200] = {};
};

const PixelFormat* formatOfTags(const CTiffFile& rFile) {
    bool bFound = false;
    const uint16_t uBits = rFile.tag(TIFFTAG_BITSPERSAMPLE, bFound);
    const uint16_t uSamples = rFile.tag(TIFFTAG_SAMPLESPERPIXEL, bFound);
    rFile.requireTag(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT, "TIFF samples are not unsigned integers");
    rFile.requireTag(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT, "TIFF does not begin at the top left");
    rFile.requireTag(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG, "TIFF has its channels in separate planes");
    if (uSamples == 1 && (uBits == 8 || uBits == 16)) {
        rFile.requireTag(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK, "TIFF is not grey with black as 0");
        return findPixelFormat(uBits == 8 ? "Mono8" : "Mono16");
    }
    if (uSamples == 3 && uBits == 8) {
        rFile.requireTag(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB, "TIFF has three channels that are not RGB");
        return findPixelFormat("RGB8");
    }
    rFile.fail("TIFF has " + std::to_string(uSamples) + " samples of " + std::to_string(uBits) +
               " bits; 1 of 8 or 16, or 3 of 8, can be replayed");
}

bool isPackedSafely(uint16_t uCompression) {
    return uCompression == COMPRESSION_LZW || uCompression == COMPRESSION_ADOBE_DEFLATE ||
           uCompression == COMPRESSION_DEFLATE || uCompression == COMPRESSION_PACKBITS;
}

// Checks that every strip lies within the file and, uncompressed, has all its lines.
void checkStrips(const CTiffFile& rFile, const ReplayLayout& rLayout) {
    bool bFound = false;
    const uint16_t uCompression = rFile.tag(TIFFTAG_COMPRESSION, bFound);
    const bool bPlain = uCompression == COMPRESSION_NONE;
    rFile.require(bPlain || isPackedSafely(uCompression),
                  "TIFF compression " + std::to_string(uCompression) + " cannot be replayed");
    uint32_t nRowsPerStrip = 0;
    TIFFGetFieldDefaulted(rFile.get(), TIFFTAG_ROWSPERSTRIP, &nRowsPerStrip);
    rFile.require(nRowsPerStrip != 0, "TIFF strips have no lines");

    const uint64_t nRowBytes = imageBytes(*rLayout.pFormat, rLayout.nWidth, 1);
    rFile.require(TIFFScanlineSize64(rFile.get()) == nRowBytes, "TIFF lines have an unexpected length");
    uint64_t nRowsLeft = rLayout.nHeight;
    for (uint32_t iStrip = 0; nRowsLeft != 0; ++iStrip) {
        const uint64_t nRows = nRowsLeft < nRowsPerStrip ? nRowsLeft : nRowsPerStrip;
        const uint64_t nBytes = TIFFGetStrileByteCount(rFile.get(), iStrip);
        const uint64_t iOffset = TIFFGetStrileOffset(rFile.get(), iStrip);
        const bool bInFile = nBytes != 0 && nBytes <= rFile.fileBytes() && iOffset <= rFile.fileBytes() - nBytes;
        rFile.require(bInFile && (!bPlain || nBytes >= nRows * nRowBytes), "TIFF is truncated");
        nRowsLeft -= nRows;
    }
}

ReplayLayout layoutOf(const CTiffFile& rFile) {
    uint32_t nWidth = 0;
    uint32_t nHeight = 0;
    TIFFGetField(rFile.get(), TIFFTAG_IMAGEWIDTH, &nWidth);
    TIFFGetField(rFile.get(), TIFFTAG_IMAGELENGTH, &nHeight);
    rFile.require(nWidth >= 1 && nHeight >= 1 && nWidth <= IMAGE_SIDE_MAX && nHeight <= IMAGE_SIDE_MAX,
                  "TIFF of " + std::to_string(nWidth) + " x " + std::to_string(nHeight) +
                      " pixels; each side may be 1 to " + std::to_string(IMAGE_SIDE_MAX));
    rFile.require(TIFFIsTiled(rFile.get()) == 0, "TIFF is in tiles");

    ReplayLayout layout;
    layout.nWidth = nWidth;
    layout.nHeight = nHeight;
    layout.pFormat = formatOfTags(rFile);
    layout.uMaxval = layout.pFormat->fullScale();
    checkStrips(rFile, layout);
    rFile.require(TIFFLastDirectory(rFile.get()) != 0, "TIFF holds more than one image");
    return layout;
}

}  // namespace

ReplayLayout tiffLayout(const std::string& strPath) {
    const CTiffFile file(strPath);
    return layoutOf(file);
}

void readTiff(const std::string& strPath, const ReplayLayout& rLayout, void* pImage) {
    const CTiffFile file(strPath);
    const std::string strDifference = layoutDifference(rLayout, layoutOf(file));
    if (!strDifference.empty())
        file.fail("changed since it was opened: " + strDifference);
    const std::size_t nRowBytes = imageBytes(*rLayout.pFormat, rLayout.nWidth, 1);
    auto* pLine = static_cast<uint8_t*>(pImage);
    for (uint32_t iRow = 0; iRow < rLayout.nHeight; ++iRow, pLine += nRowBytes)
        file.require(TIFFReadScanline(file.get(), pLine, iRow) == 1, "TIFF is damaged");
}

}  // namespace StandIn
}  // namespace XAPEL2
