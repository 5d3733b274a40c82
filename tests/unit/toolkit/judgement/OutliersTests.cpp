// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What is said of frames that left the others.

#include "toolkit/judgement/Outliers.h"

#include <gtest/gtest.h>

namespace XAPEL2 {
namespace Toolkit {
namespace {

using StandIn::FrameOutlier;
using StandIn::RecordingOutliers;

TEST(Outliers, NamesFrameAndPlaceAndWhatBecameOfIt) {
    EXPECT_TRUE(judgeOutliers({}).empty());

    RecordingOutliers outliers{1, 1, 101, 101, {}};
    outliers.vecPlaces = {{StandIn::eOutlierBrightness, 7, 0, 0, 0, 0, 0, -200.5, true},
                          {StandIn::eOutlierSamples, 16, 30, 20, 10, 10, 100, 350.0, true},
                          {StandIn::eOutlierSamples, 3, 5, 6, 1, 1, 1, 90.0, true}};
    Findings vecFindings = judgeOutliers(outliers);
    ASSERT_EQ(vecFindings.size(), 2U);
    EXPECT_EQ(vecFindings[0].strText,
              "1 frame unlike the others: frame 7, whose mean is 200.5 DN below the others'. Left out of the mean.");
    EXPECT_EQ(vecFindings[1].strText,
              "101 samples far from what the same pixel has in the other frames: frame 16, 10 x 10 pixels at (30, 20), "
              "350.0 DN above the others; frame 3, 1 pixel at (5, 6), 90.0 DN above the others. Left out of the mean.");
    EXPECT_EQ(vecFindings[1].eLevel, eWarning) << "an object";

    outliers = {0, 0, 1, 1, {outliers.vecPlaces[2]}};
    EXPECT_EQ(judgeOutliers(outliers).at(0).eLevel, eNote) << "a spike that is left out";
    outliers.nSamplesLeftOut = 0;
    vecFindings = judgeOutliers(outliers);
    EXPECT_EQ(vecFindings.at(0).eLevel, eWarning) << "a spike that is in the mean";
    EXPECT_NE(vecFindings[0].strText.find("In the mean all the same."), std::string::npos);
}

}  // namespace
}  // namespace Toolkit
}  // namespace XAPEL2
