// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The figures of a report.

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "toolkit/figures/ReportFigures.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

TEST(ReportFigures, TimesAndNumbersOfFramesStandUnderTheirNames) {
    const StandIn::ImageLayout layout{StandIn::findPixelFormat("Mono8"), 4, 4};
    ReportInput input;
    input.strDevice = "sim";
    input.dark.before = input.dark.after = MeanImage{layout, 3, std::vector<float>(16, 10.0F)};
    input.light.before = input.light.after = MeanImage{layout, 2, std::vector<float>(16, 90.0F)};
    input.pair.light.emplace();
    input.pair.light->layout = layout;
    input.pair.light->vecSamples.assign(16, 90.0F);
    input.vecPlainMs = {1.0, 2.0, 5.0};
    input.vecCorrectedMs = {11.0, 14.0, 19.0};
    const nlohmann::ordered_json json = reportFigures(input);
    EXPECT_EQ(json.at("frames"), nlohmann::ordered_json({{"dark", 3}, {"light", 2}}));
    EXPECT_EQ(json.at("time"), nlohmann::ordered_json({{"frames", 3},
                                                       {"plainMedianMs", 2.0},
                                                       {"plainP99Ms", 5.0},
                                                       {"correctedMedianMs", 14.0},
                                                       {"correctedP99Ms", 19.0},
                                                       {"addedMedianMs", 12.0}}));
}

// Corrected images end at 0 DN; the dark signal that is told is that of the formula.
TEST(ReportFigures, DarkSignalAfterCorrectionFollowsFromTheRawFrames) {
    const StandIn::ImageLayout layout{StandIn::findPixelFormat("Mono8"), 4, 4};
    const auto fnStripes = [](float fEven, float fOdd) {
        std::vector<float> vecSamples;
        for (unsigned i = 0; i < 16; ++i) {
            vecSamples.push_back(i % 2 == 0 ? fEven : fOdd);
        }
        return vecSamples;
    };
    ReportInput input;
    input.dark.before = MeanImage{layout, 400, fnStripes(12.0F, 10.0F), 4.0, {4.0}};
    input.dark.after = MeanImage{layout, 400, fnStripes(0.0F, 0.0F)};
    input.light.before = MeanImage{layout, 400, fnStripes(60.0F, 110.0F)};
    input.light.after = MeanImage{layout, 400, fnStripes(75.0F, 75.0F)};
    input.pair.dark.emplace();
    input.pair.dark->layout = layout;
    input.pair.dark->nImages = 4;
    input.pair.dark->vecSamples = fnStripes(10.0F, 12.0F);
    input.pair.light.emplace();
    input.pair.light->layout = layout;
    input.pair.light->vecSamples = fnStripes(60.0F, 112.0F);  // signals 50 and 100: gains 1.5 and 0.75
    auto json = reportFigures(input);
    const auto& rAfter = json.at("after").at("classes").at(0);
    // (12 - 10) * 1.5 and (10 - 12) * 0.75
    EXPECT_NEAR(rAfter.at("darkMean").get<double>(), 0.75, 1e-5);
    const double dVariance = 4.0 * (1.5 * 1.5 + 0.75 * 0.75) / 2.0;
    const double dPattern = 2.25 * 2.25 * 16.0 / 15.0 - dVariance / 400.0;
    EXPECT_NEAR(rAfter.at("dsnu").at("total").get<double>(), std::sqrt(dPattern), 1e-5);
    EXPECT_NEAR(json.at("summary").at("dsnuPredicted").get<double>(), std::sqrt(dVariance / 4.0), 1e-5);

    // Twice as bright and moved up, figures stay those of the camera's electrons.
    ReportInput scaled = input;
    scaled.pair.light->output = {StandIn::eTargetValue, 150.0, 16.0};
    scaled.light.after = MeanImage{layout, 400, fnStripes(166.0F, 168.0F)};
    scaled.dark.after = MeanImage{layout, 400, fnStripes(22.0F, 13.0F)};
    const auto scaledJson = reportFigures(scaled);
    EXPECT_EQ(scaledJson.at("after").at("classes").at(0).at("dsnu").at("total"), rAfter.at("dsnu").at("total"));
    EXPECT_EQ(scaledJson.at("summary").at("dsnuPredicted"), json.at("summary").at("dsnuPredicted"));
    EXPECT_NEAR(scaledJson.at("after").at("classes").at(0).at("lightMean").get<double>(), 75.5, 1e-4);
    scaled.files.nBoxDark = 1;
    EXPECT_NEAR(reportFigures(scaled).at("after").at("classes").at(0).at("darkMean").get<double>(), 0.75, 1e-5);

    input.dark.before.reset();
    json = reportFigures(input);
    for (const char* pFigure : {"dsnu", "dsnuUncertainty", "dsnuLimit"}) {
        EXPECT_TRUE(json.at("after").at("classes").at(0).at(pFigure).at("total").is_null()) << pFigure;
    }
    EXPECT_TRUE(json.at("summary").at("dsnuPredicted").is_null());
}

// Of three colours the worst after correction is told, with its own figures before and after.
TEST(ReportFigures, SummaryIsThatOfTheWorstColour) {
    const StandIn::ImageLayout layout{StandIn::findPixelFormat("RGB8"), 32, 32};
    const auto fnImage = [&](float fMean, float fRed, float fGreen, float fBlue) {
        MeanImage image{layout, 16, {}, 1.0, {1.0, 1.0, 1.0}};
        for (std::size_t i = 0; i < layout.samples(); ++i) {
            const float fOff = i % 3 == 0 ? fRed : i % 3 == 1 ? fGreen : fBlue;
            image.vecSamples.push_back(fMean + (i / 3 * 2654435761U % 1024U < 512U ? fOff : -fOff));
        }
        return image;
    };
    ReportInput input;
    input.dark.before = input.dark.after = fnImage(20.0F, 2.0F, 3.0F, 4.0F);
    input.light.before = fnImage(120.0F, 30.0F, 20.0F, 10.0F);
    input.light.after = fnImage(120.0F, 4.0F, 8.0F, 6.0F);
    input.pair.light.emplace();
    input.pair.light->layout = layout;
    input.pair.light->vecSamples = input.light.before->vecSamples;
    const nlohmann::ordered_json json = reportFigures(input);
    const nlohmann::ordered_json& rSummary = json.at("summary");
    EXPECT_EQ(rSummary.at("class"), "G");
    const auto &rBefore = json.at("before").at("classes").at(1), &rAfter = json.at("after").at("classes").at(1);
    const struct { const char *pFigure, *pFrom; } aRows[] = {{"prnu", "prnuPercent"}, {"dsnu", "dsnu"}};
    for (const auto& rRow : aRows) {
        const std::string strFigure = rRow.pFigure, strUncertainty = std::string(rRow.pFrom) + "Uncertainty";
        EXPECT_EQ(rSummary.at(strFigure + "Before"), rBefore.at(rRow.pFrom).at("total"));
        EXPECT_EQ(rSummary.at(strFigure + "After"), rAfter.at(rRow.pFrom).at("total"));
        EXPECT_EQ(rSummary.at(strFigure + "BeforeUncertainty"), rBefore.at(strUncertainty).at("total"));
        EXPECT_EQ(rSummary.at(strFigure + "AfterUncertainty"), rAfter.at(strUncertainty).at("total"));
    }
    EXPECT_NEAR(rSummary.at("prnuBefore").get<double>(), 20.0, 0.4);
    EXPECT_NEAR(rSummary.at("prnuAfter").get<double>(), 8.0, 0.2);
}

TEST(ReportFigures, SpotsAreToldUnlessAFilterOrFullScaleExplainsThem) {
    const StandIn::ImageLayout layout{StandIn::findPixelFormat("Mono8"), 64, 64};
    ReportInput input;
    input.light.before = input.light.after = MeanImage{layout, 16, std::vector<float>(layout.samples(), 100.0F)};
    for (std::size_t i = 0; i < 100; ++i) {
        input.light.after->vecSamples[(30 + i / 10) * 64 + 28 + i % 10] = 90.0F;
    }
    input.pair.light.emplace();
    input.pair.light->layout = layout;
    input.pair.light->vecSamples.assign(layout.samples(), 100.0F);
    const auto fnTold = [&] {
        const auto json = reportFigures(input);
        const Findings vecFindings = measuredFindings(input, json);
        EXPECT_EQ(json.at("summary").at("spots").size(), input.light.before->nFrames > 1 ? 1U : 0U);
        return std::any_of(vecFindings.begin(), vecFindings.end(), [](const Finding& r) {
            return r.strId == "measured-spots" && r.strText.find("darker") != std::string::npos;
        });
    };
    EXPECT_TRUE(fnTold());
    input.files.nBoxLight = 1;
    EXPECT_FALSE(fnTold());
    input.files.nBoxLight = 0;
    input.light.before->dSaturatedShare = 0.5;
    EXPECT_FALSE(fnTold());
    input.light.before->dSaturatedShare = 0.0;
    input.light.after->dSaturatedShare = 0.5;
    EXPECT_FALSE(fnTold());
    const Finding cut = measuredFindings(input, reportFigures(input)).front();
    EXPECT_EQ(cut.strId, "measured-saturated") << "what correction cuts off looks even, too";
    EXPECT_NE(cut.strText.find("corrected frames"), std::string::npos);
    input.light.after->dSaturatedShare = 0.0;
    input.light.before->nFrames = 1;
    EXPECT_FALSE(fnTold()) << "of a single frame nothing is told";
}

TEST(ReportFigures, GainsMarksFiltersAndCurvesAreTheirOwn) {
    const StandIn::ImageLayout layout{StandIn::findPixelFormat("Mono12"), 40, 25};
    std::vector<float> vecColumns;
    for (unsigned i = 0; i < 1000; ++i) {
        vecColumns.push_back(500.0F + static_cast<float>(i % 40));
    }
    ReportInput input;
    input.light.before = MeanImage{layout, 2, vecColumns};
    input.light.after = MeanImage{layout, 2, std::vector<float>(1000, 519.5F)};
    input.pair.light.emplace();
    input.pair.light->layout = layout;
    for (unsigned i = 0; i < 1000; ++i) {
        input.pair.light->vecSamples.push_back(1000.0F + static_cast<float>(i * 7 % 1000));
    }
    input.pair.lightJudgement.emplace();
    input.pair.lightJudgement->figures.layout = layout;
    input.pair.lightJudgement->figures.vecClassMeans = {1499.5};
    std::vector<Defect>& rDefects = input.pair.lightJudgement->figures.vecDefects;
    for (unsigned i = 0; i < 250; ++i) {
        rDefects.push_back({i % 5 == 0 ? eDead : eBright, i, 1, 0, 100.0 + (i % 2 == 0 ? 1.0 : -1.0) * i, 100.0});
    }
    input.files.nMedianDark = 1;
    input.files.nBoxDark = 2;
    input.files.nMedianLight = 3;
    input.files.nBoxLight = 4;
    const nlohmann::ordered_json json = reportFigures(input);
    const double dMean = 1499.5;
    const std::pair<const char*, double> aGains[] = {
        {"min", dMean / 1999.0}, {"p1", dMean / 1989.0}, {"p99", dMean / 1010.0}, {"max", dMean / 1000.0}};
    for (const auto& [pName, dGain] : aGains) {
        EXPECT_NEAR(json.at("gain").at(pName).get<double>(), dGain, 1e-5) << pName;
    }
    const nlohmann::ordered_json& rMarks = json.at("defects").at("marks");
    ASSERT_EQ(rMarks.size(), 200U);
    EXPECT_EQ(rMarks.front().at("x"), 249);
    EXPECT_EQ(rMarks.back().at("x"), 50);
    EXPECT_EQ(json.at("defects").at("text"), "Marked are the 200 pixels that stand out most of 250.");
    EXPECT_EQ(json.at("defects").at("dead"), 50);
    EXPECT_EQ(json.at("defects").at("bright"), 200);
    EXPECT_EQ(json.at("filters"),
              "median on the dark reference, radius 1, box on the dark reference, radius 2, median on "
              "the light reference, radius 3, box on the light reference, radius 4");
    const auto &rAcross = json.at("profiles").at("columns"), &rDown = json.at("profiles").at("rows");
    ASSERT_EQ(rAcross.at("before").size(), 40U);
    ASSERT_EQ(rDown.at("before").size(), 25U);
    EXPECT_NEAR(rAcross.at("before").at(0).get<double>(), 100.0 * 500.0 / 519.5, 1e-3);
    EXPECT_NEAR(rAcross.at("before").at(39).get<double>(), 100.0 * 539.0 / 519.5, 1e-3);
    EXPECT_EQ(rDown.at("before").at(24), 100.0);
    EXPECT_EQ(rAcross.at("after").at(39), 100.0);
}
