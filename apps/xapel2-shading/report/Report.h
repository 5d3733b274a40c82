// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its pictures, its file.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "report/Page.h"
#include "terminal/Toolkit.h"
#include "toolkit/figures/ReportFigures.h"

namespace XAPEL2 {
namespace App {

/// A finished report.
// The analyzer takes the move of the JSON for one that may throw.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct Report {
    nlohmann::ordered_json figures;  ///< those of reportFigures(), and what is to be known of program and pictures
    ReportPictures pictures;
};

/// The report on what was measured, made by this program and its command line.
Report makeReport(const ReportInput& rInput);

/// Writes the report as one HTML file of its own, whole or not at all: under a temporary name beside it, then renamed.
/// @throws std::runtime_error  it cannot be written; names it.
void writeReport(const std::string& strFile, const Report& rReport);

}  // namespace App
}  // namespace XAPEL2
