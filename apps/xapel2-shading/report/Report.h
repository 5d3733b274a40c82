// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its figures, its pictures, its file.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "report/Page.h"
#include "terminal/Toolkit.h"
#include "toolkit/figures/Measurement.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/CameraSettings.h"
#include "toolkit/sessions/Pair.h"

namespace XAPEL2 {
namespace App {

/// What a report is made of.
struct ReportInput {
    std::string strDevice;       ///< empty for a self-test
    std::string strCommandLine;  ///< as it can be typed again
    PairOptions Files;
    const JudgedPair* pPair = nullptr;  ///< borrowed; compared with the camera
    CameraSettings Camera;
    /// The frames outside the references. In a self-test Light holds the light reference itself before and after
    /// correction; Light always has a pair to show.
    SceneFrames Dark, Light, Scene;
    bool bSelfTest = false;
    std::vector<double> vecPlainMs, vecCorrectedMs;  ///< may be empty
};

/// The figures: one object, whose members the page names.
/// before and after hold the non-uniformity: before correction of the measured frames, or of the references where there
/// are too few; after correction of the measured frames only, null where there are fewer than two even ones.
nlohmann::ordered_json reportFigures(const ReportInput& rInput);

/// A finished report.
// The analyzer takes the move of the JSON for one that may throw.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct Report {
    nlohmann::ordered_json Figures;  ///< those of reportFigures(), and what is to be known about the pictures
    ReportPictures Pictures;
};

Report makeReport(const ReportInput& rInput);

/// Writes the report as one HTML file of its own, whole or not at all: under a temporary name beside it, then renamed.
/// @throws std::runtime_error  it cannot be written; names it.
void writeReport(const std::string& strFile, const Report& rReport);

/// The command line of this process, quoted for a shell.
std::string commandLine();

}  // namespace App
}  // namespace XAPEL2
