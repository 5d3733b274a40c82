// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A plot of one row of a frame before and after correction.

#include "demo/Plot.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace XAPEL2 {
namespace App {

namespace {

constexpr std::size_t MEAN_RADIUS = 8;  // of the running mean, in samples

// A text between single quotes as gnuplot reads it.
std::string quoted(const std::string& strText) {
    std::string strResult = "'";
    for (const char cText : strText) {
        strResult += cText == '\'' ? std::string("''") : std::string(1, cText);
    }
    return strResult + "'";
}

// Columns, values and running means of one row, as a data block of gnuplot.
void appendRow(std::ostringstream& rScript, const char* pBlock, const Frame& rFrame, uint64_t iRow) {
    const uint64_t nStep = rFrame.pFormat->isCfa() ? 2 : 1;
    const uint64_t nChannels = rFrame.pFormat->nChannels;
    std::vector<double> afValues;
    for (uint64_t iX = 0; iX < rFrame.nWidth; iX += nStep) {
        afValues.push_back(rFrame.aSamples[(iRow * rFrame.nWidth + iX) * nChannels]);
    }
    rScript << pBlock << " << END\n";
    for (std::size_t i = 0; i < afValues.size(); ++i) {
        const std::size_t iFirst = i < MEAN_RADIUS ? 0 : i - MEAN_RADIUS;
        const std::size_t iEnd = std::min(afValues.size(), i + MEAN_RADIUS + 1);
        double fSum = 0.0;
        for (std::size_t j = iFirst; j < iEnd; ++j) {
            fSum += afValues[j];
        }
        rScript << i * nStep << ' ' << afValues[i] << ' ' << fSum / static_cast<double>(iEnd - iFirst) << '\n';
    }
    rScript << "END\n";
}

std::string script(const std::filesystem::path& rFile, const Frame& rBefore, const Frame& rAfter, uint64_t iRow) {
    std::ostringstream Script;
    appendRow(Script, "$before", rBefore, iRow);
    appendRow(Script, "$after", rAfter, iRow);
    const std::string strTitle = "Row " + std::to_string(iRow) + " of " + rBefore.strName +
                                 ": values (thin) and mean of " + std::to_string(2 * MEAN_RADIUS + 1) +
                                 " neighbours (bold)";
    Script << "set terminal pngcairo size 1000,500 font 'sans,11'\n"
           << "set output " << quoted(rFile.string()) << "\n"
           << "set title " << quoted(strTitle) << " noenhanced\n"
           << "set xlabel 'column (pixels)'\n"
           << "set ylabel 'value (DN)'\n"
           << "set xrange [0:" << std::max<uint64_t>(rBefore.nWidth, 2) - 1 << "]\n"
           << "set offsets 0, 0, graph 0.12, graph 0.05\n"
           << "set grid lc rgb '#dddddd' lt 1\n"
           << "set border 3 lc rgb '#444444'\n"
           << "set tics nomirror out\n"
           << "set key inside top right horizontal\n"
           << "plot $before using 1:2 with lines lw 1 lc rgb '#e8b9b4' notitle, "
           << "$after using 1:2 with lines lw 1 lc rgb '#a9c4e4' notitle, "
           << "$before using 1:3 with lines lw 2.5 lc rgb '#b8352b' title 'before correction', "
           << "$after using 1:3 with lines lw 2.5 lc rgb '#1f5fa8' title 'after correction'\n";
    return Script.str();
}

}  // namespace

bool plotRow(const std::filesystem::path& rFile, const Frame& rBefore, const Frame& rAfter, uint64_t iRow) {
    // Without gnuplot the pipe has no reader, and writing to it would end the process.
    void (*pfnBefore)(int) = std::signal(SIGPIPE, SIG_IGN);
    bool bDone = false;
    if (FILE* pGnuplot = popen("gnuplot >/dev/null 2>&1", "w")) {
        const std::string strScript = script(rFile, rBefore, rAfter, iRow);
        const std::size_t nWritten = std::fwrite(strScript.data(), 1, strScript.size(), pGnuplot);
        bDone = pclose(pGnuplot) == 0 && nWritten == strScript.size();
    }
    std::signal(SIGPIPE, pfnBefore);
    return bDone;
}

}  // namespace App
}  // namespace XAPEL2
