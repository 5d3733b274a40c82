// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images of floating-point samples: masters that other programs made, and maps for them.

#include "toolkit/frames/FloatImage.h"

#include <stdexcept>

#include "standin/files/SafeFile.h"
#include "standin/files/TiffInput.h"
#include "standin/files/TiffOutput.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

void require(bool bGood, const char* pText) {
    if (!bGood) {
        throw StandIn::CFileError(pText);
    }
}

void readSamples(const StandIn::CTiffInput& rTiff, StandIn::ReferenceImage& rReference) {
    uint32_t nWidth = 0, nHeight = 0;
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGEWIDTH, &nWidth);
    TIFFGetField(rTiff.get(), TIFFTAG_IMAGELENGTH, &nHeight);
    StandIn::ImageLayout& rLayout = rReference.layout;
    rLayout.nWidth = nWidth;
    rLayout.nHeight = nHeight;
    require(rLayout.isPossible(), "it has an impossible size");
    require(rTiff.tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_IEEEFP && rTiff.tag(TIFFTAG_BITSPERSAMPLE) == 32,
            "the samples are not 32-bit floating point");
    require(rTiff.tag(TIFFTAG_SAMPLESPERPIXEL) == rLayout.pFormat->nChannels,
            "the samples of a pixel do not fit the pixel format");
    const uint64_t nRowBytes = rLayout.samplesPerRow() * sizeof(float);
    rTiff.checkStrips(nHeight, nRowBytes);
    rReference.vecSamples.resize(rLayout.samples());
    rTiff.read(nHeight, nRowBytes, rReference.vecSamples.data());
}

}  // namespace

StandIn::ReferenceImage referenceFromFloat(const std::string& strFile, StandIn::eReferenceKind eKind,
                                           const StandIn::PixelFormat& rFormat, uint64_t nImages) {
    StandIn::ReferenceImage result;
    result.eKind = eKind;
    result.layout.pFormat = &rFormat;
    result.nImages = nImages;
    try {
        readSamples(StandIn::CTiffInput(strFile), result);
        const auto fFull = static_cast<float>(rFormat.fullScale());
        double dSum = 0.0;
        uint64_t nSaturated = 0;
        for (const float fSample : result.vecSamples) {
            require(fSample >= 0.0F && fSample <= fFull, "a sample is no number from 0 to full scale");
            dSum += static_cast<double>(fSample);
            nSaturated += fSample >= fFull ? 1U : 0U;
        }
        const auto dSamples = static_cast<double>(result.vecSamples.size());
        result.dMean = dSum / dSamples;
        result.dSaturatedShare = static_cast<double>(nSaturated) / dSamples;
    } catch (const StandIn::CFileError& rError) {
        throw std::runtime_error(strFile + " cannot be made a reference of: " + rError.what());
    }
    return result;
}

void writeFloatImage(const std::string& strFile, const StandIn::ImageLayout& rLayout,
                     const std::vector<float>& vecSamples) {
    StandIn::TiffImage image;
    image.nWidth = rLayout.nWidth;
    image.nHeight = rLayout.nHeight;
    image.nChannels = static_cast<uint16_t>(rLayout.pFormat->nChannels);
    image.nBits = 32;
    try {
        StandIn::CSafeFile file(strFile);
        StandIn::writeTiff(file.get(), {{image, vecSamples.data()}});
        file.finish();
    } catch (const StandIn::CFileError& rError) {
        throw std::runtime_error(strFile + " cannot be written: " + rError.what());
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
