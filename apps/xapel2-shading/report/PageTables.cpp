// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The tables of the report.

#include "report/PageTables.h"

#include <cmath>
#include <utility>
#include <vector>

namespace XAPEL2 {
namespace App {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t PRINTED_MARKS = 45;

std::string row(const std::string& strHead, const std::vector<std::string>& vecCells, bool bSum = false) {
    std::string strHtml = std::string(bSum ? "<tr class=\"sum\">" : "<tr>") + "<th scope=\"row\">" + strHead + "</th>";
    for (const std::string& strCell : vecCells) {
        strHtml += "<td>" + strCell + "</td>";
    }
    return strHtml + "</tr>";
}

std::string table(const std::string& strCaption, const std::vector<const char*>& vecHeads, const std::string& strRows) {
    std::string strHtml = "<div class=\"scroll\"><table>";
    if (!strCaption.empty()) {
        strHtml += "<caption>" + strCaption + "</caption>";
    }
    if (!vecHeads.empty()) {
        strHtml += "<thead><tr>";
        for (const char* pHead : vecHeads) {
            strHtml += *pHead != '\0' ? "<th scope=\"col\">" + std::string(pHead) + "</th>" : "<td></td>";
        }
        strHtml += "</tr></thead>";
    }
    return strHtml + "<tbody>" + strRows + "</tbody></table></div>";
}

// The figure before and after; a dash where it was not measured.
std::vector<std::string> beforeAfter(const CFigures& rFigures, const std::string& strPath, int nDigits) {
    std::vector<std::string> vecCells;
    for (const char* pWhen : {"/before", "/after"}) {
        vecCells.push_back(rFigures.has(pWhen) ? rFigures.number(pWhen + strPath, nDigits) : rounded(NAN, 0));
    }
    return vecCells;
}

std::string settingHtml(const CFigures& rFigures, const std::string& strName) {
    const std::string strPath = "/camera/" + strName;
    const ordered_json& rValue = rFigures.at(strPath);
    if (rValue.is_number()) {
        const double dValue = rFigures.value(strPath);
        const std::string strUnit = strName == "ExposureTime" ? " &micro;s" : "";
        return rFigures.number(strPath, dValue == std::floor(dValue) ? 0 : 3) + strUnit;
    }
    return rValue.is_boolean() ? (rValue.get<bool>() ? "yes" : "no") : rFigures.text(strPath);
}

}  // namespace

std::string nonUniformityHtml(const CFigures& rFigures) {
    static constexpr std::pair<const char*, const char*> PARTS[] = {
        {"total", "total"}, {"row", "rows"}, {"column", "columns"}, {"pixel", "pixels"}};
    const ordered_json& rClasses = rFigures.at("/before/classes");
    const std::string strUnit = rFigures.text("/before/dsnuUnit") == "DN" ? "DN" : "e<sup>&minus;</sup>";
    const struct {
        const char *pName, *pKey, *pMean, *pMeanName;
        std::string strUnit;
    } aFigures[] = {{"DSNU", "dsnu", "darkMean", "mean dark, DN", strUnit},
                    {"PRNU", "prnuPercent", "lightMean", "mean light, DN", "%"}};
    std::string strHtml = "<div class=\"cards wide\">";
    for (std::size_t i = 0; i < rClasses.size(); ++i) {
        const std::string strClass = "/classes/" + std::to_string(i);
        const std::string strName = rFigures.text("/before" + strClass + "/class");
        for (const auto& rFigure : aFigures) {
            std::string strRows;
            for (const auto& [pKey, pName] : PARTS) {
                strRows +=
                    row(std::string(rFigure.pName) + "<sub>1288</sub> " + pName + ", " + rFigure.strUnit,
                        beforeAfter(rFigures, strClass + '/' + rFigure.pKey + '/' + pKey, 3), pKey == PARTS[0].first);
            }
            strRows += row(rFigure.pMeanName, beforeAfter(rFigures, strClass + '/' + rFigure.pMean, 2));
            strHtml += "<div class=\"card\">" +
                       table(rClasses.size() > 1 ? "Colour " + strName : "", {"", "before", "after"}, strRows) +
                       "</div>";
        }
    }
    return strHtml + "</div>";
}

std::string referencesHtml(const CFigures& rFigures) {
    static constexpr struct {
        const char *pKey, *pName;
        int nDigits;
        double dFactor;
    } ROWS[] = {{"frames", "frames averaged", 0, 1.0},
                {"mean", "mean, DN", 2, 1.0},
                {"meanPercent", "mean, % of full scale", 2, 1.0},
                {"saturatedShare", "saturated samples, %", 3, 100.0},
                {"temporalNoise", "temporal noise of a frame, DN", 3, 1.0},
                {"hotPixels", "hot pixels", 0, 1.0},
                {"deadPixels", "dead pixels", 0, 1.0},
                {"brightPixels", "bright pixels", 0, 1.0}};
    std::string strRows;
    for (const auto& rRow : ROWS) {
        std::vector<std::string> vecCells;
        for (const char* pKind : {"dark", "light"}) {
            const std::string strPath = std::string("/references/") + pKind + '/' + rRow.pKey;
            vecCells.push_back(rFigures.has(strPath) ? rFigures.number(strPath, rRow.nDigits, rRow.dFactor)
                                                     : rounded(NAN, 0));
        }
        strRows += row(rRow.pName, vecCells);
    }
    std::string strHtml =
        "<div class=\"cards wide\"><div class=\"card\">" + table("", {"", "dark", "light"}, strRows) + "</div>";
    if (rFigures.has("/references/pair")) {
        const std::string strPair = "/references/pair/";
        strHtml += "<div class=\"card\">" +
                   table("", {"", "the&nbsp;pair"},
                         row("conversion gain from the photon transfer, DN per e<sup>&minus;</sup>",
                             {rFigures.number(strPair + "conversionGain", 4)}) +
                             row("mean light signal of a frame, e<sup>&minus;</sup>",
                                 {rFigures.number(strPair + "electrons", 0)}) +
                             row("predicted residual of an even field, %",
                                 {rFigures.number(strPair + "predictedResidualPercent", 3)}) +
                             row("self test: the pair on its own mean, off flat by at most, DN",
                                 {rFigures.number(strPair + "selfTestDn", 2)})) +
                   "</div>";
    }
    return strHtml + "</div>";
}

std::string timeHtml(const CFigures& rFigures) {
    return "<div class=\"card\">" +
           table("Time to fetch a frame that waits, " + rFigures.number("/time/frames", 0) +
                     (rFigures.at("/time/frames") == 1 ? " frame each" : " frames each"),
                 {"", "median, ms", "99 %, ms"},
                 row("correction off",
                     {rFigures.number("/time/plainMedianMs", 3), rFigures.number("/time/plainP99Ms", 3)}) +
                     row("correction on",
                         {rFigures.number("/time/correctedMedianMs", 3), rFigures.number("/time/correctedP99Ms", 3)})) +
           "</div>";
}

std::string setUpHtml(const CFigures& rFigures) {
    const auto fnRow = [](const std::string& strName, const std::string& strText) {
        return "<tr><th scope=\"row\">" + strName + "</th><td class=\"text\">" + strText + "</td></tr>";
    };
    std::string strRows =
        fnRow("Dark reference", rFigures.has("/files/dark") ? rFigures.text("/files/dark") : "none") +
        fnRow("Light reference", rFigures.has("/files/light") ? rFigures.text("/files/light") : "none");
    if (rFigures.has("/filters")) {
        strRows += fnRow("Filters", rFigures.text("/filters"));
    }
    if (rFigures.has("/frames")) {
        strRows += fnRow("Dark frames measured", rFigures.number("/frames/dark", 0)) +
                   fnRow("Even frames measured", rFigures.number("/frames/light", 0));
    }
    strRows += fnRow("Program", "xapel2-shading " + rFigures.text("/version")) +
               fnRow("Command", "<span class=\"mono\">" + rFigures.text("/commandLine") + "</span>") +
               fnRow("Made", rFigures.text("/made"));
    std::string strCamera;
    for (const auto& rItem : rFigures.at("/camera").items()) {
        strCamera += fnRow(escaped(rItem.key()), settingHtml(rFigures, rItem.key()));
    }
    return "<div class=\"card files\">" + table("", {}, strRows) + "</div>" +
           (strCamera.empty() ? "" : "<div class=\"card setup\">" + table("", {}, strCamera) + "</div>");
}

std::string defectsHtml(const CFigures& rFigures) {
    const ordered_json& rMarks = rFigures.at("/defects/marks");
    if (rMarks.empty()) {
        return "";
    }
    std::string strRows;
    for (std::size_t i = 0; i < rMarks.size(); ++i) {
        strRows += i == PRINTED_MARKS ? "</tbody><tbody class=\"screen\">" : "";
        const std::string strMark = "/defects/marks/" + std::to_string(i);
        strRows += row(rFigures.text(strMark + "/kind"),
                       {rFigures.number(strMark + "/x", 0), rFigures.number(strMark + "/y", 0),
                        rFigures.number(strMark + "/value", 1), rFigures.number(strMark + "/neighbours", 1)});
    }
    return "<div class=\"tall\" tabindex=\"0\" role=\"region\" aria-label=\"Marked pixels\">" +
           table("", {"marked", "x", "y", "value, DN", "neighbours, DN"}, strRows) + "</div>" +
           (rMarks.size() > PRINTED_MARKS
                ? "<p class=\"muted paper\">On paper the first " + std::to_string(PRINTED_MARKS) + " of them.</p>"
                : "");
}

}  // namespace App
}  // namespace XAPEL2
