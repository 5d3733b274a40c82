// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary).

#include "images/FrameFile.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace XAPEL2 {
namespace App {

namespace {

std::string packedSamples(const Frame& rFrame) {
    const bool bSwap = std::strncmp(rFrame.pFormat->pName, "BGR", 3) == 0;
    const bool bTwoBytes = rFrame.pFormat->fullScale() > 255;
    std::string strBytes;
    strBytes.reserve(rFrame.aSamples.size() * (bTwoBytes ? 2 : 1));
    for (std::size_t i = 0; i < rFrame.aSamples.size(); ++i) {
        const std::size_t iFrom = bSwap ? i - i % 3 + (2 - i % 3) : i;
        const uint16_t uSample = rFrame.aSamples[iFrom];
        if (bTwoBytes) {
            strBytes.push_back(static_cast<char>(uSample >> 8));
        }
        strBytes.push_back(static_cast<char>(uSample & 0xFF));
    }
    return strBytes;
}

}  // namespace

std::filesystem::path writeFrame(const std::filesystem::path& rFolder, const Frame& rFrame) {
    const bool bColour = rFrame.pFormat->nChannels == 3;
    std::filesystem::path File = rFolder / (rFrame.strName + (bColour ? ".ppm" : ".pgm"));
    std::ofstream Out(File, std::ios::binary | std::ios::trunc);
    Out << (bColour ? "P6" : "P5") << '\n'
        << rFrame.nWidth << ' ' << rFrame.nHeight << '\n'
        << rFrame.pFormat->fullScale() << '\n'
        << packedSamples(rFrame);
    Out.close();
    if (!Out) {
        throw std::runtime_error(File.string() + " cannot be written");
    }
    return File;
}

}  // namespace App
}  // namespace XAPEL2
