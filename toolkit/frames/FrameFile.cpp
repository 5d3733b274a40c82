// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary) or TIFF.

#include "toolkit/frames/FrameFile.h"

#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "standin/files/SafeFile.h"
#include "standin/files/TiffOutput.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

namespace {

bool takesTwoBytes(const Frame& rFrame) {
    return rFrame.pFormat->fullScale() > 255;
}

// Channels in the order red, green, blue.
std::vector<uint16_t> samplesOf(const Frame& rFrame) {
    std::vector<uint16_t> vecSamples = rFrame.vecSamples;
    if (std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0) {
        for (std::size_t i = 0; i + 2 < vecSamples.size(); i += 3) {
            std::swap(vecSamples[i], vecSamples[i + 2]);
        }
    }
    return vecSamples;
}

void writePixmap(const StandIn::CSafeFile& rOut, const Frame& rFrame) {
    std::string strBytes = (rFrame.pFormat->nChannels == 3 ? "P6\n" : "P5\n") + std::to_string(rFrame.nWidth) + ' ' +
                           std::to_string(rFrame.nHeight) + '\n' + std::to_string(rFrame.pFormat->fullScale()) + '\n';
    const bool bTwoBytes = takesTwoBytes(rFrame);
    strBytes.reserve(strBytes.size() + rFrame.vecSamples.size() * (bTwoBytes ? 2 : 1));
    for (const uint16_t uSample : samplesOf(rFrame)) {
        if (bTwoBytes) {
            strBytes.push_back(static_cast<char>(uSample >> 8));
        }
        strBytes.push_back(static_cast<char>(uSample & 0xFF));
    }
    rOut.write(strBytes);
}

void writeTiff(const StandIn::CSafeFile& rOut, const Frame& rFrame) {
    StandIn::TiffImage image;
    image.nWidth = rFrame.nWidth;
    image.nHeight = rFrame.nHeight;
    image.nChannels = static_cast<uint16_t>(rFrame.pFormat->nChannels);
    image.nBits = takesTwoBytes(rFrame) ? 16 : 8;
    image.uLargest = static_cast<uint16_t>(rFrame.pFormat->fullScale());
    const std::vector<uint16_t> vecSamples = samplesOf(rFrame);
    if (takesTwoBytes(rFrame)) {
        return StandIn::writeTiff(rOut.get(), {{image, vecSamples.data()}});
    }
    StandIn::writeTiff(rOut.get(), {{image, std::vector<uint8_t>(vecSamples.begin(), vecSamples.end()).data()}});
}

}  // namespace

fs::path frameFile(const fs::path& rFolder, const Frame& rFrame, eFrameFile eKind) {
    const bool bColour = rFrame.pFormat->nChannels == 3;
    return rFolder / (rFrame.strName + (eKind == eTiff ? ".tif" : bColour ? ".ppm" : ".pgm"));
}

fs::path writeFrame(const fs::path& rFolder, const Frame& rFrame, eFrameFile eKind) {
    fs::path file = frameFile(rFolder, rFrame, eKind);
    try {
        StandIn::CSafeFile out(file, StandIn::eSaveQuick);
        (eKind == eTiff ? writeTiff : writePixmap)(out, rFrame);
        out.finish();
    } catch (const StandIn::CFileError& rError) {
        throw std::runtime_error(file.string() + " cannot be written: " + rError.what());
    }
    return file;
}

}  // namespace Toolkit
}  // namespace XAPEL2
