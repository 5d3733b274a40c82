// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the charts and the map of a report show: profiles, histograms, gains.

#pragma once

#include <cstddef>
#include <vector>

#include "toolkit/judgement/FrameStack.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Mean of each colour class, DN, in the order of colourClassNames().
std::vector<double> classMeans(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples);

/// Every sample in percent of the mean signal of its colour class. Signal is what exceeds the class's dark level.
/// @param[in] vecDarkLevels  DN, one for each class; empty: 0. Where a class has no signal its samples are 100.
std::vector<float> relativeSignal(const MeanImage& rImage, const std::vector<double>& vecDarkLevels);

/// Values at even places.
struct Curve {
    double dFirst = 0.0;  ///< place of the first value
    double dStep = 1.0;   ///< from one to the next
    std::vector<double> vecValues;
};

/// Means of the columns, or with bRows of the rows, neighbours put together until nPointsMax are left. Places are
/// pixels; each is the middle of what it stands for.
Curve profileOf(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples, bool bRows,
                std::size_t nPointsMax);

/// Two histograms over the same bins, which begin at dFirst + i * dStep. They reach from the 0.01 % to the
/// 99.99 % percentile of all values, and a little beyond; the outermost bins count what lies outside as well.
/// There are nBinsMost of them, or fewer that are no narrower than dStepLeast: the values of few bits would leave every
/// other bin empty.
struct Histograms {
    double dFirst = 0.0, dStep = 1.0;
    std::vector<double> vecBefore, vecAfter;  ///< samples
};
Histograms histogramsOf(const std::vector<float>& vecBefore, const std::vector<float>& vecAfter, std::size_t nBinsMost,
                        double dStepLeast = 0.0);

/// The gain of every sample: mean signal of its class over its own signal, from 0 to 16, and 1 where there is none.
/// @param[in] pDark   null: no dark reference.
/// @param[in] pLight  null: no light reference; the gain is 1 then. At least one of the two is needed.
std::vector<float> gainsOf(const StandIn::ReferenceImage* pDark, const StandIn::ReferenceImage* pLight);

}  // namespace Toolkit
}  // namespace XAPEL2
