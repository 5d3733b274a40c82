// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts of a report, on small data with known answers.

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "images/Pictures.h"
#include "report/Chart.h"
#include "report/Curves.h"
#include "report/Html.h"
#include "report/Measurement.h"

using namespace XAPEL2;
using namespace XAPEL2::App;
using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::FloatNear;
using ::testing::Pointwise;

namespace {

StandIn::ImageLayout layout(const char* pFormat, uint64_t nWidth, uint64_t nHeight) {
    return {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
}

StandIn::ReferenceImage reference(const StandIn::ImageLayout& rLayout, std::vector<float> vSamples) {
    StandIn::ReferenceImage Result;
    Result.sLayout = rLayout;
    Result.vSamples = std::move(vSamples);
    return Result;
}

}  // namespace

TEST(ReportParts, TextsStandForThemselves) {
    EXPECT_EQ(escaped("<a href=\"x\">&'\n\xC3\xA9"), "&lt;a href=&quot;x&quot;&gt;&amp;&#39;\xEF\xBF\xBD\xC3\xA9");
    const std::pair<const char*, const char*> aCodes[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"fo\xFB\xFF", "Zm/7/w=="}};
    for (const auto& [pBytes, pCode] : aCodes) {
        EXPECT_EQ(base64(pBytes), pCode);
    }
    const auto Json = nlohmann::ordered_json::parse(R"({"a": [{"share": 0.01234}, null]})");
    EXPECT_EQ(CFigures(Json).number("/a/0/share", 2, 100.0),
              "<data value=\"0.01234\" data-figure=\"/a/0/share\">1.23</data>");
    EXPECT_EQ(CFigures(Json).number("/a/1", 2), "<data value=\"null\" data-figure=\"/a/1\">\xE2\x80\x93</data>");
}

TEST(ReportParts, TicksAreRound) {
    EXPECT_THAT(niceTicks(0.0, 1023.0, 5), ElementsAre(0.0, 200.0, 400.0, 600.0, 800.0, 1000.0));
    EXPECT_THAT(niceTicks(-0.07, 0.12, 4), Pointwise(DoubleNear(1e-12), {-0.05, 0.0, 0.05, 0.1}));
    EXPECT_THAT(niceTicks(7.0, 7.0, 5), ElementsAre(7.0));
    EXPECT_EQ(tickDigits({0.0, 200.0}), 0);
    EXPECT_EQ(tickDigits({0.9, 0.95}), 2);
}

TEST(ReportParts, FramesAreDividedBetweenReferenceAndTest) {
    const uint64_t aaRows[][5] = {// frames, reference and test wanted, reference and test given
                                  {SceneCounts::ENDLESS, 16, 4, 16, 4},
                                  {0, 16, 4, 0, 0},
                                  {1, 16, 4, 1, 0},
                                  {2, 16, 4, 1, 1},
                                  {3, 16, 4, 1, 2},
                                  {8, 16, 4, 6, 2},
                                  {16, 16, 4, 12, 4},
                                  {64, 16, 4, 16, 4}};
    for (const auto& rRow : aaRows) {
        const FramePlan Plan = planFrames(rRow[0], rRow[1], rRow[2]);
        EXPECT_EQ(Plan.nReference, rRow[3]) << rRow[0];
        EXPECT_EQ(Plan.nTest, rRow[4]) << rRow[0];
    }
    EXPECT_EQ(framesLeft(SceneCounts::ENDLESS, 16, 8), 8U);
    EXPECT_EQ(framesLeft(20, 16, 8), 4U);
    EXPECT_EQ(framesLeft(16, 17, 8), 0U);
}

TEST(ReportParts, GainIsTheMeanSignalOfTheColourOverTheSignal) {
    const StandIn::ImageLayout sMono = layout("Mono8", 4, 1), sRgb = layout("RGB8", 2, 1);
    const StandIn::ReferenceImage Dark = reference(sMono, {10, 10, 10, 10});
    const StandIn::ReferenceImage Light = reference(sMono, {110, 60, 10, 11});  // signal 100, 50, 0, 1; mean 37.75
    EXPECT_THAT(gainsOf(&Dark, &Light), ElementsAre(0.3775F, 0.755F, 1.0F, 16.0F));
    EXPECT_THAT(gainsOf(&Dark, nullptr), ElementsAre(1.0F, 1.0F, 1.0F, 1.0F));
    const StandIn::ReferenceImage Colour = reference(sRgb, {100, 50, 10, 50, 50, 30});
    EXPECT_THAT(gainsOf(nullptr, &Colour), Pointwise(FloatNear(1e-6F), {0.75F, 1.0F, 2.0F, 1.5F, 1.0F, 2.0F / 3.0F}));
}

TEST(ReportParts, CurvesAreMeansInPercentOfTheColour) {
    // Sites of a filter array: signal 100 and 80 in the green ones, red and blue even.
    const MeanImage Image{layout("BayerRG8", 4, 2), 1, {50, 110, 50, 90, 110, 30, 90, 30}};
    const std::vector<float> vRelative = relativeSignal(Image, {10, 10, 10, 10});
    EXPECT_THAT(vRelative, Pointwise(FloatNear(1e-4F),
                                     {100.F, 1000.F / 9, 100.F, 800.F / 9, 1000.F / 9, 100.F, 800.F / 9, 100.F}));
    const Curve Columns = profileOf(Image.sLayout, vRelative, false, 2),
                Rows = profileOf(Image.sLayout, vRelative, true, 9);
    EXPECT_THAT(Columns.vValues, Pointwise(DoubleNear(1e-4), {950.0 / 9, 850.0 / 9}));
    EXPECT_EQ(Columns.dFirst, 0.5);
    EXPECT_EQ(Columns.dStep, 2.0);
    EXPECT_THAT(Rows.vValues, Pointwise(DoubleNear(1e-4), {100.0, 100.0}));
    const Histograms Bins = histogramsOf({0, 0, 100}, {50, 50, 50}, 3);
    EXPECT_THAT(Bins.vBefore, ElementsAre(2, 0, 1));
    EXPECT_THAT(Bins.vAfter, ElementsAre(0, 3, 0));
}

TEST(ReportParts, PicturesAreScaledByMeans) {
    const Frame Bgr{"", StandIn::findPixelFormat("BGR8"), 3, 2, {3, 2, 1, 5, 4, 3, 0, 0, 0, 3, 2, 1, 5, 4, 3, 9, 9, 9}};
    const Picture Small = pictureOf(Bgr, 2, 100);  // the last column does not fill a pixel
    EXPECT_EQ(Small.nStep, 2U);
    EXPECT_THAT(Small.vValues, ElementsAre(2, 3, 4));  // red first
    const Frame Cfa{"", StandIn::findPixelFormat("BayerRG8"), 2, 2, {8, 16, 16, 0}};
    EXPECT_THAT(pictureOf(Cfa).vValues, ElementsAre(10));
}
