// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Figures about the evenness of an image.

#pragma once

#include <string>
#include <vector>

#include "terminal/Toolkit.h"
#include "toolkit/frames/Frame.h"

namespace XAPEL2 {
namespace App {

/// Unevenness: 100 * standard deviation / mean, in percent. Each colour class is divided by its own mean first, so that
/// the colour of the light does not count.
struct Unevenness {
    double fBlocksPercent = 0.0;  ///< over the means of the whole blocks of 16 x 16 pixels; NaN when there is none
    double fPixelsPercent = 0.0;  ///< over single samples
};

/// What a demonstration has to tell: the content of figures.json and of the printed table.
struct DemoFigures {
    std::string strSource;  ///< device identifier
    std::string strPixelFormat;
    uint64_t nWidth = 0, nHeight = 0;            ///< pixels
    uint64_t nDarkFrames = 0, nLightFrames = 0;  ///< frames recorded for the references
    Unevenness Before, After;                    ///< of the first corrected frame
    double fFetchPlainMs = 0.0;                  ///< median time to fetch a waiting frame, correction off
    double fFetchCorrectedMs = 0.0;              ///< the same with correction on
    std::vector<std::string> astrFrames;         ///< file names of the corrected frames
};

/// The frame's unevenness after aDark (in DN, as long as the frame's samples; empty: nothing) is taken off.
/// @throws std::invalid_argument  aDark has another length.
Unevenness unevenness(const Frame& rFrame, const std::vector<float>& aDark);

}  // namespace App
}  // namespace XAPEL2
