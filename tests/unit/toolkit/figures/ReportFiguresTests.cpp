// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Each figure of a report stands under its own name.

#include <gtest/gtest.h>

#include "toolkit/figures/ReportFigures.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

TEST(ReportFigures, TimesAndNumbersOfFramesStandUnderTheirNames) {
    const StandIn::ImageLayout sLayout{StandIn::findPixelFormat("Mono8"), 4, 4};
    ReportInput Input;
    Input.strDevice = "sim";
    Input.Dark.Before = Input.Dark.After = MeanImage{sLayout, 3, std::vector<float>(16, 10.0F)};
    Input.Light.Before = Input.Light.After = MeanImage{sLayout, 2, std::vector<float>(16, 90.0F)};
    Input.Pair.Light.emplace();
    Input.Pair.Light->sLayout = sLayout;
    Input.Pair.Light->vSamples.assign(16, 90.0F);
    Input.vecPlainMs = {1.0, 2.0, 5.0};
    Input.vecCorrectedMs = {11.0, 14.0, 19.0};
    const nlohmann::ordered_json Json = reportFigures(Input);
    EXPECT_EQ(Json.at("frames"), nlohmann::ordered_json({{"dark", 3}, {"light", 2}}));
    EXPECT_EQ(Json.at("time"), nlohmann::ordered_json({{"frames", 3},
                                                       {"plainMedianMs", 2.0},
                                                       {"plainP99Ms", 5.0},
                                                       {"correctedMedianMs", 14.0},
                                                       {"correctedP99Ms", 19.0},
                                                       {"addedMedianMs", 12.0}}));
}
