// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The axes of a chart.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/Chart.h"

using namespace XAPEL2;
using namespace XAPEL2::App;
using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pointwise;

TEST(Chart, TicksAreRound) {
    EXPECT_THAT(niceTicks(0.0, 1023.0, 5), ElementsAre(0.0, 200.0, 400.0, 600.0, 800.0, 1000.0));
    EXPECT_THAT(niceTicks(-0.07, 0.12, 4), Pointwise(DoubleNear(1e-12), {-0.05, 0.0, 0.05, 0.1}));
    EXPECT_THAT(niceTicks(7.0, 7.0, 5), ElementsAre(7.0));
    EXPECT_EQ(tickDigits({0.0, 200.0}), 0);
    EXPECT_EQ(tickDigits({0.9, 0.95}), 2);
}

TEST(Chart, LinesRiseWhereValuesDo) {
    EXPECT_THAT(chartHtml({"T", "x", "y", false, {{"a", "before", {0.0, 10.0}, {0.0, 100.0}}}}),
                HasSubstr("class=\"line before\" d=\"M54.0 179.8L350.0 16.2\""));
    EXPECT_THAT(chartHtml({"T", "x", "y", true, {{"a", "after", {0.0, 5.0, 10.0}, {1.0, 100.0}}}}),
                HasSubstr("class=\"line after\" d=\"M54.0 188.0V170.0H202.0V50.0H350.0V188.0\""));
}
