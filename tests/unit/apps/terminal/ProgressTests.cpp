// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The line that tells how far a run is.

#include <gtest/gtest.h>

#include "terminal/Progress.h"

using namespace XAPEL2::App;

TEST(Progress, LineTellsRateTimeLeftAndMore) {
    EXPECT_EQ(progressText("recording", 0, 16, 0, 0.0, ""), "recording 0/16");
    EXPECT_EQ(progressText("recording", 12, 16, 10, 2.0, "saturated 0.1 %"),
              "recording 12/16, 5.0 fps, 0:01 left, saturated 0.1 %");
    EXPECT_EQ(progressText("correcting", 7, 0, 4, 8.0, ""), "correcting 7, 0.5 fps");
    EXPECT_EQ(progressText("recording", 100, 6100, 100, 1.0, ""), "recording 100/6100, 100.0 fps, 1:00 left");
}
