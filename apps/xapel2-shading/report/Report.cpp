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
    PicturePair pictures = picturePair(rPair.raw, rPair.corrected, SIDE_MAX, SAMPLES_MAX);
    ordered_json json = pictureJson(pictures.before, pictures.common);
    json["frame"] = rPair.raw.strName;
    rBefore = std::move(pictures.strBefore);
    rAfter = std::move(pictures.strAfter);
    return json;
}

ordered_json addGain(const JudgedPair& rPair, std::string& rPng) {
    const StandIn::ImageLayout& rLayout = (rPair.light ? rPair.light : rPair.dark)->layout;
    Picture map{rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->nChannels, 1,
                gainsOf(rPair.dark ? &*rPair.dark : nullptr, rPair.light ? &*rPair.light : nullptr)};
    map = scaledDown(grey(std::move(map)), SIDE_MAX, SAMPLES_MAX);
    std::vector<float> vecSorted = map.vecValues;
    std::sort(vecSorted.begin(), vecSorted.end());
    // Single pixels of no use must not take all the colours.
    const std::size_t nEdge = vecSorted.size() / 500;
    const double dLow = static_cast<double>(vecSorted[nEdge]);
    const double dHigh = static_cast<double>(vecSorted[vecSorted.size() - 1 - nEdge]);
    const double dMargin = std::max(0.0, 0.01 - (dHigh - dLow)) / 2.0;
    const Shades colours{dLow - dMargin, dHigh + dMargin};
    rPng = pngOf(map, colours, gainColours());
    return pictureJson(map, colours);
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
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string strLine, strWord;
    while (std::getline(in, strWord, '\0')) {
        strLine += (strLine.empty() ? "" : " ") + shellWord(strWord);
    }
    return strLine;
}

}  // namespace

Report makeReport(const ReportInput& rInput) {
    Report result;
    ordered_json json = reportFigures(rInput);
    json["version"] = XAPEL2_SHADING_VERSION;
    json["commandLine"] = commandLine();
    result.figures = tellable(json);
    ordered_json& rJson = result.figures["pictures"];
    ReportPictures& rPictures = result.pictures;
    rJson["even"] = addPair(*rInput.light.shown, rPictures.strEvenBefore, rPictures.strEvenAfter);
    if (rInput.scene.shown) {
        rJson["scene"] = addPair(*rInput.scene.shown, rPictures.strSceneBefore, rPictures.strSceneAfter);
    }
    rJson["gain"] = addGain(rInput.pair, rPictures.strGain);
    return result;
}

void writeReport(const std::string& strFile, const Report& rReport) {
    StandIn::saveFile(strFile, reportPage(rReport.figures, rReport.pictures));
}

}  // namespace App
}  // namespace XAPEL2
