// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its pictures, its file.

#include "report/Report.h"

#include <algorithm>
#include <fstream>

#include "standin/files/SafeFile.h"
#include "terminal/Toolkit.h"
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
    const Picture Before = pictureOf(rPair.Raw, SIDE_MAX, SAMPLES_MAX);
    const Picture After = pictureOf(rPair.Corrected, SIDE_MAX, SAMPLES_MAX);
    const Shades Common = commonShades(Before, After);
    rBefore = pngOf(Before, Common);
    rAfter = pngOf(After, Common);
    ordered_json Json = pictureJson(Before, Common);
    Json["frame"] = rPair.Raw.strName;
    return Json;
}

ordered_json addGain(const JudgedPair& rPair, std::string& rPng) {
    const StandIn::ImageLayout& rLayout = (rPair.Light ? rPair.Light : rPair.Dark)->sLayout;
    const std::vector<float> vGains =
        gainsOf(rPair.Dark ? &*rPair.Dark : nullptr, rPair.Light ? &*rPair.Light : nullptr);
    Picture Map{rLayout.nWidth, rLayout.nHeight, 1, 1, {}};
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t i = 0; i < vGains.size(); i += nChannels) {
        float fSum = 0.0F;
        for (std::size_t k = 0; k < nChannels; ++k) {
            fSum += vGains[i + k];
        }
        Map.vValues.push_back(fSum / static_cast<float>(nChannels));
    }
    Map = scaledDown(std::move(Map), SIDE_MAX, SAMPLES_MAX);
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

}  // namespace

Report makeReport(const ReportInput& rInput) {
    Report Result;
    // File names need not be UTF-8, a page must be.
    Result.Figures =
        ordered_json::parse(reportFigures(rInput).dump(-1, ' ', false, ordered_json::error_handler_t::replace));
    ordered_json& rJson = Result.Figures["pictures"];
    ReportPictures& rPictures = Result.Pictures;
    rJson["even"] = addPair(*rInput.Light.Shown, rPictures.strEvenBefore, rPictures.strEvenAfter);
    if (rInput.Scene.Shown) {
        rJson["scene"] = addPair(*rInput.Scene.Shown, rPictures.strSceneBefore, rPictures.strSceneAfter);
    }
    rJson["gain"] = addGain(*rInput.pPair, rPictures.strGain);
    return Result;
}

void writeReport(const std::string& strFile, const Report& rReport) {
    StandIn::saveFile(strFile, reportPage(rReport.Figures, rReport.Pictures));
}

std::string commandLine() {
    std::ifstream In("/proc/self/cmdline", std::ios::binary);
    std::string strLine, strWord;
    while (std::getline(In, strWord, '\0')) {
        strLine += (strLine.empty() ? "" : " ") + shellWord(strWord);
    }
    return strLine;
}

}  // namespace App
}  // namespace XAPEL2
