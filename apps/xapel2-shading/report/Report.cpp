// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its pictures, its file.

#include "report/Report.h"

#include <algorithm>
#include <cmath>
#include <fstream>

#include "standin/files/SafeFile.h"
#include "terminal/Output.h"
#include "toolkit/figures/Curves.h"
#include "toolkit/frames/Pictures.h"
#include "toolkit/judgement/CorrectedNoise.h"

namespace XAPEL2 {
namespace App {

using nlohmann::ordered_json;

namespace {

// What keeps a report of a large camera below 3 MB.
constexpr uint64_t SIDE_MAX = 1600, SAMPLES_MAX = 560000, NOISE_SAMPLES_MAX = 140000;

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

// A map in colours, its range as wide as dRangeMin at least.
ordered_json addMap(const StandIn::ImageLayout& rLayout, std::vector<float> vecValues, double dRangeMin,
                    uint64_t nSamplesMax, std::string& rPng) {
    Picture map{rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->nChannels, 1, std::move(vecValues)};
    map = scaledDown(grey(std::move(map)), SIDE_MAX, nSamplesMax);
    std::vector<float> vecSorted = map.vecValues;
    std::sort(vecSorted.begin(), vecSorted.end());
    // Single pixels of no use must not take all the colours.
    const std::size_t nEdge = vecSorted.size() / 500;
    const double dLow = static_cast<double>(vecSorted[nEdge]);
    const double dHigh = static_cast<double>(vecSorted[vecSorted.size() - 1 - nEdge]);
    const double dMargin = std::max(0.0, dRangeMin - (dHigh - dLow)) / 2.0;
    const Shades colours{dLow - dMargin, dHigh + dMargin};
    rPng = pngOf(map, colours, gainColours());
    return pictureJson(map, colours);
}

ordered_json addGain(const JudgedPair& rPair, std::string& rPng) {
    return addMap((rPair.light ? rPair.light : rPair.dark)->layout,
                  gainsOf(rPair.dark ? &*rPair.dark : nullptr, rPair.light ? &*rPair.light : nullptr), 0.01,
                  SAMPLES_MAX, rPng);
}

// Of an even image of the reference's brightness. Samples that carry no measure are shown as the others.
ordered_json addNoise(const JudgedPair& rPair, std::string& rPng) {
    const CCorrectedNoise noise(*rPair.dark, *rPair.light, rPair.pair->figures.noise);
    const StandIn::ImageLayout& rLayout = rPair.light->layout;
    std::vector<float> vecMap = noise.mapOfMean();
    std::vector<float> vecMeans;
    for (unsigned i = 0; i < rLayout.classes(); ++i) {
        vecMeans.push_back(static_cast<float>(noise.deviationOf(i, noise.target(i) + rPair.light->output.dPedestal)));
    }
    for (std::size_t i = 0; i < vecMap.size(); ++i) {
        vecMap[i] = std::isnan(vecMap[i]) ? vecMeans[rLayout.classOf(i)] : vecMap[i];
    }
    return addMap(rLayout, std::move(vecMap), 0.1, NOISE_SAMPLES_MAX, rPng);
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
    ordered_json figures = reportFigures(rInput);
    figures["version"] = XAPEL2_SHADING_VERSION;
    figures["commandLine"] = commandLine();
    result.figures = tellable(figures);
    ordered_json& rJson = result.figures["pictures"];
    ReportPictures& rPictures = result.pictures;
    rJson["even"] = addPair(*rInput.light.shown, rPictures.strEvenBefore, rPictures.strEvenAfter);
    if (rInput.scene.shown) {
        rJson["scene"] = addPair(*rInput.scene.shown, rPictures.strSceneBefore, rPictures.strSceneAfter);
    }
    rJson["gain"] = addGain(rInput.pair, rPictures.strGain);
    if (!result.figures["noise"].is_null()) {
        rJson["noise"] = addNoise(rInput.pair, rPictures.strNoise);
    }
    return result;
}

void writeReport(const std::string& strFile, const Report& rReport) {
    StandIn::saveFile(strFile, reportPage(rReport.figures, rReport.pictures));
}

}  // namespace App
}  // namespace XAPEL2
