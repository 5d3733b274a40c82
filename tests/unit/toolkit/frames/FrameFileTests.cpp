// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images written to files come back as they were, whatever their format.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "TemporaryFolder.h"
#include "standin/files/ImageFile.h"
#include "toolkit/frames/FrameFile.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

namespace {

using Samples = std::vector<uint16_t>;

Samples someSamples(const StandIn::ImageLayout& rLayout) {
    Samples vecSamples(rLayout.samples());
    uint32_t uState = 12345;
    for (uint16_t& rSample : vecSamples) {
        uState = uState * 1664525U + 1013904223U;
        rSample = static_cast<uint16_t>((uState >> 12) & rLayout.pFormat->fullScale());
    }
    return vecSamples;
}

// As a file has them.
Samples redFirst(const StandIn::PixelFormat& rFormat, Samples vecSamples) {
    for (std::size_t i = 0; std::string(rFormat.pName).rfind("BGR", 0) == 0 && i + 2 < vecSamples.size(); i += 3) {
        std::swap(vecSamples[i], vecSamples[i + 2]);
    }
    return vecSamples;
}

Samples readBack(const std::filesystem::path& rFile, uint32_t& rMaxval) {
    const StandIn::ImageFileLayout layout = StandIn::imageLayout(rFile.string());
    std::vector<uint8_t> vecImage(imageBytes(*layout.pFormat, layout.nWidth, layout.nHeight));
    StandIn::readImageFile(rFile.string(), layout, 0, vecImage.data());
    Samples vecSamples(layout.nWidth * layout.nHeight * layout.pFormat->nChannels);
    StandIn::unpackSamples(*layout.pFormat, vecImage.data(), 0, vecSamples.size(), vecSamples.data());
    rMaxval = layout.uMaxval;
    return vecSamples;
}

}  // namespace

// Larger than a block, and no multiple of one; every way that samples stand in memory.
TEST(FrameFile, EveryFormatComesBackSampleBySample) {
    const XAPEL2::Test::CTemporaryFolder folder;
    for (const StandIn::PixelFormat& rFormat : StandIn::pixelFormats()) {
        for (const auto& [nWidth, nHeight] : {std::pair<uint64_t, uint64_t>(5, 3), {331, 307}}) {
            const StandIn::ImageLayout layout{&rFormat, nWidth, nHeight};
            const Samples vecSamples = someSamples(layout);
            std::vector<uint8_t> vecImage(layout.bytes());
            StandIn::packSamples(rFormat, vecSamples.data(), 0, vecSamples.size(), vecImage.data());
            for (const eFrameFile eKind : {ePixmap, eTiff, ePng}) {
                const auto file = frameFile(folder.path(), "image", rFormat, eKind);
                const std::string strSaid = nWidth == 5 ? "" : "what it is";
                writeImage(file, layout, vecImage.data(), eKind, strSaid);
                EXPECT_NE(StandIn::imageDescription(file).find(strSaid), std::string::npos) << file;
                uint32_t uMaxval = 0;
                EXPECT_TRUE(readBack(file, uMaxval) == redFirst(rFormat, vecSamples))
                    << rFormat.pName << ' ' << nWidth << ' ' << file;
                EXPECT_TRUE(eKind != ePixmap || uMaxval == rFormat.fullScale()) << rFormat.pName;
                const Frame frame{"frame", &rFormat, nWidth, nHeight, vecSamples};
                EXPECT_TRUE(readBack(writeFrame(folder.path(), frame, eKind), uMaxval) == redFirst(rFormat, vecSamples))
                    << rFormat.pName << " as a frame";
            }
        }
    }
}
