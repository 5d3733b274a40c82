// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Non-uniformity and conversion gain of patterns whose figures are known in closed form.

#include <cmath>

#include <gtest/gtest.h>

#include "Images.h"
#include "toolkit/judgement/NonUniformity.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr uint64_t ROWS = 40, COLUMNS = 50;  // of each colour class
constexpr double THREE_DECIMALS = 0.0005;

/// Amounts by which rows, columns, pixels and frames go up and down about a mean.
struct Pattern {
    int iMean, iRow, iColumn, iPixel, iFrame;
};
const Pattern DARK = {10, 2, 1, 1, 1}, LIGHT = {45, 4, 3, 5, 2};

// By arithmetic apart from the code under test, for M = 40, N = 50, L = 4: the total variance of LIGHT is
// 2000 / 1999 (16 + 9 + 25) - 16 / 3 / 4, that of its row means 16 - 16 / 3 / 4 / 50, of its column means
// 9 - 16 / 3 / 4 / 40, and likewise for DARK.
const Split DSNU_DN = {2.381107, 1.994742, 0.986784, 0.846717};
const Split PRNU = {18.740333, 9.687746, 7.757104, 14.041902};
const double GAIN = 4.0 / 35.0;  // (16 / 3 - 4 / 3) / (45 - 10)

int upOrDown(uint64_t i) {
    return i % 2 == 0 ? 1 : -1;
}

/// Four frames of a pattern. Class c shows it (c + 1) times as strong, so that no two are the same.
CFrameStack makeStack(const std::string& strFormat, const Pattern& rPattern, uint64_t nRows = ROWS,
                      uint64_t nColumns = COLUMNS) {
    const StandIn::PixelFormat* pFormat = StandIn::findPixelFormat(strFormat);
    const uint64_t nSites = pFormat->isCfa() ? 2 : 1;
    const StandIn::ImageLayout layout = {pFormat, nColumns * nSites, nRows * nSites};
    CFrameStack stack(layout);
    for (int iFrame = 0; iFrame < 4; ++iFrame) {
        Frame one{"", pFormat, layout.nWidth, layout.nHeight, {}, 0.0};
        for (std::size_t i = 0; i < layout.samples(); ++i) {
            const uint64_t iRow = i / layout.samplesPerRow() / nSites;
            const uint64_t iColumn = i % layout.samplesPerRow() / pFormat->nChannels / nSites;
            // Frames fall into pairs of opposite noise, columns into halves: all parts are orthogonal.
            const int iNoise = rPattern.iFrame * upOrDown(static_cast<uint64_t>(iFrame) + iRow + iColumn);
            const int iValue = rPattern.iMean + rPattern.iRow * upOrDown(iRow) +
                               rPattern.iColumn * (iColumn < nColumns / 2 ? 1 : -1) +
                               rPattern.iPixel * upOrDown(iRow) * (iColumn < nColumns / 2 ? 1 : -1) + iNoise;
            one.vecSamples.push_back(
                static_cast<uint16_t>(iValue * (1 + static_cast<int>(colourClass(*pFormat, layout.nWidth, i)))));
        }
        stack.add(one);
    }
    return stack;
}

void expectSplit(const Split& rIs, const Split& rExpected, double dScale) {
    EXPECT_NEAR(rIs.dTotal, rExpected.dTotal * dScale, THREE_DECIMALS);
    EXPECT_NEAR(rIs.dRow, rExpected.dRow * dScale, THREE_DECIMALS);
    EXPECT_NEAR(rIs.dColumn, rExpected.dColumn * dScale, THREE_DECIMALS);
    EXPECT_NEAR(rIs.dPixel, rExpected.dPixel * dScale, THREE_DECIMALS);
}

}  // namespace

TEST(NonUniformity, FiguresOfKnownPatternsHoldToThreeDecimalsInEachClass) {
    const struct {
        const char* pFormat;
        std::vector<std::string> vecClasses;
    } aCases[] = {{"Mono8", {"mono"}},
                  {"BayerGR8", {"G1", "R", "B", "G2"}},
                  {"RGB8", {"R", "G", "B"}},
                  {"BGR8", {"B", "G", "R"}}};
    for (const auto& rCase : aCases) {
        SCOPED_TRACE(rCase.pFormat);
        const MeanImage dark = makeStack(rCase.pFormat, DARK).mean(), light = makeStack(rCase.pFormat, LIGHT).mean();
        const NonUniformity inDn = nonUniformity(dark, light, std::nan(""));
        const NonUniformity inElectrons = nonUniformity(dark, light, GAIN);
        EXPECT_STREQ(inDn.dsnuUnit(), "DN");
        EXPECT_STREQ(inElectrons.dsnuUnit(), "e-");
        ASSERT_EQ(inDn.vecClasses.size(), rCase.vecClasses.size());
        for (std::size_t i = 0; i < rCase.vecClasses.size(); ++i) {
            const double dScale = static_cast<double>(i + 1);
            EXPECT_EQ(inDn.vecClasses[i].strName, rCase.vecClasses[i]);
            EXPECT_NEAR(inDn.vecClasses[i].dLightMean, 45.0 * dScale, 1e-9);
            expectSplit(inDn.vecClasses[i].dsnu, DSNU_DN, dScale);
            expectSplit(inElectrons.vecClasses[i].dsnu, DSNU_DN, dScale / GAIN);
            expectSplit(inDn.vecClasses[i].prnu, PRNU, 1.0);
        }
    }
}

// Row and column means have the divisor of their number: small images used to be off by up to 20 %.
TEST(NonUniformity, RowsColumnsAndPixelsHoldInSmallAndLargeImages) {
    const struct {
        uint64_t nRows, nColumns;
        Split dsnu, prnu;
    } aCases[] = {{22, 26, {2.382682, 1.989365, 0.974608, 0.877348}, {18.752319, 9.471388, 7.453440, 14.366227}},
                  {480, 640, {2.380480, 1.999608, 0.998954, 0.818746}, {18.735570, 9.881900, 8.055834, 13.728553}}};
    for (const auto& rCase : aCases) {
        const ClassNonUniformity is =
            nonUniformity(makeStack("Mono8", DARK, rCase.nRows, rCase.nColumns).mean(),
                          makeStack("Mono8", LIGHT, rCase.nRows, rCase.nColumns).mean(), std::nan(""))
                .vecClasses[0];
        expectSplit(is.dsnu, rCase.dsnu, 1.0);
        expectSplit(is.prnu, rCase.prnu, 1.0);
        EXPECT_TRUE(std::isnan(is.dsnuLimit.dTotal));
    }
}

TEST(NonUniformity, WhatNoiseHidesHasALimitAndUncertaintiesHold) {
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 96, 72});
    constexpr std::size_t STACKS = 40;
    std::vector<double> vecTotals;
    double dTold = 0.0, dMean = 0.0, dSquares = 0.0;
    unsigned nHidden = 0;
    for (uint64_t iFirst = 0; iFirst < 4 * STACKS; iFirst += 4) {
        CFrameStack stack(camera.layout);
        for (uint64_t i = iFirst; i < iFirst + 4; ++i) {
            stack.add(camera.unpacked(camera.image(StandIn::eSceneDark, i)));
        }
        const MeanImage dark = stack.mean();
        const ClassNonUniformity is = nonUniformity(dark, dark, std::nan("")).vecClasses[0];
        vecTotals.push_back(is.dsnu.dTotal);
        dMean += is.dsnu.dTotal / STACKS;
        dTold += is.dsnuUncertainty.dTotal / STACKS;
        EXPECT_NE(std::isnan(is.dsnu.dRow), std::isnan(is.dsnuLimit.dRow));
        EXPECT_TRUE(std::isnan(is.dsnuLimit.dRow) || (is.dsnuLimit.dRow > 0.0 && is.dsnuLimit.dRow < 0.3));
        nHidden += std::isnan(is.dsnu.dRow) ? 1U : 0U;
    }
    EXPECT_GT(nHidden, 0U);  // the sensor has no rows that differ
    for (const double dTotal : vecTotals) {
        dSquares += (dTotal - dMean) * (dTotal - dMean) / (STACKS - 1);
    }
    EXPECT_NEAR(std::sqrt(dSquares) / dTold, 1.0, 0.4);
}

TEST(NonUniformity, TemporalVarianceAndGainAreThoseOfTheFrames) {
    const CFrameStack stack = makeStack("Mono8", LIGHT);
    for (const float fVariance : stack.temporalVariances()) {
        ASSERT_FLOAT_EQ(fVariance, 16.0F / 3.0F);
    }
    const MeanImage dark = makeStack("Mono8", DARK).mean(), light = stack.mean();
    EXPECT_NEAR(light.dTemporalVariance, 16.0 / 3.0, 1e-9);
    EXPECT_NEAR(photonTransferGain(dark, light), GAIN, 1e-9);
    // A file tells the noise of the whole image only, and that of one frame not at all.
    MeanImage filed = light;
    filed.vecClassVariance.clear();
    expectSplit(nonUniformity(dark, filed, GAIN).vecClasses[0].prnu, PRNU, 1.0);
    filed.dTemporalVariance = std::nan("");
    EXPECT_TRUE(std::isnan(photonTransferGain(dark, filed)));
    EXPECT_GT(nonUniformity(dark, filed, GAIN).vecClasses[0].prnu.dTotal, PRNU.dTotal);
    EXPECT_TRUE(std::isnan(photonTransferGain(light, dark)));
}

// Light that drifts over the frames counted as noise: at 1.5 % the gain came out 2.7 times too high.
TEST(NonUniformity, DriftOfTheLightIsNoNoise) {
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 192, 144});
    const auto dExposure = static_cast<double>(camera.settings.iExposureUs);
    CFrameStack darkStack(camera.layout);
    for (uint64_t i = 0; i < 16; ++i) {
        darkStack.add(camera.unpacked(camera.image(StandIn::eSceneDark, i)));
    }
    const MeanImage dark = darkStack.mean();
    double dSteadyDsnu = 0.0;
    for (const double dDrift : {0.0, 0.002, 0.015, 0.08}) {
        SCOPED_TRACE(dDrift);
        CFrameStack stack(camera.layout);
        for (uint64_t i = 0; i < 32; ++i) {
            camera.settings.iExposureUs =
                static_cast<uint64_t>(dExposure * (1.0 + dDrift * (static_cast<double>(i) / 31.0 - 0.5)));
            stack.add(camera.unpacked(camera.image(StandIn::eSceneLight, i)));
        }
        const MeanImage light = stack.mean();
        const double dGain = photonTransferGain(dark, light);
        EXPECT_NEAR(dGain / camera.sensor.model().dGain12, 1.0, 0.01);
        const double dSignal = (light.means.dLeast + light.means.dMost) / 2.0 - dark.means.dFirst;
        EXPECT_NEAR((light.means.dLast - light.means.dFirst) / dSignal, dDrift, 0.02 * dDrift + 0.0005);
        const double dDsnu = nonUniformity(dark, light, dGain).vecClasses[0].dsnu.dTotal;
        dSteadyDsnu = dDrift == 0.0 ? dDsnu : dSteadyDsnu;
        EXPECT_NEAR(dDsnu / dSteadyDsnu, 1.0, 0.01);
    }
}

// Noise of a class that a file does not tell is shared out by the light: near to what the frames themselves say.
TEST(NonUniformity, ReferenceOfAFilterArrayShowsWhatItsFramesShow) {
    SimulatedFrames camera({StandIn::findPixelFormat("BayerRG12"), 256, 192});
    const auto fnMean = [&](StandIn::eScene eWhat) {
        CFrameStack stack(camera.layout);
        for (uint64_t i = 0; i < 2; ++i) {
            stack.add(camera.unpacked(camera.image(eWhat, i)));
        }
        return stack.mean();
    };
    const MeanImage dark = fnMean(StandIn::eSceneDark), light = fnMean(StandIn::eSceneLight);
    MeanImage filed = light;
    filed.vecClassVariance.clear();
    EXPECT_NEAR(photonTransferGain(dark, light), camera.sensor.model().dGain12, 0.01);
    const NonUniformity own = nonUniformity(dark, light, 0.3), shared = nonUniformity(dark, filed, 0.3);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(shared.vecClasses[i].prnu.dPixel, own.vecClasses[i].prnu.dPixel, 0.01);
    }
}

TEST(NonUniformity, ImagesThatCannotBeSplitOrAddedAreToldApart) {
    const StandIn::ImageLayout narrow = {StandIn::findPixelFormat("Mono8"), 2, 50};
    std::vector<float> vecSamples(100, 7.0F);
    vecSamples[0] = 17.0F;
    const Split is = spatialVariances({50, 2, vecSamples.data()}, 1, 0.0);
    EXPECT_NEAR(is.dTotal, 1.0, 1e-9);  // (9.9^2 + 99 * 0.1^2) / 99
    EXPECT_TRUE(std::isnan(is.dRow) && std::isnan(is.dColumn) && std::isnan(is.dPixel));
    CFrameStack stack(narrow);
    EXPECT_THROW(stack.add(Frame{"", narrow.pFormat, 50, 2, std::vector<uint16_t>(100), 0.0}), std::invalid_argument);
    EXPECT_THROW(stack.mean(), std::logic_error);
    stack.add(Frame{"", narrow.pFormat, 2, 50, std::vector<uint16_t>(100, 255), 0.0});
    EXPECT_DOUBLE_EQ(stack.mean().dSaturatedShare, 1.0);
    EXPECT_TRUE(std::isnan(stack.mean().dTemporalVariance));
}

}  // namespace Toolkit
}  // namespace XAPEL2
