// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What stands in a buffer.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "xapel2_standin/ImageGeometry.h"
#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

/// What the camera wrote into a buffer.
struct FrameInfo {
    bool bImage = false;
    bool bIncomplete = false;
    std::size_t nFilled = 0;       // bytes, from the base on
    std::size_t nImageOffset = 0;  // bytes from the base to the image
    uint64_t nWidth = 0, nHeight = 0;
    ImageGeometry geometry;  // offsets are told even where the sensor is not known
    uint64_t iFrameId = 0;
    uint64_t iTimestamp = 0;  // ns
    const PixelFormat* pFormat = nullptr;
};

struct NamedFrameInfo : FrameInfo {
    std::string strName;
    std::string strTrouble;  // why the frame is incomplete, where more than that is known
};

}  // namespace StandIn
}  // namespace XAPEL2
