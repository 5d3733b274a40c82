// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report on a pair of references: its pictures, its file.

#include "report/Report.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "images/Pictures.h"
#include "report/Curves.h"

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

class CTemporaryFile {
public:
    explicit CTemporaryFile(const std::string& strFor)
        : m_strFile(strFor + ".XXXXXX"), m_iFile(mkstemp(m_strFile.data())) {}
    ~CTemporaryFile() {
        if (m_iFile >= 0) {
            close(m_iFile);
            unlink(m_strFile.c_str());
        }
    }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    // False with errno set where a step fails.
    bool becomes(const std::string& strFile, const std::string& strContent) {
        std::size_t nDone = 0;
        while (m_iFile >= 0 && nDone < strContent.size()) {
            const ssize_t nWritten = write(m_iFile, &strContent[nDone], strContent.size() - nDone);
            if (nWritten < 0 && errno != EINTR) {
                return false;
            }
            nDone += static_cast<std::size_t>(std::max<ssize_t>(0, nWritten));
        }
        // mkstemp lets nobody else read the file; a report is to be shown around.
        const mode_t uMask = umask(0);
        umask(uMask);
        return m_iFile >= 0 && fchmod(m_iFile, 0666 & ~uMask) == 0 && fsync(m_iFile) == 0 &&
               rename(m_strFile.c_str(), strFile.c_str()) == 0;
    }

private:
    std::string m_strFile;
    int m_iFile;
};

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
    if (!CTemporaryFile(strFile).becomes(strFile, reportPage(rReport.Figures, rReport.Pictures))) {
        throw std::runtime_error(strFile + " cannot be written: " + std::generic_category().message(errno));
    }
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
