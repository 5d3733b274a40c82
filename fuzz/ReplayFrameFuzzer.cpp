// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads any bytes as recorded frames, PGM, PPM, TIFF or PNG, into memory of exactly the size that the header asks for.

#include <memory>
#include <stdexcept>

#include "FuzzTarget.h"
#include "standin/files/ImageFile.h"
#include "standin/files/PngOutput.h"

using namespace XAPEL2::StandIn;
using XAPEL2::Fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, std::size_t nBytes) {
    static XAPEL2::Fuzz::CInputFile s_oFile;
    const XAPEL2::Fuzz::CBudget oBudget;
    const std::string& strPath = s_oFile.hold(pData, nBytes);
    try {
        const ImageFileLayout layout = imageLayout(strPath);
        const auto isSide = [](uint64_t n) { return n >= 1 && n <= IMAGE_SIDE_MAX; };
        require(isSide(layout.nWidth) && isSide(layout.nHeight), "a frame has a possible size");
        require(layout.uMaxval >= 1 && layout.uMaxval <= layout.pFormat->fullScale(), "its values fit its format");
        const std::size_t nImage = imageBytes(*layout.pFormat, layout.nWidth, layout.nHeight);
        const std::unique_ptr<uint8_t[]> pImage(new uint8_t[nImage]);
        readImageFile(strPath, layout, layout.pages() - 1, pImage.get());
        pngDescription(strPath);
        const std::size_t nLimited = layout.uMaxval < layout.pFormat->fullScale()
                                         ? layout.nWidth * layout.nHeight * layout.pFormat->nChannels
                                         : 0;
        for (std::size_t i = 0; i < nLimited; ++i) {
            uint16_t uSample = 0;
            unpackSamples(*layout.pFormat, pImage.get(), i, 1, &uSample);
            require(uSample <= layout.uMaxval, "no sample is above the largest value");
        }
    } catch (const std::runtime_error& rError) {
        require(std::string(rError.what()).rfind(strPath + ": ", 0) == 0, "a message names the file");
    }
    return 0;
}
