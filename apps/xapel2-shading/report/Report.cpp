// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its pictures, its file.

#include "report/Report.h"

#include <algorithm>
#include <fstream>

#include "standin/files/SafeFile.h"
#include "terminal/Output.h"
#include "toolkit/figures/Curves.h"
#include "toolkit/frames/Pictures.h"

namespace XAPEL2 {
namespace App {

using nlohmann::ordered_json;

namespace {

// What keeps a report of a large camera below 3 MB.
constexpr uint64_t SIDE_MAX = 1600, SAMPLES_MAX = 560000;

ordered_json pictureJson(const Picture& rPicture, const Shades& rShades) {
    return {{"width", rPicture.nWidth},
            {"height", rPicture.nHeight},
            {"step", rPicture.nStep},
            {"black", rShades.dBlack},
            {"white", rShades.dWhite}};
}

ordered_json addPair(const FramePair& rPair, std::string& rBefore, std::string& rAfter) {
    PicturePair Pictures = picturePair(rPair.Raw, rPair.Corrected, SIDE_MAX, SAMPLES_MAX);
    ordered_json Json = pictureJson(Pictures.Before, Pictures.Common);
    Json["frame"] = rPair.Raw.strName;
    rBefore = std::move(Pictures.strBefore);
    rAfter = std::move(Pictures.strAfter);
    return Json;
}

ordered_json addGain(const JudgedPair& rPair, std::string& rPng) {
    const StandIn::ImageLayout& rLayout = (rPair.Light ? rPair.Light : rPair.Dark)->sLayout;
    Picture Map{rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->nChannels, 1,
                gainsOf(rPair.Dark ? &*rPair.Dark : nullptr, rPair.Light ? &*rPair.Light : nullptr)};
    Map = scaledDown(grey(std::move(Map)), SIDE_MAX, SAMPLES_MAX);
    std::vector<float> vSorted = Map.vValues;
    std::sort(vSorted.begin(), vSorted.end());
    // Single pixels of no use must not take all the colours.
    const std::size_t nEdge = vSorted.size() / 500;
    const double dLow = static_cast<double>(vSorted[nEdge]);
    const double dHigh = static_cast<double>(vSorted[vSorted.size() - 1 - nEdge]);
    const double dMargin = std::max(0.0, 0.01 - (dHigh - dLow)) / 2.0;
    const Shades Colours{dLow - dMargin, dHigh + dMargin};
    rPng = pngOf(Map, Colours, gainColours());
    return pictureJson(Map, Colours);
}

std::string shellWord(const std::string& strWord) {
    static constexpr const char* PLAIN = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=.,:/@%";
    if (!strWord.empty() && strWord.find_first_not_of(PLAIN) == std::string::npos) {
        return strWord;
    }
    std::string strQuoted = "'";
    for (const char c : strWord) {
        strQuoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return strQuoted + '\'';
}

// The command line of this process, quoted for a shell.
std::string commandLine() {
    std::ifstream In("/proc/self/cmdline", std::ios::binary);
    std::string strLine, strWord;
    while (std::getline(In, strWord, '\0')) {
        strLine += (strLine.empty() ? "" : " ") + shellWord(strWord);
    }
    return strLine;
}

}  // namespace

Report makeReport(const ReportInput& rInput) {
    Report Result;
    ordered_json Json = reportFigures(rInput);
    Json["version"] = XAPEL2_SHADING_VERSION;
    Json["commandLine"] = commandLine();
    Result.Figures = tellable(Json);
    ordered_json& rJson = Result.Figures["pictures"];
    ReportPictures& rPictures = Result.Pictures;
    rJson["even"] = addPair(*rInput.Light.Shown, rPictures.strEvenBefore, rPictures.strEvenAfter);
    if (rInput.Scene.Shown) {
        rJson["scene"] = addPair(*rInput.Scene.Shown, rPictures.strSceneBefore, rPictures.strSceneAfter);
    }
    rJson["gain"] = addGain(rInput.Pair, rPictures.strGain);
    return Result;
}

void writeReport(const std::string& strFile, const Report& rReport) {
    StandIn::saveFile(strFile, reportPage(rReport.Figures, rReport.Pictures));
}

}  // namespace App
}  // namespace XAPEL2
