// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary) or TIFF.

#include "toolkit/frames/FrameFile.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <tiffio.h>
#include <unistd.h>

#include "toolkit/frames/NewFile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

namespace {

bool takesTwoBytes(const Frame& rFrame) {
    return rFrame.pFormat->fullScale() > 255;
}

// The samples as bytes, channels in the order red, green, blue.
std::string packedSamples(const Frame& rFrame, bool bHighFirst) {
    const bool bSwap = std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0;
    const bool bTwoBytes = takesTwoBytes(rFrame);
    std::string strBytes;
    strBytes.reserve(rFrame.aSamples.size() * (bTwoBytes ? 2 : 1));
    for (std::size_t i = 0; i < rFrame.aSamples.size(); ++i) {
        const std::size_t iFrom = bSwap ? i - i % 3 + (2 - i % 3) : i;
        const uint16_t uSample = rFrame.aSamples[iFrom];
        const auto cHigh = static_cast<char>(uSample >> 8), cLow = static_cast<char>(uSample & 0xFF);
        if (bTwoBytes && bHighFirst) {
            strBytes.push_back(cHigh);
        }
        strBytes.push_back(cLow);
        if (bTwoBytes && !bHighFirst) {
            strBytes.push_back(cHigh);
        }
    }
    return strBytes;
}

void writePixmap(CNewFile& rOut, const Frame& rFrame) {
    rOut.write((rFrame.pFormat->nChannels == 3 ? "P6\n" : "P5\n") + std::to_string(rFrame.nWidth) + ' ' +
               std::to_string(rFrame.nHeight) + '\n' + std::to_string(rFrame.pFormat->fullScale()) + '\n' +
               packedSamples(rFrame, true));
}

// Keeps what the TIFF library says, which would go to stderr otherwise.
int keepMessage(TIFF*, void* pText, const char*, const char* pFormat, va_list Arguments) {
    char acText[256];
    std::vsnprintf(acText, sizeof acText, pFormat, Arguments);
    static_cast<std::string*>(pText)->assign(acText);
    return 1;
}

bool setTags(TIFF* pTiff, const Frame& rFrame) {
    const bool bColour = rFrame.pFormat->nChannels == 3;
    const bool bTwoBytes = takesTwoBytes(rFrame);
    // Numbers pass as varargs: of the type that the library reads.
    return TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(rFrame.nWidth)) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(rFrame.nHeight)) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, bColour ? 3 : 1) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, bTwoBytes ? 16 : 8) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, bColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_MAXSAMPLEVALUE, static_cast<int>(rFrame.pFormat->fullScale())) != 0 &&
           TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(rFrame.nHeight)) != 0;
}

void writeTiff(const CNewFile& rOut, const fs::path& rFile, const Frame& rFrame) {
    errno = 0;
    std::string strMessage;
    const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> pOptions(TIFFOpenOptionsAlloc(),
                                                                                TIFFOpenOptionsFree);
    if (pOptions) {
        TIFFOpenOptionsSetErrorHandlerExtR(pOptions.get(), keepMessage, &strMessage);
        TIFFOpenOptionsSetWarningHandlerExtR(pOptions.get(), keepMessage, &strMessage);
        // Little endian, as the samples are; a duplicate is what the library closes.
        const std::unique_ptr<TIFF, void (*)(TIFF*)> pTiff(
            TIFFFdOpenExt(dup(rOut.descriptor()), rFile.c_str(), "wl", pOptions.get()), TIFFClose);
        std::string strBytes = packedSamples(rFrame, false);
        const auto nBytes = static_cast<tmsize_t>(strBytes.size());
        // Flushed before it is closed, which reports nothing.
        if (pTiff && setTags(pTiff.get(), rFrame) &&
            TIFFWriteEncodedStrip(pTiff.get(), 0, strBytes.data(), nBytes) == nBytes && TIFFFlush(pTiff.get()) == 1) {
            return;
        }
    }
    throw std::runtime_error(rFile.string() + " cannot be written: " +
                             (errno != 0 ? std::generic_category().message(errno) : "it does not make a TIFF file"));
}

}  // namespace

fs::path frameFile(const fs::path& rFolder, const Frame& rFrame, eFrameFile eKind) {
    const bool bColour = rFrame.pFormat->nChannels == 3;
    return rFolder / (rFrame.strName + (eKind == eTiff ? ".tif" : bColour ? ".ppm" : ".pgm"));
}

fs::path writeFrame(const fs::path& rFolder, const Frame& rFrame, eFrameFile eKind) {
    fs::path File = frameFile(rFolder, rFrame, eKind);
    CNewFile Out(File);
    if (eKind == eTiff) {
        writeTiff(Out, File, rFrame);
    } else {
        writePixmap(Out, rFrame);
    }
    Out.finish();
    return File;
}

}  // namespace Toolkit
}  // namespace XAPEL2
