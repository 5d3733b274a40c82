// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A correction beside its prediction.

#include <limits>

#include <gtest/gtest.h>

#include "toolkit/figures/Prediction.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

namespace {

constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();

// Frames of 100 x 100 samples with a mean of 100 DN; temporal noise of their mean: 1 % of it.
SceneFrames frames() {
    MeanImage image{{StandIn::findPixelFormat("Mono8"), 100, 100}, 4, std::vector<float>(10000, 100.0F), 4.0};
    return {image, image, {}};
}

}  // namespace

TEST(Prediction, AMissIsToldBeyondItsUncertainty) {
    const struct {
        double dBefore, dAfter, dPredicted;
        const char* pId;  // of the finding
    } aRows[] = {
        {8.0, 0.30, 0.30, ""},
        // 1.5 times the prediction, and three standard deviations of a variance: 3 * sqrt(2 / 10,000) * (1 + 1.0) %^2
        {8.0, 1.01, 0.66, ""},
        {8.0, 1.06, 0.66, "measured-missed"},
        {8.0, 3.02, 0.30, "measured-missed"},
        {8.0, 3.02, UNKNOWN, ""},
        {8.0, 8.10, UNKNOWN, ""},
        {8.0, 8.20, UNKNOWN, "measured-worse"},
        {8.0, 9.00, 0.30, "measured-worse"},
        {UNKNOWN, 9.00, 9.00, ""},
        {8.0, UNKNOWN, 0.30, ""},
    };
    for (const auto& rRow : aRows) {
        const Findings vecFound = compareWithPrediction(frames(), {rRow.dBefore, rRow.dAfter}, rRow.dPredicted);
        const std::string strId = vecFound.empty() ? "" : vecFound.front().strId;
        EXPECT_EQ(strId, rRow.pId) << rRow.dBefore << ' ' << rRow.dAfter << ' ' << rRow.dPredicted;
    }
    const Findings vecWorse = compareWithPrediction(frames(), {8.0, 9.0}, 0.3);
    EXPECT_EQ(vecWorse.front().eLevel, eRefusal);
    EXPECT_EQ(vecWorse.front().strText,
              "Correction makes the frames less even: PRNU1288 is 8.000 % before and 9.000 % after it.");
    SceneFrames none;
    EXPECT_TRUE(compareWithPrediction(none, {8.0, 9.0}, 0.3).empty());
}
