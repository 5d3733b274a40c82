// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A correction beside its prediction.

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolkit/figures/Prediction.h"

using namespace XAPEL2::Toolkit;
using ::testing::HasSubstr;

namespace {

constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();

std::string idOf(const Findings& rFindings) {
    return rFindings.empty() ? "" : rFindings.front().strId;
}

}  // namespace

TEST(Prediction, AMissIsToldBeyondItsUncertainty) {
    const struct {
        Correction measured;
        const char* pLight;  // the findings
        const char* pDark;
    } aRows[] = {
        {{8.0, 0.30, 0.01, 0.30}, "", ""},
        // 1.5 times the prediction, and three standard deviations of the variance: 3 * 2 * 1 * 0.01
        {{8.0, 1.01, 0.01, 0.66}, "", ""},
        {{8.0, 1.03, 0.01, 0.66}, "measured-missed", "measured-dark-missed"},
        {{8.0, 1.01, UNKNOWN, 0.66}, "measured-missed", "measured-dark-missed"},
        {{8.0, 3.02, 0.01, UNKNOWN}, "", ""},
        // 1.1 times what it was, and as much again by chance: 3 * 2 * 8.83 * 0.01
        {{8.0, 8.82, 0.01, UNKNOWN}, "", ""},
        {{8.0, 8.84, 0.01, UNKNOWN}, "measured-worse", "measured-dark-worse"},
        {{8.0, 9.00, 0.01, 9.00}, "measured-worse", "measured-dark-worse"},
        {{UNKNOWN, 9.00, 0.01, 9.00}, "", ""},
        {{8.0, UNKNOWN, UNKNOWN, 0.30}, "", ""},
    };
    for (const auto& rRow : aRows) {
        EXPECT_EQ(idOf(compareLight(rRow.measured)), rRow.pLight) << rRow.measured.dAfter;
        EXPECT_EQ(idOf(compareDark(rRow.measured, "e-")), rRow.pDark) << rRow.measured.dAfter;
    }
}

TEST(Prediction, FindingsTellFiguresAndWhatHelps) {
    const Finding worse = compareLight({8.0, 9.0, 0.01, 0.3}).front();
    EXPECT_EQ(worse.eLevel, eRefusal);
    EXPECT_EQ(worse.strText, "Correction makes the frames less even: PRNU1288 is 8.000 % before and 9.000 % after it.");
    // A pattern that the reference's own noise explains wants more frames; any other wants another reference.
    const Finding noisy = compareDark({2.0, 4.0, 0.01, 4.0}, "e-").front();
    EXPECT_EQ(noisy.eLevel, eNote);
    EXPECT_EQ(compareDark({2.0, 4.0, 0.01, 1.0}, "e-").front().eLevel, eWarning);
    EXPECT_EQ(noisy.strText,
              "Correction makes the dark frames less even: DSNU1288 is 2.00 e- before and 4.00 e- after it.");
    EXPECT_THAT(noisy.strAdvice, HasSubstr("more frames"));
    EXPECT_THAT(compareDark({2.0, 4.0, 0.01, 1.0}, "e-").front().strAdvice, HasSubstr("another camera"));
    EXPECT_EQ(compareDark({9.0, 4.0, 0.01, 1.0}, "DN").front().strText,
              "After correction DSNU1288 is 4.00 DN, where the noise of these references explains 1.00 DN.");
}
