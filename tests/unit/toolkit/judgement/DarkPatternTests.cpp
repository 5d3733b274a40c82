// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pattern in the dark before and after correction by references of known pattern and noise.

#include "toolkit/judgement/DarkPattern.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Images.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr std::size_t WIDTH = 200, HEIGHT = 160;
constexpr double NOISE = 8.0;

struct Scene {
    double dPixels;  ///< standard deviation from pixel to pixel, DN
    double dWaves;   ///< amplitude of waves of 60 pixels, DN
};

double pattern(const Scene& rScene, std::size_t i) {
    const double dX = static_cast<double>(i % WIDTH), dY = static_cast<double>(i / WIDTH);
    std::minstd_rand random(static_cast<unsigned>(i * 7919 + 1));
    random.discard(3);
    return 300.0 + (random() % 2 == 0 ? rScene.dPixels : -rScene.dPixels) +
           rScene.dWaves * std::sin(dX * 0.10472) * std::sin(dY * 0.10472);
}

StandIn::ReferenceImage darkOf(const Scene& rScene, uint64_t nFrames) {
    std::mt19937 random(5);
    std::normal_distribution<double> noise(0.0, NOISE / std::sqrt(static_cast<double>(nFrames)));
    StandIn::ReferenceImage dark =
        makeReference(StandIn::eReferenceDark, {StandIn::findPixelFormat("Mono12"), WIDTH, HEIGHT},
                      [&](std::size_t i) { return pattern(rScene, i) + noise(random); });
    dark.nImages = nFrames;
    dark.dTemporalNoise = NOISE;
    return dark;
}

/// What a dark reference leaves when it is filtered by a box, against the true pattern.
double leftBy(const Scene& rScene, const StandIn::ReferenceImage& rDark, int nRadius) {
    double dSquares = 0.0, dCount = 0.0;
    const int nWidth = WIDTH, nHeight = HEIGHT;
    for (int iY = nRadius; iY < nHeight - nRadius; ++iY) {
        for (int iX = nRadius; iX < nWidth - nRadius; ++iX) {
            double dSum = 0.0;
            for (int k = iY - nRadius; k <= iY + nRadius; ++k) {
                for (int i = iX - nRadius; i <= iX + nRadius; ++i) {
                    dSum += static_cast<double>(rDark.vecSamples[static_cast<std::size_t>(k * nWidth + i)]);
                }
            }
            const double dOff = dSum / (2 * nRadius + 1) / (2 * nRadius + 1) -
                                pattern(rScene, static_cast<std::size_t>(iY * nWidth + iX));
            dSquares += dOff * dOff;
            dCount += 1.0;
        }
    }
    return std::sqrt(dSquares / dCount);
}

}  // namespace

TEST(DarkPattern, RadiusIsTheOneThatLeavesLeastOfThePattern) {
    for (const Scene& rScene : {Scene{0.5, 4.0}, Scene{0.0, 1.5}, Scene{1.0, 20.0}, Scene{1.0, 0.0}}) {
        for (const uint64_t nFrames : {4U, 16U}) {
            const StandIn::ReferenceImage dark = darkOf(rScene, nFrames);
            const DarkPattern is = darkPattern(dark);
            double dLeast = leftBy(rScene, dark, 0);
            EXPECT_NEAR(is.dAfter, dLeast, 0.02 * dLeast);
            for (const int nRadius : {1, 2, 3, 5, 8, 13, 21, 31}) {
                dLeast = std::min(dLeast, leftBy(rScene, dark, nRadius));
            }
            // The variance of the noise is itself told by the samples, to 3 sqrt(2 / 32,000) of it.
            EXPECT_NEAR(is.dFiltered * is.dFiltered, dLeast * dLeast,
                        0.05 * dLeast * dLeast + 0.024 * NOISE * NOISE / static_cast<double>(nFrames))
                << rScene.dPixels << ' ' << rScene.dWaves;
            EXPECT_NEAR(leftBy(rScene, dark, static_cast<int>(is.nRadius)), dLeast, 0.1 * dLeast) << is.nRadius;
            const double dTrue = std::hypot(rScene.dPixels, rScene.dWaves / 2.0);
            EXPECT_NEAR(is.dBefore, dTrue, 0.05 * is.dAfter + 0.02 * dTrue);
        }
    }
}

TEST(DarkPattern, WhatGetsWorseIsToldWithWhatHelps) {
    // 4 frames leave 4 DN, 100 leave 0.8 DN, of 2 DN.
    const Findings vecFew = judgeDarkPattern(darkOf({2.0, 0.0}, 4));
    ASSERT_EQ(vecFew.size(), 1U);
    EXPECT_EQ(vecFew[0].strId, "dark-worse");
    EXPECT_EQ(vecFew[0].eLevel, eWarning);
    EXPECT_THAT(vecFew[0].strText, HasSubstr("leaves 4.00 DN"));
    // 8 DN / sqrt(64) is half of 2 DN; the true figure is 64, the measured pattern is a little off.
    const DarkPattern few = darkPattern(darkOf({2.0, 0.0}, 4));
    EXPECT_NEAR(static_cast<double>(few.nFrames), 64.0, 5.0);
    EXPECT_THAT(vecFew[0].strAdvice, HasSubstr("from " + std::to_string(few.nFrames) + " frames"));
    EXPECT_TRUE(judgeDarkPattern(darkOf({2.0, 0.0}, 100)).empty());
    // A wave is kept by a filter, which needs no more frames.
    const Findings vecWaves = judgeDarkPattern(darkOf({0.0, 2.0}, 16));
    ASSERT_EQ(vecWaves.size(), 1U);
    EXPECT_EQ(vecWaves[0].eLevel, eNote);  // a quarter of the noise of a frame cannot be seen in it
    EXPECT_THAT(vecWaves[0].strAdvice, HasSubstr("box of radius"));
    EXPECT_TRUE(judgeDarkPattern(darkOf({3.0, 0.0}, 1)).empty());  // whose noise nobody knows
}
