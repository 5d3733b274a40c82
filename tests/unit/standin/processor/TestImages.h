// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images for the tests of the image processor.

#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "standin/processor/correction/Correction.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

inline ImageLayout layoutOf(const std::string& strFormat, uint64_t nWidth, uint64_t nHeight) {
    return {findPixelFormat(strFormat), nWidth, nHeight};
}

inline std::vector<uint8_t> pack(const ImageLayout& rLayout, const std::vector<uint16_t>& rSamples) {
    std::vector<uint8_t> vecImage(rLayout.bytes());
    packSamples(*rLayout.pFormat, rSamples.data(), 0, rSamples.size(), vecImage.data());
    return vecImage;
}

inline std::vector<uint16_t> unpack(const ImageLayout& rLayout, const std::vector<uint8_t>& rImage) {
    std::vector<uint16_t> vecSamples(rLayout.samples());
    unpackSamples(*rLayout.pFormat, rImage.data(), 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

/// Colour class of a sample, written down apart from the code under test.
inline unsigned classOf(const ImageLayout& rLayout, std::size_t iSample) {
    const std::size_t iPixel = iSample / rLayout.pFormat->nChannels;
    const std::size_t iX = iPixel % rLayout.nWidth;
    const std::size_t iY = iPixel / rLayout.nWidth;
    if (rLayout.pFormat->isCfa()) {
        return static_cast<unsigned>((iY & 1) << 1 | (iX & 1));
    }
    return static_cast<unsigned>(iSample - iPixel * rLayout.pFormat->nChannels);
}

/// correctionTargets() without those whose names end so.
inline std::vector<const char*> targetsWithout(const std::vector<std::string>& rEnds) {
    std::vector<const char*> vecTargets;
    for (const char* pTarget : correctionTargets()) {
        const std::string strName = pTarget;
        const bool bLeftOut = std::any_of(rEnds.begin(), rEnds.end(), [&](const std::string& rEnd) {
            return strName.size() >= rEnd.size() &&
                   strName.compare(strName.size() - rEnd.size(), rEnd.size(), rEnd) == 0;
        });
        if (!bLeftOut) {
            vecTargets.push_back(pTarget);
        }
    }
    return vecTargets;
}

}  // namespace StandIn
}  // namespace XAPEL2
