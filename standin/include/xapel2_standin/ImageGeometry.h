// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Where an image lies on its sensor: region, binning, mirror.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2/XapelExport.h"

namespace XAPEL2 {
namespace StandIn {

/// What a camera makes of the pixels that it bins.
enum eBinningMode {
    eBinningUnknown = 0,  ///< the camera does not tell
    eBinningSum = 1,      ///< their sum
    eBinningAverage = 2,  ///< their mean
};

/// Most sensor pixels of one direction that make one pixel of an image.
constexpr uint64_t BINNING_MAX = 64;

/// One direction of an image on its sensor. A sensor is binned, then mirrored; the image is cut out of that. Pixels are
/// binned with those of their own colour: side by side, or of a colour filter array every second one, so that the array
/// of the binned sensor is that of the sensor. What is left over at the far end is not used.
struct GeometryAxis {
    uint64_t nSensor = 0;                  ///< pixels of the sensor; 0: nothing is known of the geometry
    uint64_t nOffset = 0;                  ///< first pixel of the image on the binned, mirrored sensor
    uint64_t nBinning = 1;                 ///< sensor pixels that make one
    eBinningMode eMode = eBinningUnknown;  ///< of no meaning where nothing is binned
    bool bReverse = false;                 ///< mirrored

    /// Alike in all of it.
    bool operator==(const GeometryAxis& r) const {
        return nSensor == r.nSensor && nOffset == r.nOffset && nBinning == r.nBinning && eMode == r.eMode &&
               bReverse == r.bReverse;
    }

    /// Pixels of the binned sensor. @param[in] bCfa  there is a colour filter array.
    uint64_t binned(bool bCfa) const {
        return nBinning == 0 ? 0 : bCfa && nBinning > 1 ? nSensor / 2 / nBinning * 2 : nSensor / nBinning;
    }
    /// True where nSize pixels, 1 or more, from the offset on lie on the sensor. No number is too large.
    bool holds(uint64_t nSize, bool bCfa) const {
        const uint64_t nBinned = binned(bCfa);
        return nBinning <= BINNING_MAX && nSize >= 1 && nSize <= nBinned && nOffset <= nBinned - nSize;
    }
    /// Pixel of the binned sensor, before it is mirrored, that is pixel i of an image that it holds.
    uint64_t unmirrored(uint64_t i, bool bCfa) const {
        return bReverse ? binned(bCfa) - 1 - (nOffset + i) : nOffset + i;
    }
    /// First of the n pixels that make pixel u of a line that is binned by n.
    static uint64_t firstOf(uint64_t u, uint64_t n, bool bCfa) { return bCfa ? u / 2 * 2 * n + u % 2 : u * n; }
    /// How far it is from one of these to the next.
    static uint64_t stepOf(uint64_t n, bool bCfa) { return bCfa && n > 1 ? 2 : 1; }
};

/// Both directions.
struct ImageGeometry {
    GeometryAxis x{};  ///< from left to right
    GeometryAxis y{};  ///< from top to bottom

    /// True where the camera tells it.
    bool isKnown() const { return x.nSensor != 0 && y.nSensor != 0; }
    /// Alike in both directions.
    bool operator==(const ImageGeometry& r) const { return x == r.x && y == r.y; }
    /// Not alike.
    bool operator!=(const ImageGeometry& r) const { return !(*this == r); }

    /// True where an image of this size is all of the sensor.
    bool isWhole(uint64_t nWidth, uint64_t nHeight, bool bCfa) const {
        return x.nOffset == 0 && y.nOffset == 0 && nWidth == x.binned(bCfa) && nHeight == y.binned(bCfa);
    }
};

/// "window 640 x 480 at 1200, 900, binned 2 x 2 (sum), mirrored left to right"; of an image that is all of the sensor
/// "whole sensor 2448 x 2048" and the rest; "place on the sensor not known". @threads any.
XAPEL2_HOST_API std::string inWords(const ImageGeometry& rGeometry, uint64_t nWidth, uint64_t nHeight, bool bCfa);

}  // namespace StandIn
}  // namespace XAPEL2
