// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Places of an even frame that correction left darker or brighter than what surrounds them.

#pragma once

#include <cstdint>
#include <vector>

#include "toolkit/judgement/Judgement.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Sides of the squares that spots are looked for with, in pixels.
constexpr unsigned SPOT_SIDES[] = {8, 16, 32};
/// Spots that deviate less are not looked for, in percent of the signal.
constexpr double SPOT_LEAST_PERCENT = 0.5;

/// A square of the image.
struct Spot {
    uint64_t iX = 0, iY = 0;      ///< left upper pixel
    uint64_t nSide = 0;           ///< one of SPOT_SIDES
    double dPercent = 0.0;        ///< deviation from its surroundings, in percent of the signal
    double dSpreadPercent = 0.0;  ///< standard deviation of squares of this side, told by the median of all
};

/// Squares at steps of half their side, each against a frame of half a side's width around it, at half a side's
/// distance. Of each 4 x 4 pixels the median counts, so that single pixels do not; slopes cancel. A spot is what
/// deviates by eight standard deviations, which chance does not, and by SPOT_LEAST_PERCENT.
/// @param[in] rSignal  in percent of the mean of each colour class, as relativeSignal() tells it.
/// @return  the worst first, by standard deviations, without what belongs to a worse one nearby.
std::vector<Spot> findSpots(const StandIn::ImageLayout& rLayout, const std::vector<float>& rSignal);

/// The warning "measured-spots", with the worst; nothing where there is none.
Findings judgeSpots(const std::vector<Spot>& rSpots);

}  // namespace Toolkit
}  // namespace XAPEL2
