// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The axes of a chart.

#include <string>
#include <utility>
#include <vector>

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
                HasSubstr(" 179.8L350.0 16.2\""));
    EXPECT_THAT(chartHtml({"T", "x", "y", true, {{"a", "after", {0.0, 5.0, 10.0}, {1.0, 100.0}}}}),
                HasSubstr("V50.0H350.0V188.0\""));
}

namespace {

// The places of the texts with this anchor, and their lengths.
std::vector<std::pair<double, std::size_t>> textsWith(const std::string& strSvg, const std::string& strAnchor) {
    const std::string strBegin = "<text x=\"", strMiddle = "\" text-anchor=\"" + strAnchor + "\">";
    std::vector<std::pair<double, std::size_t>> vecTexts;
    for (std::size_t i = strSvg.find(strBegin); i != std::string::npos; i = strSvg.find(strBegin, i + 1)) {
        const std::size_t iMiddle = strSvg.find(strMiddle, i), iText = iMiddle + strMiddle.size();
        if (iMiddle < strSvg.find('>', i)) {
            vecTexts.emplace_back(std::stod(strSvg.substr(i + strBegin.size())), strSvg.find('<', iText) - iText);
        }
    }
    return vecTexts;
}

}  // namespace

// In fonts whose digits are 7 units wide; the upright title ends at 17.
TEST(Chart, LabelsOfAnyLengthStandClearOfTheTitleAndInsideThePicture) {
    for (const double dScale : {1.0, 65535.0, 1e9, 1e-4}) {
        const std::string strHtml =
            chartHtml({"", "x", "y", false, {{"", "before", {0.0, 100.0 * dScale}, {dScale, 1.001 * dScale}}}});
        const auto vecY = textsWith(strHtml, "end");
        ASSERT_GE(vecY.size(), 2U);
        for (const auto& [dPlace, nLength] : vecY) {
            EXPECT_GT(dPlace - 7.0 * static_cast<double>(nLength), 17.0) << "scale " << dScale;
        }
        double dEnd = 0.0;
        const auto vecX = textsWith(strHtml, "middle");
        for (std::size_t i = 0; i < vecX.size(); ++i) {
            const auto [dPlace, nLength] = vecX[i];
            const double dHalf = 3.5 * static_cast<double>(nLength);
            EXPECT_LE(dPlace + dHalf, 360.0) << "scale " << dScale;
            // The last of these texts is the title below them.
            EXPECT_TRUE(i + 1 == vecX.size() || dPlace - dHalf > dEnd + 5.0) << "scale " << dScale;
            dEnd = dPlace + dHalf;
        }
    }
}
