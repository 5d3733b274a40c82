// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The tables of the report.

#pragma once

#include <string>

#include "report/Html.h"

namespace XAPEL2 {
namespace App {

/// DSNU1288 and PRNU1288 before and after, a table for each colour class.
std::string nonUniformityHtml(const CFigures& rFigures);

/// The two references side by side, and what the pair promises.
std::string referencesHtml(const CFigures& rFigures);

/// What a frame costs in time.
std::string timeHtml(const CFigures& rFigures);

/// What the figures are made of, and the settings that the camera had.
std::string setUpHtml(const CFigures& rFigures);

/// Pixels that stand out, in a list to open.
std::string defectsHtml(const CFigures& rFigures);

}  // namespace App
}  // namespace XAPEL2
