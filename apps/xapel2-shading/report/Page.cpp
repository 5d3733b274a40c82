// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report as one HTML page.

#include "report/Page.h"

#include <cmath>

#include "report/Assets.h"
#include "report/Chart.h"
#include "report/Html.h"
#include "report/PageTables.h"

namespace XAPEL2 {
namespace App {

namespace {

using nlohmann::ordered_json;

std::string image(const std::string& strPng, const std::string& strAlt, const CFigures& rFigures,
                  const std::string& strPath) {
    return "<img alt=\"" + strAlt + "\" width=\"" + rFigures.at(strPath + "/width").dump() + "\" height=\"" +
           rFigures.at(strPath + "/height").dump() + "\" draggable=\"false\" src=\"data:image/png;base64," +
           base64(strPng) + "\">";
}

std::string scaleText(const CFigures& rFigures, const std::string& strPath) {
    const int nStep = rFigures.at(strPath + "/step").get<int>();
    return nStep == 1 ? "One pixel of the picture is one of the camera."
                      : "One pixel of the picture is the mean of " + rFigures.number(strPath + "/step", 0) + "&times;" +
                            std::to_string(nStep) + " of the camera.";
}

class CPage {
public:
    CPage(const ordered_json& rFigures, const ReportPictures& rPictures)
        : m_figures(rFigures), m_rPictures(rPictures), m_bSelfTest(m_figures.at("/selfTest").get<bool>()) {}

    std::string html() const {
        return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
               "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
               // A page that names no source can ask for nothing, whatever text has found its way into it.
               "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
               "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">"
               "<link rel=\"icon\" href=\"data:,\"><title>Shading report: " +
               title() + "</title>\n<style>\n" + REPORT_CSS + "</style></head>\n<body><main>\n" + head() + verdict() +
               summary() + pictures() + charts() + gain() + noise() + tables() +
               "<footer>Every number of this page stands in the element that shows it in full, and in the output of "
               "<span class=\"mono\">--json</span> under the same name.</footer>\n</main>\n<script>\n" +
               REPORT_JS + "</script></body></html>\n";
    }

private:
    std::string title() const { return m_bSelfTest ? "self-test of a pair of references" : m_figures.text("/device"); }

    std::string head() const {
        return "<header><h1>Shading correction" + std::string(m_bSelfTest ? ": self-test" : "") +
               "</h1><p class=\"muted wrap\">" + (m_bSelfTest ? "" : m_figures.text("/device") + " &middot; ") +
               m_figures.text("/pixelFormat") + " &middot; " + m_figures.number("/width", 0) + " &times; " +
               m_figures.number("/height", 0) + " pixels &middot; " + m_figures.text("/made") + "</p></header>\n";
    }

    std::string verdict() const {
        const std::string strVerdict = m_figures.at("/verdict").get<std::string>();
        const bool bGood = strVerdict == "good", bRefused = strVerdict == "refused";
        return "<section class=\"verdict " + strVerdict + "\"><span class=\"sign\" aria-hidden=\"true\">" +
               (bGood      ? "&#10003;"
                : bRefused ? "&times;"
                           : "!") +
               "</span><strong>" +
               (bGood      ? "The references are good"
                : bRefused ? "The references are refused"
                           : "The references work, with warnings") +
               "</strong><p>" + m_figures.text("/verdictText") + "</p></section>\n" + findings();
    }

    std::string findings() const {
        std::string strHtml;
        for (const ordered_json& rFinding : m_figures.at("/findings")) {
            const auto strSeverity = escaped(rFinding.at("severity").get<std::string>());
            strHtml.append("<li><span class=\"tag ").append(strSeverity).append("\">").append(strSeverity);
            strHtml.append("</span>").append(escaped(rFinding.at("text").get<std::string>()));
            const auto strAdvice = rFinding.at("advice").get<std::string>();
            strHtml += (strAdvice.empty() ? "" : "<p class=\"muted\">" + escaped(strAdvice) + "</p>") + "</li>";
        }
        return strHtml.empty() ? "" : "<ul class=\"findings card\">" + strHtml + "</ul>\n";
    }

    std::string change(const std::string& strHead, const std::string& strKey, int nDigits, const std::string& strUnit,
                       const std::string& strText) const {
        // A figure that noise hides is told by what it lies below.
        const auto fnNumber = [&](const std::string& strFigure) {
            const std::string strPath = "/summary/" + strKey + strFigure;
            return m_figures.has(strPath + "Limit") ? "&lt; " + m_figures.number(strPath + "Limit", nDigits)
                                                    : m_figures.number(strPath, nDigits);
        };
        return "<div class=\"card figure\"><h3>" + strHead + "</h3><b><span class=\"from\">" + fnNumber("Before") +
               "</span> <small>&rarr;</small> <span class=\"to\">" + fnNumber("After") + "</span> <small>" + strUnit +
               "</small></b><p>" + strText + "</p></div>";
    }

    std::string one(const std::string& strHead, const std::string& strPath, int nDigits, const std::string& strUnit,
                    const std::string& strText) const {
        return "<div class=\"card figure\"><h3>" + strHead + "</h3><b>" + m_figures.number(strPath, nDigits) +
               " <small>" + strUnit + "</small></b><p>" + strText + "</p></div>";
    }

    std::string summary() const {
        std::string strHtml = "<h2>At a glance</h2><div class=\"cards\">";
        const bool bColour = m_figures.at("/before/classes").size() > 1;
        const std::string strOf = bColour ? ", of the worst colour" : "";
        const std::string strUnit = m_figures.text("/before/dsnuUnit") == "DN" ? "DN" : "e<sup>&minus;</sup>";
        strHtml += change("PRNU<sub>1288</sub>", "prnu", 3, "%", "unevenness under light" + strOf);
        strHtml += change("DSNU<sub>1288</sub>", "dsnu", 3, strUnit, "unevenness in the dark" + strOf);
        if (m_figures.has("/references/pair")) {
            strHtml += one("Predicted residual", "/references/pair/predictedResidualPercent", 3, "%",
                           "of an even target, from the measured noise of the references" + strOf);
        }
        if (m_figures.has("/time")) {
            strHtml += one("Added time", "/time/addedMedianMs", 3, "ms", "by correction, for each frame, median");
        }
        return strHtml + "</div>\n";
    }

    std::string compare(const char* pHead, const std::string& strPath, const std::string& strBefore,
                        const std::string& strAfter) const {
        const std::string strName = m_figures.text(strPath + "/frame");
        return "<figure class=\"compare card\"><h3>" + std::string(pHead) +
               "</h3><div class=\"stage\"><div class=\"after\">" +
               image(strAfter, strName + " after correction", m_figures, strPath) + "<span>after</span></div>" +
               "<div class=\"before\">" + image(strBefore, strName + " before correction", m_figures, strPath) +
               "<span>before</span></div></div>"
               "<input type=\"range\" min=\"0\" max=\"100\" step=\"any\" hidden aria-label=\"Divider between before "
               "and "
               "after: " +
               std::string(pHead) + "\"><figcaption>" + strName + ". Black is " +
               m_figures.number(strPath + "/black", 0) + " DN and white " + m_figures.number(strPath + "/white", 0) +
               " DN in both. " + scaleText(m_figures, strPath) + "</figcaption></figure>";
    }

    std::string pictures() const {
        std::string strHtml = "<h2>Before and after</h2><div class=\"cards wide\">";
        strHtml += compare(m_bSelfTest ? "The light reference itself" : "Even target", "/pictures/even",
                           m_rPictures.strEvenBefore, m_rPictures.strEvenAfter);
        if (!m_rPictures.strSceneAfter.empty()) {
            strHtml += compare("Scene", "/pictures/scene", m_rPictures.strSceneBefore, m_rPictures.strSceneAfter);
        }
        return strHtml + "</div>\n";
    }

    ChartLine line(const char* pWhen, const std::string& strPath) const {
        ChartLine line{std::string(pWhen) + " correction", pWhen, {}, m_figures.at(strPath + '/' + pWhen)};
        const double dFirst = m_figures.value(strPath + "/first"), dStep = m_figures.value(strPath + "/step");
        // The steps of a histogram end where the next would begin.
        const std::size_t nPlaces = line.vecY.size() + (m_figures.has(strPath + "/samples") ? 1 : 0);
        for (std::size_t i = 0; i < nPlaces; ++i) {
            line.vecX.push_back(dFirst + dStep * static_cast<double>(i));
        }
        return line;
    }

    std::string charts() const {
        const auto fnChart = [&](const char* pTitle, const char* pX, const char* pY, const char* pPath, bool bCounts) {
            return "<div class=\"card\">" +
                   chartHtml({pTitle, pX, pY, bCounts, {line("before", pPath), line("after", pPath)}}) + "</div>";
        };
        return "<h2>Profiles and distribution</h2><p class=\"muted\">" + m_figures.text("/measuredOn") +
               "</p><div class=\"cards charts\">" +
               fnChart("From left to right", "column, pixels", "signal, % of its mean", "/profiles/columns", false) +
               fnChart("From top to bottom", "row, pixels", "signal, % of its mean", "/profiles/rows", false) +
               fnChart("Histogram", "signal, % of its mean", "samples", "/histogram", true) + "</div>\n";
    }

    static std::string mark(const std::string& strKind) {
        // Rings, crosses and triangles: told apart without colours.
        const std::string strPath = strKind == "hot"    ? "M-5 0A5 5 0 1 0 5 0A5 5 0 1 0 -5 0"
                                    : strKind == "dead" ? "M-4.5 -4.5L4.5 4.5M-4.5 4.5L4.5 -4.5"
                                                        : "M0 -5.5L5.5 4.5H-5.5Z";
        return "<path class=\"halo\" d=\"" + strPath + "\"/><path class=\"ink\" d=\"" + strPath + "\"/>";
    }

    std::string marks() const {
        const double dWidth = m_figures.value("/gain/width"), dHeight = m_figures.value("/gain/height");
        std::string strHtml = "<svg aria-hidden=\"true\">";
        for (const ordered_json& rMark : m_figures.at("/defects/marks")) {
            strHtml += "<svg class=\"mark\" overflow=\"visible\" x=\"" +
                       rounded(100.0 * (rMark.at("x").get<double>() + 0.5) / dWidth, 3) + "%\" y=\"" +
                       rounded(100.0 * (rMark.at("y").get<double>() + 0.5) / dHeight, 3) + "%\">" +
                       mark(rMark.at("kind").get<std::string>()) + "</svg>";
        }
        return strHtml + "</svg>";
    }

    std::string colourBar(const std::string& strMap) const {
        const double dLow = m_figures.value("/pictures/" + strMap + "/black");
        const double dHigh = m_figures.value("/pictures/" + strMap + "/white");
        std::string strSvg = "<svg class=\"bar\" viewBox=\"0 0 440 44\" role=\"img\" aria-label=\"Colours of the " +
                             strMap + "\"><defs><linearGradient id=\"" + strMap + "\">";
        const std::vector<uint32_t> vecColours = gainColours();
        for (std::size_t i = 0; i < vecColours.size(); i += 51) {
            char acStop[64];
            std::snprintf(acStop, sizeof acStop, "<stop offset=\"%.1f\" stop-color=\"#%06x\"/>",
                          static_cast<double>(i) / 255.0, vecColours[i]);
            strSvg += acStop;
        }
        strSvg += "</linearGradient></defs><rect x=\"20\" y=\"1\" width=\"400\" height=\"14\" fill=\"url(#" + strMap +
                  ")\"/>";
        const std::vector<double> vecTicks = niceTicks(dLow, dHigh, 6);
        for (const double dTick : vecTicks) {
            const std::string strX = rounded(20.0 + 400.0 * (dTick - dLow) / (dHigh - dLow), 1);
            strSvg.append("<path class=\"axis\" d=\"M").append(strX).append(" 15v5\"/><text text-anchor=\"middle\"");
            strSvg.append(" y=\"34\" x=\"").append(strX).append("\">").append(rounded(dTick, tickDigits(vecTicks)));
            strSvg.append("</text>");
        }
        return strSvg + "</svg>";
    }

    // Width over height of a picture, for where it may not become too high.
    std::string ratio(const std::string& strPath) const {
        const auto fnSide = [&](const char* pSide) { return m_figures.at(strPath + pSide).get<double>(); };
        return " style=\"--ratio:" + rounded(fnSide("/width") / fnSide("/height"), 3) + '"';
    }

    std::string gain() const {
        std::string strLegend;
        for (const char* pKind : {"hot", "dead", "bright"}) {
            strLegend += "<span><svg class=\"mark\" viewBox=\"-7 -7 14 14\" aria-hidden=\"true\">" + mark(pKind) +
                         "</svg>" + m_figures.number(std::string("/defects/") + pKind, 0) + ' ' + pKind + "</span>";
        }
        const std::string strMarked = defectsHtml(m_figures);
        return "<h2>Gain</h2><div class=\"cards wide plot\"><figure class=\"card\"" + ratio("/pictures/gain") +
               "><div class=\"map\">" + image(m_rPictures.strGain, "Map of the gain", m_figures, "/pictures/gain") +
               marks() + "</div>" + colourBar("gain") + "<figcaption class=\"legend\">" + strLegend +
               "</figcaption></figure><div class=\"beside\"><div class=\"card\">" +
               "<p>The correction multiplies each pixel, its dark value taken off, by this gain: from " +
               m_figures.number("/gain/min", 3) + " to " + m_figures.number("/gain/max", 3) +
               ", 98 % of the pixels between " + m_figures.number("/gain/p1", 3) + " and " +
               m_figures.number("/gain/p99", 3) + ". " + m_figures.text("/gain/text") + "</p><p class=\"muted\">" +
               scaleText(m_figures, "/pictures/gain") + ' ' + m_figures.text("/defects/text") + "</p></div>" +
               (strMarked.empty() ? "" : "<div class=\"card whole\">" + strMarked + "</div>") + "</div></div>\n";
    }

    // What a corrected sample varies by, as a curve over its value and as a map.
    std::string noise() const {
        if (!m_figures.has("/noise")) {
            return "";
        }
        const std::vector<double> vecValues = m_figures.at("/noise/values").get<std::vector<double>>();
        const std::string strWorst = m_figures.at("/summary/class").get<std::string>();
        std::string strPath = "/noise/classes/0";
        for (std::size_t i = 0; i < m_figures.at("/noise/classes").size(); ++i) {
            const std::string strHere = "/noise/classes/" + std::to_string(i);
            strPath = m_figures.at(strHere + "/class") == strWorst ? strHere : strPath;
        }
        const auto fnLine = [&](const char* pName, const char* pClass, const char* pFigure) {
            ChartLine line{pName, pClass, {}, {}};
            for (std::size_t i = 0; i < vecValues.size(); ++i) {
                const double dHere = m_figures.value(strPath + '/' + pFigure + '/' + std::to_string(i));
                if (!std::isnan(dHere)) {  // it may be unknown, where no sample can have this value
                    line.vecX.push_back(vecValues[i]);
                    line.vecY.push_back(dHere);
                }
            }
            return line;
        };
        const bool bColour = m_figures.at("/noise/classes").size() > 1;
        return "<h2>Noise</h2><div class=\"cards wide plot\"><div class=\"card\">" +
               chartHtml({"Noise of a sample",
                          "corrected value, DN",
                          "standard deviation, DN",
                          false,
                          {fnLine("a frame before correction", "before", "frameDeviations"),
                           fnLine("a corrected frame", "after", "deviations")}}) +
               "<p class=\"muted\">Predicted from the noise of the references: what a corrected sample deviates from "
               "its "
               "true value, the noise of both references and the rounding in it" +
               (bColour ? ", of the worst colour" : "") + ".</p></div><figure class=\"card\"" +
               ratio("/pictures/noise") + "><div class=\"map\">" +
               image(m_rPictures.strNoise, "Map of the noise", m_figures, "/pictures/noise") + "</div>" +
               colourBar("noise") +
               "<figcaption>Standard deviation of a sample of an even target as bright as the light reference, DN. " +
               scaleText(m_figures, "/pictures/noise") + "</figcaption></figure></div>\n";
    }

    std::string tables() const {
        std::string strHtml = "<h2>Non-uniformity, EMVA 1288 Release 4</h2><p class=\"muted\">" +
                              m_figures.text("/nonUniformityText") + "</p>" + nonUniformityHtml(m_figures) +
                              "\n<h2>References</h2>" + referencesHtml(m_figures) +
                              "\n<h2>Time and set-up</h2><div class=\"cards wide last\">";
        if (m_figures.has("/time")) {
            strHtml += timeHtml(m_figures);
        }
        return strHtml + setUpHtml(m_figures) + "</div>\n";
    }

    const CFigures m_figures;
    const ReportPictures& m_rPictures;
    const bool m_bSelfTest;
};

}  // namespace

std::vector<uint32_t> gainColours() {
    static constexpr int STOPS[][3] = {{8, 29, 88},     {52, 74, 125},  {104, 112, 130},
                                       {160, 152, 118}, {214, 194, 88}, {255, 240, 110}};
    constexpr int LAST = 5, PARTS = 51;  // 255 steps in five parts
    std::vector<uint32_t> vecColours;
    for (int i = 0; i <= LAST * PARTS; ++i) {
        const int iStop = std::min(i / PARTS, LAST - 1), iPart = i - iStop * PARTS;
        uint32_t uColour = 0;
        for (int k = 0; k < 3; ++k) {
            const int iValue = (STOPS[iStop][k] * (PARTS - iPart) + STOPS[iStop + 1][k] * iPart) / PARTS;
            uColour = uColour << 8 | static_cast<uint32_t>(iValue);
        }
        vecColours.push_back(uColour);
    }
    return vecColours;
}

std::string reportPage(const ordered_json& rFigures, const ReportPictures& rPictures) {
    return CPage(rFigures, rPictures).html();
}

}  // namespace App
}  // namespace XAPEL2
