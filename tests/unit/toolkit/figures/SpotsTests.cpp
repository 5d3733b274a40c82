// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Spots that correction leaves.

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "toolkit/figures/Spots.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

namespace {

struct Shadow {
    double dX, dY, dDepth, dSigma;
};

/// An even signal of 100 % with noise, and shadows.
std::vector<float> signal(const StandIn::ImageLayout& rLayout, double dNoise, const std::vector<Shadow>& rShadows,
                          double dSlope = 0.0, unsigned uSeed = 5) {
    std::mt19937 random(uSeed);
    std::normal_distribution<double> noise(100.0, dNoise);
    std::vector<float> vecSignal(rLayout.samples());
    for (std::size_t i = 0; i < vecSignal.size(); ++i) {
        const std::size_t iPixel = i / rLayout.pFormat->nChannels;
        const auto dX = static_cast<double>(iPixel % rLayout.nWidth), dY = static_cast<double>(iPixel / rLayout.nWidth);
        double dLight = 1.0 + dSlope * dX;
        for (const Shadow& r : rShadows) {
            const double dFar = std::pow(dX - r.dX, 2) + std::pow(dY - r.dY, 2);
            dLight *= 1.0 - r.dDepth * std::exp(-dFar / (2 * r.dSigma * r.dSigma));
        }
        vecSignal[i] = static_cast<float>(noise(random) * dLight);
    }
    return vecSignal;
}

StandIn::ImageLayout layoutOf(const char* pFormat, uint64_t nWidth = 320, uint64_t nHeight = 240) {
    return {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
}

}  // namespace

TEST(Spots, DustOfEachSizeIsOneSpotAtItsPlace) {
    const struct {
        Shadow shadow;
        uint64_t nSide;
    } aRows[] = {{{200.3, 131.7, 0.12, 3}, 8}, {{200.3, 131.7, 0.02, 3}, 8}, {{99.0, 60.0, 0.12, 10}, 16},
                 {{99.0, 60.0, 0.03, 20}, 32}, {{20.0, 215.0, -0.05, 3}, 8}, {{14.0, 14.0, 0.12, 3}, 8}};
    for (const char* pFormat : {"Mono12", "BayerRG8", "RGB8"}) {
        const StandIn::ImageLayout layout = layoutOf(pFormat);
        for (const auto& rRow : aRows) {
            SCOPED_TRACE(pFormat + std::string(" ") + std::to_string(rRow.shadow.dSigma));
            const std::vector<Spot> vecSpots = findSpots(layout, signal(layout, 0.3, {rRow.shadow}, 1e-4));
            ASSERT_EQ(vecSpots.size(), 1U);
            const Spot& rSpot = vecSpots.front();
            EXPECT_EQ(rSpot.nSide, rRow.nSide);
            const double dHalf = static_cast<double>(rSpot.nSide) / 2;
            EXPECT_NEAR(static_cast<double>(rSpot.iX) + dHalf, rRow.shadow.dX, dHalf);
            EXPECT_NEAR(static_cast<double>(rSpot.iY) + dHalf, rRow.shadow.dY, dHalf);
            EXPECT_EQ(rSpot.dPercent<0.0, rRow.shadow.dDepth> 0.0);
            EXPECT_LT(std::abs(rSpot.dPercent), 100.0 * std::abs(rRow.shadow.dDepth));
            EXPECT_GT(std::abs(rSpot.dPercent), 30.0 * std::abs(rRow.shadow.dDepth));
        }
    }
}

TEST(Spots, OneForEachSpeck) {
    const StandIn::ImageLayout layout = layoutOf("Mono12");
    const std::vector<Spot> vecSpots = findSpots(
        layout, signal(layout, 0.3, {{50.0, 50.0, 0.12, 3}, {90.0, 50.0, 0.06, 3}, {250.0, 200.0, -0.10, 5}}));
    ASSERT_EQ(vecSpots.size(), 3U);
    EXPECT_EQ(judgeSpots(vecSpots).front().strId, "measured-spots");
    EXPECT_NE(judgeSpots(vecSpots).front().strText.find("3 spots"), std::string::npos);
}

// Noise of any strength, slopes, single pixels, few values, and images that are too small for a spot.
TEST(Spots, NoneWhereThereIsNoDust) {
    const StandIn::ImageLayout layout = layoutOf("Mono12");
    for (unsigned uSeed = 0; uSeed < 40; ++uSeed) {
        EXPECT_TRUE(findSpots(layout, signal(layout, 0.01 + uSeed % 4 * 1.5, {}, uSeed % 3 * 5e-4, uSeed)).empty())
            << uSeed;
    }
    EXPECT_TRUE(findSpots(layout, signal(layout, 0.01, {{200.0, 131.0, 0.004, 3}})).empty()) << "nobody sees it";
    std::vector<float> vecPixels = signal(layout, 0.3, {});
    for (std::size_t i = 0; i < vecPixels.size(); i += 997) {
        vecPixels[i] = i % 2 == 0 ? 0.0F : 400.0F;
    }
    EXPECT_TRUE(findSpots(layout, vecPixels).empty());
    std::vector<float> vecCoarse = signal(layout, 0.2, {});
    std::transform(vecCoarse.begin(), vecCoarse.end(), vecCoarse.begin(), [](float f) { return std::round(f); });
    EXPECT_TRUE(findSpots(layout, vecCoarse).empty());
    for (const auto& [nWidth, nHeight] : {std::pair(1U, 1U), std::pair(23U, 400U), std::pair(400U, 23U)}) {
        const StandIn::ImageLayout small = layoutOf("Mono12", nWidth, nHeight);
        EXPECT_TRUE(findSpots(small, signal(small, 0.3, {{10.0, 10.0, 0.5, 3}})).empty());
    }
    EXPECT_TRUE(judgeSpots({}).empty());
}
