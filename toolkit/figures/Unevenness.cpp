// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How uneven a frame is.

#include "toolkit/figures/Unevenness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "toolkit/figures/Curves.h"
#include "toolkit/frames/Pictures.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr unsigned BLOCK_SIDE = 16;

double deviationPercent(const std::vector<float>& vValues) {
    if (vValues.size() < 2) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    double dSum = 0.0, dSquares = 0.0;
    for (const float fValue : vValues) {
        dSum += static_cast<double>(fValue);
    }
    const double dMean = dSum / static_cast<double>(vValues.size());
    for (const float fValue : vValues) {
        dSquares += (static_cast<double>(fValue) - dMean) * (static_cast<double>(fValue) - dMean);
    }
    return 100.0 * std::sqrt(dSquares / static_cast<double>(vValues.size())) / dMean;
}

}  // namespace

Unevenness unevenness(const Frame& rFrame, const std::vector<float>& vDark) {
    if (!vDark.empty() && vDark.size() != rFrame.aSamples.size()) {
        throw std::invalid_argument("the dark reference is of another size than frame " + rFrame.strName);
    }
    MeanImage Signal{{rFrame.pFormat, rFrame.nWidth, rFrame.nHeight}, 1, {}};
    Signal.vSamples.assign(rFrame.aSamples.begin(), rFrame.aSamples.end());
    for (std::size_t i = 0; i < vDark.size(); ++i) {
        Signal.vSamples[i] -= vDark[i];
    }
    const std::vector<double> vecMeans = classMeans(Signal.sLayout, Signal.vSamples);
    if (*std::min_element(vecMeans.begin(), vecMeans.end()) <= 0.0) {
        return {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
    }
    const Picture Relative{rFrame.nWidth, rFrame.nHeight, rFrame.pFormat->nChannels, 1, relativeSignal(Signal, {})};
    return {deviationPercent(grey(blockMeans(Relative, BLOCK_SIDE)).vValues), deviationPercent(Relative.vValues)};
}

}  // namespace Toolkit
}  // namespace XAPEL2
