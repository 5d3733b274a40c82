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
    const StandIn::ImageLayout Layout = {pFormat, nColumns * nSites, nRows * nSites};
    CFrameStack Stack(Layout);
    for (int iFrame = 0; iFrame < 4; ++iFrame) {
        Frame One{"", pFormat, Layout.nWidth, Layout.nHeight, {}, 0.0};
        for (std::size_t i = 0; i < Layout.samples(); ++i) {
            const uint64_t iRow = i / Layout.samplesPerRow() / nSites;
            const uint64_t iColumn = i % Layout.samplesPerRow() / pFormat->nChannels / nSites;
            // Frames fall into pairs of opposite noise, columns into halves: all parts are orthogonal.
            const int iNoise = rPattern.iFrame * upOrDown(static_cast<uint64_t>(iFrame) + iRow + iColumn);
            const int iValue = rPattern.iMean + rPattern.iRow * upOrDown(iRow) +
                               rPattern.iColumn * (iColumn < nColumns / 2 ? 1 : -1) +
                               rPattern.iPixel * upOrDown(iRow) * (iColumn < nColumns / 2 ? 1 : -1) + iNoise;
            One.aSamples.push_back(
                static_cast<uint16_t>(iValue * (1 + static_cast<int>(colourClass(*pFormat, Layout.nWidth, i)))));
        }
        Stack.add(One);
    }
    return Stack;
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
        const MeanImage Dark = makeStack(rCase.pFormat, DARK).mean(), Light = makeStack(rCase.pFormat, LIGHT).mean();
        const NonUniformity InDn = nonUniformity(Dark, Light, std::nan(""));
        const NonUniformity InElectrons = nonUniformity(Dark, Light, GAIN);
        EXPECT_STREQ(InDn.dsnuUnit(), "DN");
        EXPECT_STREQ(InElectrons.dsnuUnit(), "e-");
        ASSERT_EQ(InDn.vecClasses.size(), rCase.vecClasses.size());
        for (std::size_t i = 0; i < rCase.vecClasses.size(); ++i) {
            const double dScale = static_cast<double>(i + 1);
            EXPECT_EQ(InDn.vecClasses[i].strName, rCase.vecClasses[i]);
            EXPECT_NEAR(InDn.vecClasses[i].dLightMean, 45.0 * dScale, 1e-9);
            expectSplit(InDn.vecClasses[i].Dsnu, DSNU_DN, dScale);
            expectSplit(InElectrons.vecClasses[i].Dsnu, DSNU_DN, dScale / GAIN);
            expectSplit(InDn.vecClasses[i].Prnu, PRNU, 1.0);
        }
    }
}

// Row and column means have the divisor of their number: small images used to be off by up to 20 %.
TEST(NonUniformity, RowsColumnsAndPixelsHoldInSmallAndLargeImages) {
    const struct {
        uint64_t nRows, nColumns;
        Split Dsnu, Prnu;
    } aCases[] = {{22, 26, {2.382682, 1.989365, 0.974608, 0.877348}, {18.752319, 9.471388, 7.453440, 14.366227}},
                  {480, 640, {2.380480, 1.999608, 0.998954, 0.818746}, {18.735570, 9.881900, 8.055834, 13.728553}}};
    for (const auto& rCase : aCases) {
        const ClassNonUniformity Is =
            nonUniformity(makeStack("Mono8", DARK, rCase.nRows, rCase.nColumns).mean(),
                          makeStack("Mono8", LIGHT, rCase.nRows, rCase.nColumns).mean(), std::nan(""))
                .vecClasses[0];
        expectSplit(Is.Dsnu, rCase.Dsnu, 1.0);
        expectSplit(Is.Prnu, rCase.Prnu, 1.0);
        EXPECT_TRUE(std::isnan(Is.DsnuLimit.dTotal));
    }
}

TEST(NonUniformity, WhatNoiseHidesHasALimitAndUncertaintiesHold) {
    SimulatedFrames Camera({StandIn::findPixelFormat("Mono12"), 96, 72});
    constexpr std::size_t STACKS = 40;
    std::vector<double> vecTotals;
    double dTold = 0.0, dMean = 0.0, dSquares = 0.0;
    unsigned nHidden = 0;
    for (uint64_t iFirst = 0; iFirst < 4 * STACKS; iFirst += 4) {
        CFrameStack Stack(Camera.Layout);
        for (uint64_t i = iFirst; i < iFirst + 4; ++i) {
            Stack.add(Camera.unpacked(Camera.image(StandIn::eSceneDark, i)));
        }
        const MeanImage Dark = Stack.mean();
        const ClassNonUniformity Is = nonUniformity(Dark, Dark, std::nan("")).vecClasses[0];
        vecTotals.push_back(Is.Dsnu.dTotal);
        dMean += Is.Dsnu.dTotal / STACKS;
        dTold += Is.DsnuUncertainty.dTotal / STACKS;
        EXPECT_NE(std::isnan(Is.Dsnu.dRow), std::isnan(Is.DsnuLimit.dRow));
        EXPECT_TRUE(std::isnan(Is.DsnuLimit.dRow) || (Is.DsnuLimit.dRow > 0.0 && Is.DsnuLimit.dRow < 0.3));
        nHidden += std::isnan(Is.Dsnu.dRow) ? 1U : 0U;
    }
    EXPECT_GT(nHidden, 0U);  // the sensor has no rows that differ
    for (const double dTotal : vecTotals) {
        dSquares += (dTotal - dMean) * (dTotal - dMean) / (STACKS - 1);
    }
    EXPECT_NEAR(std::sqrt(dSquares) / dTold, 1.0, 0.4);
}

TEST(NonUniformity, TemporalVarianceAndGainAreThoseOfTheFrames) {
    const CFrameStack Stack = makeStack("Mono8", LIGHT);
    for (const float fVariance : Stack.temporalVariances()) {
        ASSERT_FLOAT_EQ(fVariance, 16.0F / 3.0F);
    }
    const MeanImage Dark = makeStack("Mono8", DARK).mean(), Light = Stack.mean();
    EXPECT_NEAR(Light.dTemporalVariance, 16.0 / 3.0, 1e-9);
    EXPECT_NEAR(photonTransferGain(Dark, Light), GAIN, 1e-9);
    // A file tells the noise of the whole image only, and that of one frame not at all.
    MeanImage Filed = Light;
    Filed.vecClassVariance.clear();
    expectSplit(nonUniformity(Dark, Filed, GAIN).vecClasses[0].Prnu, PRNU, 1.0);
    Filed.dTemporalVariance = std::nan("");
    EXPECT_TRUE(std::isnan(photonTransferGain(Dark, Filed)));
    EXPECT_GT(nonUniformity(Dark, Filed, GAIN).vecClasses[0].Prnu.dTotal, PRNU.dTotal);
    EXPECT_TRUE(std::isnan(photonTransferGain(Light, Dark)));
}

// Light that drifts over the frames counted as noise: at 1.5 % the gain came out 2.7 times too high.
TEST(NonUniformity, DriftOfTheLightIsNoNoise) {
    SimulatedFrames Camera({StandIn::findPixelFormat("Mono12"), 192, 144});
    const auto dExposure = static_cast<double>(Camera.Settings.iExposureUs);
    CFrameStack DarkStack(Camera.Layout);
    for (uint64_t i = 0; i < 16; ++i) {
        DarkStack.add(Camera.unpacked(Camera.image(StandIn::eSceneDark, i)));
    }
    const MeanImage Dark = DarkStack.mean();
    double dSteadyDsnu = 0.0;
    for (const double dDrift : {0.0, 0.002, 0.015, 0.08}) {
        SCOPED_TRACE(dDrift);
        CFrameStack Stack(Camera.Layout);
        for (uint64_t i = 0; i < 32; ++i) {
            Camera.Settings.iExposureUs =
                static_cast<uint64_t>(dExposure * (1.0 + dDrift * (static_cast<double>(i) / 31.0 - 0.5)));
            Stack.add(Camera.unpacked(Camera.image(StandIn::eSceneLight, i)));
        }
        const MeanImage Light = Stack.mean();
        const double dGain = photonTransferGain(Dark, Light);
        EXPECT_NEAR(dGain / Camera.Sensor.model().fGain12, 1.0, 0.01);
        const double dSignal = (Light.sMeans.dLeast + Light.sMeans.dMost) / 2.0 - Dark.sMeans.dFirst;
        EXPECT_NEAR((Light.sMeans.dLast - Light.sMeans.dFirst) / dSignal, dDrift, 0.02 * dDrift + 0.0005);
        const double dDsnu = nonUniformity(Dark, Light, dGain).vecClasses[0].Dsnu.dTotal;
        dSteadyDsnu = dDrift == 0.0 ? dDsnu : dSteadyDsnu;
        EXPECT_NEAR(dDsnu / dSteadyDsnu, 1.0, 0.01);
    }
}

// Noise of a class that a file does not tell is shared out by the light: near to what the frames themselves say.
TEST(NonUniformity, ReferenceOfAFilterArrayShowsWhatItsFramesShow) {
    SimulatedFrames Camera({StandIn::findPixelFormat("BayerRG12"), 256, 192});
    const auto fnMean = [&](StandIn::eScene eWhat) {
        CFrameStack Stack(Camera.Layout);
        for (uint64_t i = 0; i < 2; ++i) {
            Stack.add(Camera.unpacked(Camera.image(eWhat, i)));
        }
        return Stack.mean();
    };
    const MeanImage Dark = fnMean(StandIn::eSceneDark), Light = fnMean(StandIn::eSceneLight);
    MeanImage Filed = Light;
    Filed.vecClassVariance.clear();
    EXPECT_NEAR(photonTransferGain(Dark, Light), Camera.Sensor.model().fGain12, 0.01);
    const NonUniformity Own = nonUniformity(Dark, Light, 0.3), Shared = nonUniformity(Dark, Filed, 0.3);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(Shared.vecClasses[i].Prnu.dPixel, Own.vecClasses[i].Prnu.dPixel, 0.01);
    }
}

TEST(NonUniformity, ImagesThatCannotBeSplitOrAddedAreToldApart) {
    const StandIn::ImageLayout Narrow = {StandIn::findPixelFormat("Mono8"), 2, 50};
    ColourPlane Plane{50, 2, std::vector<float>(100, 7.0F)};
    Plane.vSamples[0] = 17.0F;
    const Split Is = spatialVariances(Plane, 1, 0.0);
    EXPECT_NEAR(Is.dTotal, 1.0, 1e-9);  // (9.9^2 + 99 * 0.1^2) / 99
    EXPECT_TRUE(std::isnan(Is.dRow) && std::isnan(Is.dColumn) && std::isnan(Is.dPixel));
    CFrameStack Stack(Narrow);
    EXPECT_THROW(Stack.add(Frame{"", Narrow.pFormat, 50, 2, std::vector<uint16_t>(100), 0.0}), std::invalid_argument);
    EXPECT_THROW(Stack.mean(), std::logic_error);
    Stack.add(Frame{"", Narrow.pFormat, 2, 50, std::vector<uint16_t>(100, 255), 0.0});
    EXPECT_DOUBLE_EQ(Stack.mean().dSaturatedShare, 1.0);
    EXPECT_TRUE(std::isnan(Stack.mean().dTemporalVariance));
}

}  // namespace Toolkit
}  // namespace XAPEL2
