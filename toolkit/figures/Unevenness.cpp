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

double deviationPercent(const std::vector<float>& vecValues) {
    if (vecValues.size() < 2) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    double dSum = 0.0, dSquares = 0.0;
    for (const float fValue : vecValues) {
        dSum += static_cast<double>(fValue);
    }
    const double dMean = dSum / static_cast<double>(vecValues.size());
    for (const float fValue : vecValues) {
        dSquares += (static_cast<double>(fValue) - dMean) * (static_cast<double>(fValue) - dMean);
    }
    return 100.0 * std::sqrt(dSquares / static_cast<double>(vecValues.size())) / dMean;
}

}  // namespace

Unevenness unevenness(const Frame& rFrame, const std::vector<float>& vecDark) {
    if (!vecDark.empty() && vecDark.size() != rFrame.vecSamples.size()) {
        throw std::invalid_argument("the dark reference is of another size than frame " + rFrame.strName);
    }
    MeanImage signal{{rFrame.pFormat, rFrame.nWidth, rFrame.nHeight}, 1, {}};
    signal.vecSamples.assign(rFrame.vecSamples.begin(), rFrame.vecSamples.end());
    for (std::size_t i = 0; i < vecDark.size(); ++i) {
        signal.vecSamples[i] -= vecDark[i];
    }
    const std::vector<double> vecMeans = classMeans(signal.layout, signal.vecSamples);
    if (*std::min_element(vecMeans.begin(), vecMeans.end()) <= 0.0) {
        return {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
    }
    const Picture relative{rFrame.nWidth, rFrame.nHeight, rFrame.pFormat->nChannels, 1, relativeSignal(signal, {})};
    return {deviationPercent(grey(blockMeans(relative, BLOCK_SIDE)).vecValues), deviationPercent(relative.vecValues)};
}

}  // namespace Toolkit
}  // namespace XAPEL2
