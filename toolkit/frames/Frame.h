// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An image in the application's own memory, and the colour classes of its samples.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace Toolkit {

/// One image, its samples spread to 16 bit each and in the order of the buffer.
struct Frame {
    std::string strName;
    const StandIn::PixelFormat* pFormat = nullptr;  ///< never null in use
    uint64_t nWidth = 0, nHeight = 0;               ///< pixels
    std::vector<uint16_t> vecSamples;
    double dFetchMs = 0.0;  ///< time that the fetch of the waiting frame took
};

/// Number of colour classes of a format: 1, 4 sites of a colour filter array, or 3 channels.
inline unsigned colourClasses(const StandIn::PixelFormat& rFormat) {
    return rFormat.isCfa() ? 4U : rFormat.nChannels;
}

/// Class of sample iSample of an image that is nWidth pixels wide.
inline unsigned colourClass(const StandIn::PixelFormat& rFormat, uint64_t nWidth, std::size_t iSample) {
    if (rFormat.isCfa()) {
        return static_cast<unsigned>(iSample / nWidth % 2 * 2 + iSample % nWidth % 2);
    }
    return static_cast<unsigned>(iSample % rFormat.nChannels);
}

}  // namespace Toolkit
}  // namespace XAPEL2
