// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Charts as SVG: lines over axes with ticks and units.

#pragma once

#include <string>
#include <vector>

namespace XAPEL2 {
namespace App {

/// One line of a chart. The page's style sheet gives each class its colour and dashes.
struct ChartLine {
    std::string strName;             ///< for the legend
    std::string strClass;            ///< "before" or "after"
    std::vector<double> vecX, vecY;  ///< of one length, vX rising
};

struct Chart {
    std::string strTitle;
    std::string strXLabel, strYLabel;  ///< with unit
    bool bCounts = false;  ///< a histogram: steps from vX[i] to vX[i + 1] over a logarithmic axis, 0 at its foot
    std::vector<ChartLine> vecLines;
};

/// A chart as <figure> with title, SVG and legend. Texts are escaped. The picture scales with the page; its colours are
/// the style sheet's.
std::string chartHtml(const Chart& rChart);

/// Values that divide the range from dLow to dHigh evenly, about nAbout of them, each 1, 2 or 5 times a power of ten
/// from the next.
std::vector<double> niceTicks(double dLow, double dHigh, unsigned nAbout);

/// Decimals that tell such values apart.
int tickDigits(const std::vector<double>& vecTicks);

}  // namespace App
}  // namespace XAPEL2
