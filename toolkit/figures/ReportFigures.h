// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The figures of a report.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "toolkit/figures/Measurement.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/CameraSettings.h"
#include "toolkit/sessions/Pair.h"

namespace XAPEL2 {
namespace Toolkit {

/// What a report is made of. In a self-test Light holds the light reference itself before and after correction; Light
/// always has a pair to show.
struct ReportInput : MeasuredFrames {
    std::string strDevice;  ///< empty for a self-test
    PairOptions files;      ///< as the report is to name them
    JudgedPair pair;        ///< compared with the camera
    CameraSettings camera;
    bool bSelfTest = false;
};

/// The figures: one object, whose members the page names.
/// before and after hold the non-uniformity: before correction of the measured frames, or of the references where there
/// are too few; after correction of the measured frames only, null where there are fewer than two even ones.
nlohmann::ordered_json reportFigures(const ReportInput& rInput);

/// What those figures tell of the frames that were measured, "measured-..."; findings that they contain.
Findings measuredFindings(const ReportInput& rInput, const nlohmann::ordered_json& rFigures);

}  // namespace Toolkit
}  // namespace XAPEL2
