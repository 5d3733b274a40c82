// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How long something took each time.

#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace XAPEL2 {
namespace Toolkit {

/// Never set back.
using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point tBegin) {
    return std::chrono::duration<double>(Clock::now() - tBegin).count();
}

/// Times of one step, and their distribution. Keeps the first MAX of them.
class CTimes {
public:
    static constexpr std::size_t MAX = 1000000;

    void add(double dMs) {
        if (m_vecMs.size() < MAX) {
            m_vecMs.push_back(dMs);
        }
    }
    std::size_t count() const { return m_vecMs.size(); }

    /// The least time, ms, that at least fShare (above 0, up to 1) of all do not exceed; NaN when there are none.
    double quantile(double dShare) const {
        if (m_vecMs.empty()) {
            return std::numeric_limits<double>::quiet_NaN();
        }
        std::vector<double> vecMs = m_vecMs;
        const auto nRank = static_cast<std::ptrdiff_t>(std::ceil(dShare * static_cast<double>(vecMs.size())));
        const auto it = vecMs.begin() + std::max<std::ptrdiff_t>(nRank, 1) - 1;
        std::nth_element(vecMs.begin(), it, vecMs.end());
        return *it;
    }
    double median() const { return quantile(0.5); }

private:
    std::vector<double> m_vecMs;
};

}  // namespace Toolkit
}  // namespace XAPEL2
