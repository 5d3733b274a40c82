// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The figures of a report.

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

    input.dark.before.reset();
    json = reportFigures(input);
    for (const char* pFigure : {"dsnu", "dsnuUncertainty", "dsnuLimit"}) {
        EXPECT_TRUE(json.at("after").at("classes").at(0).at(pFigure).at("total").is_null()) << pFigure;
    }
    EXPECT_TRUE(json.at("summary").at("dsnuPredicted").is_null());
}
