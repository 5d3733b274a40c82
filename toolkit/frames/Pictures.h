// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Pictures for people: frames as 8-bit PNG images, on a scale that two of them share.

#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "toolkit/frames/Frame.h"

namespace XAPEL2 {
namespace Toolkit {

/// A picture whose values have no shade yet.
struct Picture {
    uint64_t nWidth = 0, nHeight = 0;  ///< pixels of the picture
    unsigned nChannels = 1;            ///< 1, or 3 in the order red, green, blue
    unsigned nStep = 1;            ///< pixels of the frame, along each side, that one pixel of the picture stands for
    std::vector<float> vecValues;  ///< DN
};

/// The picture of a frame. A colour filter array is shown as grey, each square of 2 x 2 sites one pixel. A frame that
/// is too large is scaled down by a whole factor; each pixel is the mean of those that it stands for, and what does not
/// fill a whole pixel at the right and lower edge is left out.
/// @param[in] nSideMax     longest side of the picture, pixels.
/// @param[in] nSamplesMax  most samples of the picture.
Picture pictureOf(const Frame& rFrame, uint64_t nSideMax = std::numeric_limits<uint64_t>::max(),
                  uint64_t nSamplesMax = std::numeric_limits<uint64_t>::max());

/// Scales a picture down as pictureOf() does.
Picture scaledDown(Picture source, uint64_t nSideMax, uint64_t nSamplesMax);

/// Means of squares of nStep x nStep pixels; what does not fill one is left out.
Picture blockMeans(const Picture& rSource, unsigned nStep);

/// The mean of the channels of each pixel.
Picture grey(Picture source);

/// The values that are shown as black and white.
struct Shades {
    double dBlack = 0.0, dWhite = 1.0;  ///< DN
};

/// A little beyond the 0.1 % and 99.9 % percentiles of the two pictures together.
Shades commonShades(const Picture& rFirst, const Picture& rSecond);

/// The picture as a PNG file's bytes, grey or colour, values beyond the shades clipped.
/// @throws std::runtime_error  it cannot be made.
std::string pngOf(const Picture& rPicture, const Shades& rShades);

/// The same with 256 colours in place of shades of grey; of a picture with one channel.
/// @param[in] vecColours  256 colours, 0xRRGGBB, from black to white.
std::string pngOf(const Picture& rPicture, const Shades& rShades, const std::vector<uint32_t>& vecColours);

/// Two frames as PNG files on one common scale.
struct PicturePair {
    Picture before;
    Shades common;
    std::string strBefore, strAfter;  ///< the files' bytes
};

/// @param[in] nSideMax,nSamplesMax  as of pictureOf(). @throws std::runtime_error  it cannot be made.
PicturePair picturePair(const Frame& rBefore, const Frame& rAfter,
                        uint64_t nSideMax = std::numeric_limits<uint64_t>::max(),
                        uint64_t nSamplesMax = std::numeric_limits<uint64_t>::max());

}  // namespace Toolkit
}  // namespace XAPEL2
