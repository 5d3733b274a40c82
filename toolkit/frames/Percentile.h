// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Percentiles of a list of values.

#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace XAPEL2 {
namespace Toolkit {

/// The value that a share dShare (0 to 1) of vecValues does not exceed; vecValues must not be empty.
template <typename T>
T percentile(std::vector<T> vecValues, double dShare) {
    const auto nLast = static_cast<double>(vecValues.size() - 1);
    const auto iPlace = static_cast<std::ptrdiff_t>(std::lround(dShare * nLast));
    std::nth_element(vecValues.begin(), vecValues.begin() + iPlace, vecValues.end());
    return vecValues[static_cast<std::size_t>(iPlace)];
}

}  // namespace Toolkit
}  // namespace XAPEL2
