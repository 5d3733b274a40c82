// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Which frames are measured.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolkit/figures/Measurement.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

TEST(Measurement, FramesAreDividedBetweenReferenceAndTest) {
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
        const FramePlan plan = planFrames(rRow[0], rRow[1], rRow[2]);
        EXPECT_EQ(plan.nReference, rRow[3]) << rRow[0];
        EXPECT_EQ(plan.nTest, rRow[4]) << rRow[0];
    }
    EXPECT_EQ(framesLeft(SceneCounts::ENDLESS, 16, 8), 8U);
    EXPECT_EQ(framesLeft(20, 16, 8), 4U);
    EXPECT_EQ(framesLeft(16, 17, 8), 0U);
}
