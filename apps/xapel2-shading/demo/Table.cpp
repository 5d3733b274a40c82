// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The table that ends a demonstration.

#include "demo/Table.h"

#include <cstdio>
#include <filesystem>
#include <ostream>

namespace XAPEL2 {
namespace App {

namespace {

void line(std::ostream& rOut, const char* pLabel, double fBefore, double fAfter, int nDigits, const char* pUnit) {
    char acLine[120];
    std::snprintf(acLine, sizeof acLine, "  %-26s %8.*f %-2s %8.*f %s\n", pLabel, nDigits, fBefore, pUnit, nDigits,
                  fAfter, pUnit);
    rOut << acLine;
}

std::string stem(const std::string& strFile) {
    return std::filesystem::path(strFile).stem().string();
}

}  // namespace

void printTable(std::ostream& rOut, const DemoFigures& rFigures, const std::filesystem::path& rFolder) {
    rOut << "Camera      " << rFigures.strSource << ", " << rFigures.nWidth << " x " << rFigures.nHeight << ' '
         << rFigures.strPixelFormat << '\n';
    rOut << "References  mean of " << rFigures.nDarkFrames << " dark and " << rFigures.nLightFrames
         << " light frames\n";
    if (rFigures.nDarkFrames == 0) {
        rOut << "            no dark frames: corrected without a dark reference\n";
    }
    rOut << "Corrected   " << rFigures.astrFrames.size() << " frames, " << stem(rFigures.astrFrames.front()) << " to "
         << stem(rFigures.astrFrames.back()) << "\n\n";
    char acHead[120];
    std::snprintf(acHead, sizeof acHead, "  %-26s %11s %11s\n", "", "before", "after");
    rOut << acHead;
    line(rOut, "unevenness, 16 x 16 blocks", rFigures.Before.fBlocksPercent, rFigures.After.fBlocksPercent, 2, "%");
    line(rOut, "unevenness, single pixels", rFigures.Before.fPixelsPercent, rFigures.After.fPixelsPercent, 2, "%");
    line(rOut, "fetch of a waiting frame", rFigures.fFetchPlainMs, rFigures.fFetchCorrectedMs, 3, "ms");
    rOut << "\nUnevenness: standard deviation over mean of " << stem(rFigures.astrFrames.front())
         << (rFigures.nDarkFrames > 0 ? ", dark reference taken off" : "") << ". Time: median.\n"
         << "Written to " << rFolder.string() << "\n ";
    for (const char* pName : {"report.html", "before.png", "after.png", "scene-before.png", "scene-after.png",
                              "reference-dark.tif", "reference-light.tif", "figures.json"}) {
        if (std::filesystem::exists(rFolder / pName)) {
            rOut << ' ' << pName;
        }
    }
    rOut << "\n  raw/ corrected/\n";
}

}  // namespace App
}  // namespace XAPEL2
