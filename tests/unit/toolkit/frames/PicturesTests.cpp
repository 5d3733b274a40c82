// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames as pictures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolkit/frames/Pictures.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;
using ::testing::ElementsAre;

TEST(Pictures, PicturesAreScaledByMeans) {
    const Frame bgr{"", StandIn::findPixelFormat("BGR8"), 3, 2, {3, 2, 1, 5, 4, 3, 0, 0, 0, 3, 2, 1, 5, 4, 3, 9, 9, 9}};
    const Picture small = pictureOf(bgr, 2, 100);  // the last column does not fill a pixel
    EXPECT_EQ(small.nStep, 2U);
    EXPECT_THAT(small.vecValues, ElementsAre(2, 3, 4));  // red first
    const Frame cfa{"", StandIn::findPixelFormat("BayerRG8"), 2, 2, {8, 16, 16, 0}};
    EXPECT_THAT(pictureOf(cfa).vecValues, ElementsAre(10));
}
