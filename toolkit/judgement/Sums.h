// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums over the samples of large images.

#pragma once

#include <array>
#include <cstddef>
#include <limits>

namespace XAPEL2 {
namespace Toolkit {

/// Sum of fnOf(value) over nValues values from pValues on, in parts that need not wait for each other.
template <class FN>
double sumOver(const float* pValues, std::size_t nValues, const FN& fnOf) {
    constexpr std::size_t PARTS = 8;
    std::array<double, PARTS> aSums{};
    std::size_t i = 0;
    for (; i + PARTS <= nValues; i += PARTS) {
        for (std::size_t k = 0; k < PARTS; ++k) {
            aSums[k] += fnOf(static_cast<double>(pValues[i + k]));
        }
    }
    double dSum = 0.0;
    for (; i < nValues; ++i) {
        dSum += fnOf(static_cast<double>(pValues[i]));
    }
    for (const double dPart : aSums) {
        dSum += dPart;
    }
    return dSum;
}

inline double sumOf(const float* pValues, std::size_t nValues) {
    return sumOver(pValues, nValues, [](double dValue) { return dValue; });
}

/// Of anything that has its samples side by side; NaN of none.
template <class SAMPLES>
double meanOfSamples(const SAMPLES& rSamples) {
    return rSamples.size() == 0 ? std::numeric_limits<double>::quiet_NaN()
                                : sumOf(&*rSamples.begin(), rSamples.size()) / static_cast<double>(rSamples.size());
}

}  // namespace Toolkit
}  // namespace XAPEL2
