// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every figure of the page stands beside its own words.

#include "report/Page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::HasSubstr;
using ::testing::Not;

namespace XAPEL2 {
namespace App {
namespace {

using nlohmann::ordered_json;

// No two numbers are alike.
const char FIGURES[] = R"({
"selfTest": false, "device": "sim:<7>", "pixelFormat": "BayerRG12", "width": 200, "height": 100, "made": "today",
"version": "9.8", "commandLine": "report -d sim", "measuredOn": "Of four frames.",
"files": {"dark": "d.tif", "light": "l.tif"}, "filters": "box 3",
"camera": {"PixelFormat": "BayerRG12", "ExposureTime": 93, "Gain": 1.25, "ReverseX": true},
"frames": {"dark": 91, "light": 92},
"verdict": "good", "verdictText": "Nothing.", "findings": [{"severity": "note", "text": "A", "advice": "B"}],
"summary": {"prnuBefore": 0.31, "prnuAfter": 0.32, "dsnuBefore": 0.41, "dsnuAfter": 0.42},
"nonUniformityText": "Of all.",
"before": {"dsnuUnit": "e-", "classes": [{"class": "R", "darkMean": 19, "lightMean": 20,
  "dsnu": {"total": 11, "row": 12, "column": 13, "pixel": 14},
  "prnuPercent": {"total": 15, "row": 16, "column": 17, "pixel": 18}},
  {"class": "B", "darkMean": 119, "lightMean": 120,
  "dsnu": {"total": 111, "row": 112, "column": 113, "pixel": 114},
  "prnuPercent": {"total": 115, "row": 116, "column": 117, "pixel": 118}}]},
"after": {"dsnuUnit": "e-", "classes": [{"class": "R", "darkMean": 29, "lightMean": 30,
  "dsnu": {"total": 21, "row": 22, "column": 23, "pixel": 24},
  "prnuPercent": {"total": 25, "row": 26, "column": 27, "pixel": null}},
  {"class": "B", "darkMean": 129, "lightMean": 130,
  "dsnu": {"total": 121, "row": 122, "column": 123, "pixel": 124},
  "prnuPercent": {"total": 125, "row": 126, "column": 127, "pixel": 128}}]},
"references": {
  "dark": {"frames": 31, "mean": 32, "meanPercent": 33, "saturatedShare": 0.34, "temporalNoise": 35, "hotPixels": 36},
  "light": {"frames": 41, "mean": 42, "meanPercent": 43, "saturatedShare": 0.44, "temporalNoise": 45, "deadPixels": 46,
            "brightPixels": 47},
  "pair": {"conversionGain": 51, "electrons": 52, "predictedResidualPercent": 53, "selfTestDn": 54}},
"time": {"frames": 61, "plainMedianMs": 62, "plainP99Ms": 63, "correctedMedianMs": 64, "correctedP99Ms": 65,
         "addedMedianMs": 66},
"gain": {"width": 400, "height": 300, "min": 71, "max": 72, "p1": 73, "p99": 74, "text": "Plain."},
"defects": {"hot": 75, "dead": 76, "bright": 77, "text": "All.",
            "marks": [{"kind": "dead", "x": 81, "y": 82, "value": 83, "neighbours": 84}]},
"profiles": {"columns": {"first": 0, "step": 50, "before": [1, 2, 3], "after": [2, 2, 2]},
             "rows": {"first": 0, "step": 250, "before": [4, 5, 6], "after": [5, 5, 5]}},
"histogram": {"first": 90, "step": 10, "samples": 7, "before": [1, 2500000], "after": [0, 3]},
"pictures": {"even": {"frame": "even_1", "width": 7, "height": 8, "step": 1, "black": 94, "white": 95},
             "scene": {"frame": "scene_1", "width": 9, "height": 10, "step": 3, "black": 96, "white": 97},
             "gain": {"width": 11, "height": 12, "step": 1, "black": 1, "white": 2}}})";

// What a reader sees: each run of tags is a bar.
std::string seen(const std::string& strHtml) {
    std::string strText = "|";
    for (std::size_t i = 0; i < strHtml.size(); ++i) {
        if (strHtml[i] == '<') {
            i = std::min(strHtml.find('>', i), strHtml.size());
            strText.resize(strText.find_last_not_of(" \n") + 1);
            strText += strText.back() == '|' ? "" : "|";
        } else if (strText.back() != '|' || (strHtml[i] != ' ' && strHtml[i] != '\n')) {
            strText += strHtml[i];
        }
    }
    return strText;
}

std::string page(const ordered_json& rFigures) {
    return reportPage(rFigures, {"before", "after", "scene before", "scene after", "gain"});
}

TEST(Page, EachFigureStandsBesideItsWords) {
    const std::string strHtml = page(ordered_json::parse(FIGURES)), strSeen = seen(strHtml);
    for (const char* pText : {
             "|Shading correction|sim:&lt;7&gt; &middot; BayerRG12 &middot;|200|&times;|100|pixels &middot; today|",
             "|The references are good|Nothing.|note|A|B|",
             "|PRNU|1288|0.310|&rarr;|0.320|%|unevenness under light, of the worst colour|",
             "|DSNU|1288|0.410|&rarr;|0.420|e|&minus;|unevenness in the dark, of the worst colour|",
             "|Predicted residual|53.000|%|",
             "|Added time|66.000|ms|",
             "|Even target|after|before|even_1. Black is|94|DN and white|95|DN in both. One pixel of the picture is "
             "one",
             "|Scene|after|before|scene_1. Black is|96|DN and white|97|DN in both. One pixel of the picture is the "
             "mean of|3",
             "|80|100|column, pixels|",
             "|400|500|row, pixels|",
             "|1|10|100|1 k|10 k|100 k|1 M|samples|",
             "|75|hot|76|dead|77|bright|",
             "gain: from|71.000|to|72.000|, 98 % of the pixels between|73.000|and|74.000|. Plain.|",
             "|marked|x|y|value, DN|neighbours, DN|dead|81|82|83.0|84.0|",
             "|Colour R|before|after|DSNU|1288|total, e|&minus;|11.000|21.000|DSNU|1288|rows, e|&minus;|12.000|22.000|",
             "|columns, e|&minus;|13.000|23.000|DSNU|1288|pixels, e|&minus;|14.000|24.000|mean dark, DN|19.00|29.00|",
             "|Colour R|before|after|PRNU|1288|total, %|15.000|25.000|PRNU|1288|rows, %|16.000|26.000|",
             "|columns, %|17.000|27.000|PRNU|1288|pixels, %|18.000|\xE2\x80\x93|mean light, DN|20.00|30.00|",
             "|Colour B|before|after|DSNU|1288|total, e|&minus;|111.000|",
             "|dark|light|frames averaged|31|41|mean, DN|32.00|42.00|mean, % of full scale|33.00|43.00|",
             "|saturated samples, %|34.000|44.000|temporal noise of a frame, DN|35.000|45.000|",
             "|hot pixels|36|\xE2\x80\x93|dead pixels|\xE2\x80\x93|46|bright pixels|\xE2\x80\x93|47|",
             "DN per e|&minus;|51.0000|mean light signal of a frame, e|&minus;|52|predicted residual of an even field, "
             "%|53.000|",
             "off flat by at most, DN|54.00|",
             "|Time to fetch a frame that waits,|61|frames each|median, ms|99 %, ms|correction off|62.000|63.000|",
             "|correction on|64.000|65.000|",
             "|Dark reference|d.tif|Light reference|l.tif|Filters|box 3|Dark frames measured|91|Even frames "
             "measured|92|Program|xapel2-shading 9.8|",
             "|PixelFormat|BayerRG12|ExposureTime|93|&micro;s|Gain|1.250|ReverseX|yes|",
         }) {
        EXPECT_THAT(strSeen, HasSubstr(pText));
    }
    // A mark stands at the middle of its pixel.
    EXPECT_THAT(strHtml, HasSubstr("x=\"20.375%\" y=\"27.500%\""));
    EXPECT_LT(strHtml.find("data:image/png;base64,YWZ0ZXI="), strHtml.find("data:image/png;base64,YmVmb3Jl"));
    EXPECT_THAT(strHtml, HasSubstr("even_1 after correction\" width=\"7\" height=\"8\" draggable=\"false\" "
                                   "src=\"data:image/png;base64,YWZ0ZXI="));
}

TEST(Page, WhatIsNotThereIsNotTold) {
    ordered_json json = ordered_json::parse(FIGURES);
    json["files"] = {{"dark", nullptr}, {"light", nullptr}};
    for (const char* pMissing : {"after", "time", "filters"}) {
        json[pMissing] = nullptr;
    }
    json["references"]["pair"] = nullptr;
    json["defects"]["marks"] = ordered_json::array();
    const std::pair<const char*, const char*> aVerdicts[] = {{"refused", "|The references are refused|"},
                                                             {"warning", "|The references work, with warnings|"}};
    for (const auto& [pVerdict, pText] : aVerdicts) {
        json["verdict"] = pVerdict;
        const std::string strSeen = seen(page(json));
        EXPECT_THAT(strSeen, HasSubstr(pText));
        EXPECT_THAT(strSeen, HasSubstr("|Dark reference|none|Light reference|none|Dark frames measured|"));
        EXPECT_THAT(strSeen, HasSubstr("|mean light, DN|20.00|\xE2\x80\x93|"));
        for (const char* pNot : {"|Added time|", "|Predicted residual|", "|marked|", "|correction off|"}) {
            EXPECT_THAT(strSeen, Not(HasSubstr(pNot)));
        }
    }
    json["selfTest"] = true;
    EXPECT_THAT(seen(page(json)), HasSubstr("|Shading correction: self-test|BayerRG12 &middot;|"));
    EXPECT_THAT(seen(page(json)), HasSubstr("|The light reference itself|after|"));
}

TEST(Page, PaperHasTheFirstMarksAndSaysSo) {
    ordered_json json = ordered_json::parse(FIGURES);
    ordered_json& rMarks = json["defects"]["marks"];
    while (rMarks.size() < 45) {
        rMarks.push_back(rMarks[0]);
    }
    EXPECT_THAT(page(json), Not(HasSubstr("On paper")));
    rMarks.push_back({{"kind", "hot"}, {"x", 91}, {"y", 92}, {"value", 93}, {"neighbours", 94}});
    const std::string strHtml = page(json);
    EXPECT_THAT(seen(strHtml), HasSubstr("|On paper the first 45 of them.|"));
    EXPECT_THAT(strHtml, HasSubstr("</tbody><tbody class=\"screen\"><tr><th scope=\"row\">hot</th>"));
}

}  // namespace
}  // namespace App
}  // namespace XAPEL2
