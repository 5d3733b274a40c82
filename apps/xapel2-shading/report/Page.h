// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report as one HTML page.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace XAPEL2 {
namespace App {

/// PNG files of the report, their bytes; empty: there is none.
struct ReportPictures {
    std::string strEvenBefore, strEvenAfter;    ///< the even target
    std::string strSceneBefore, strSceneAfter;  ///< something else
    std::string strGain;                        ///< map of the gain
    std::string strNoise{};                     ///< map of the noise; empty where that is not known
};

/// The page: style, script, pictures and charts are all in it; nothing is fetched from anywhere. Every number on it is
/// one of the figures, in a <data> element that names its place among them.
/// @param[in] rFigures  see Figures.h.
/// @throws nlohmann::json::exception  a figure is missing.
std::string reportPage(const nlohmann::ordered_json& rFigures, const ReportPictures& rPictures);

/// Colours of the map of the gain, 0xRRGGBB, from low to high: blue, grey, yellow, ever lighter, so that people who do
/// not see all colours can tell them apart.
std::vector<uint32_t> gainColours();

}  // namespace App
}  // namespace XAPEL2
