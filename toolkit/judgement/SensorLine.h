// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Which pixels of a sensor make which pixels of an image.

#pragma once

#include <cstdint>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Where the images of a reference lay: its geometry, or where that is not known, the OffsetX and OffsetY that its
/// camera settings tell, neither binned nor mirrored; 0 where they do not.
StandIn::ImageGeometry sensorPlace(const StandIn::ReferenceImage& rReference);

/// One direction of an image on its sensor.
class CSensorLine {
public:
    /// Sensor pixels side by side.
    struct Run {
        uint64_t iFirst = 0;   ///< the first of them
        uint64_t nLength = 1;  ///< 1 or more
    };

    /// Pixels of the image that sensor pixels are in.
    struct Hits {
        std::vector<uint64_t> vecPixels{};  ///< in ascending order, each once
        uint64_t nInside = 0;               ///< sensor pixels that are in one of them
    };

    /// @param[in] rAxis  holds the image.
    /// @param[in] nSize  pixels of the image.
    /// @param[in] bCfa   there is a colour filter array, pixels of one colour are binned.
    CSensorLine(const StandIn::GeometryAxis& rAxis, uint64_t nSize, bool bCfa)
        : m_axis(rAxis), m_nSize(nSize), m_bCfa(bCfa) {}

    /// Sensor pixels that make pixel i of the image, in ascending order.
    std::vector<Run> runsOf(uint64_t i) const;

    /// What these sensor pixels are in.
    Hits hitsOf(const Run& rRun) const;

private:
    StandIn::GeometryAxis m_axis;
    uint64_t m_nSize;
    bool m_bCfa;
};

}  // namespace Toolkit
}  // namespace XAPEL2
