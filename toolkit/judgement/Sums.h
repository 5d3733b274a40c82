// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums over the samples of large images.

#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

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

/// NaN of none.
inline double meanOfSamples(const std::vector<float>& rSamples) {
    return rSamples.empty() ? std::numeric_limits<double>::quiet_NaN()
                            : sumOf(rSamples.data(), rSamples.size()) / static_cast<double>(rSamples.size());
}

}  // namespace Toolkit
}  // namespace XAPEL2
