// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command report: writes an HTML report on a pair of references.

#pragma once

#include <cstdint>
#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Pair.h"

namespace XAPEL2 {
namespace App {

struct ReportOptions {
    std::string strDevice;  ///< device identifier; empty: no camera, the pair is shown on itself (self-test)
    PairOptions pair;
    uint64_t nFrames = 16;                ///< frames of each kind for the figures after correction
    std::string strFile = "report.html";  ///< HTML file to write
    double dTimeoutS = 10.0;              ///< longest wait for a frame beyond its exposure, seconds
    bool bForce = false;                  ///< a refusal only warns
    bool bJson = false;
};

/// Writes the report; with --json the same figures go to standard output.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runReport(const ReportOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
