// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A line on the terminal that tells how far a run is.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Progress.h"

namespace XAPEL2 {
namespace App {

/// Rewrites one line of stderr when that is a terminal that can do so, and does nothing otherwise, nor for those who
/// want it quiet. The destructor clears the line.
class CProgress : public IProgress {
public:
    CProgress();
    ~CProgress() override;
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// Shows "strStep iDone/nAll, rate, time left, strMore". Rate and time left count from the first call with this
    /// strStep. Between the first and the last frame the line is rewritten ten times a second at most.
    /// @param[in] nAll  0: without end, and then without time left.
    void show(const std::string& strStep, uint64_t iDone, uint64_t nAll, const std::string& strMore = {}) override;
    /// Clears the line, before something else is printed.
    void clear() override;

private:
    using Clock = std::chrono::steady_clock;

    bool m_bTerminal;
    bool m_bShown = false;
    std::string m_strStep;
    Clock::time_point m_tBegin, m_tShown;
    uint64_t m_iFirst = 0;  // frames that were done at m_tBegin
};

/// The text of a progress line: "recording 12/16, 24.9 fps, 0:03 left, more".
/// @param[in] nFresh    frames done in fSeconds; with fewer than 1 or no time there is no rate.
std::string progressText(const std::string& strStep, uint64_t iDone, uint64_t nAll, uint64_t nFresh, double dSeconds,
                         const std::string& strMore);

}  // namespace App
}  // namespace XAPEL2
