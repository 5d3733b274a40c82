// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Each figure of a report stands under its own name.

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
