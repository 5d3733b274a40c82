// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The filters of an image, colour by colour, against a plain implementation. Planes: PlaneFilterTests.cpp.

#include "standin/processor/filters/ReferenceFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "TestImages.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// One filter as its definition says, window by window. A step leads to the next sample of the same colour.
std::vector<float> plain(const ImageLayout& rLayout, const std::vector<float>& rIn, int iRadius, bool bMedian) {
    const int iStep = rLayout.pFormat->isCfa() ? 2 : 1;
    const int nChannels = static_cast<int>(rLayout.pFormat->nChannels);
    const int nWidth = static_cast<int>(rLayout.nWidth);
    const int nHeight = static_cast<int>(rLayout.nHeight);
    // The outermost coordinate of the same colour on the side that i has left.
    const auto inside = [&](int i, int n) {
        while (i < 0) i += iStep;
        while (i >= n) i -= iStep;
        return i;
    };
    std::vector<float> vOut(rIn.size());
    for (int iY = 0; iY < nHeight; ++iY) {
        for (int iX = 0; iX < nWidth; ++iX) {
            for (int iChannel = 0; iChannel < nChannels; ++iChannel) {
                std::vector<double> vWindow;
                for (int iV = -iRadius; iV <= iRadius; ++iV) {
                    for (int iU = -iRadius; iU <= iRadius; ++iU)
                        vWindow.push_back(rIn[static_cast<std::size_t>(
                            (inside(iY + iV * iStep, nHeight) * nWidth + inside(iX + iU * iStep, nWidth)) * nChannels +
                            iChannel)]);
                }
                std::sort(vWindow.begin(), vWindow.end());
                double dSum = 0.0;
                for (const double dSample : vWindow) dSum += dSample;
                const double dResult =
                    bMedian ? vWindow[vWindow.size() / 2] : dSum / static_cast<double>(vWindow.size());
                vOut[static_cast<std::size_t>((iY * nWidth + iX) * nChannels + iChannel)] = static_cast<float>(dResult);
            }
        }
    }
    return vOut;
}

TEST(ReferenceFilter, AgreesWithThePlainDefinition) {
    std::mt19937 oRandom(11);
    std::uniform_real_distribution<float> oUniform(0.0F, 1000.0F);
    const std::vector<ImageLayout> vLayouts = {
        layout("Mono16", 1, 1),    layout("Mono16", 1, 9),     layout("Mono10", 9, 1),     layout("Mono12", 17, 13),
        layout("BayerRG12", 1, 1), layout("BayerGB8", 15, 12), layout("BayerRG10p", 8, 7), layout("RGB8", 9, 11)};
    const std::vector<FilterRadii> vRadii = {{0, 0}, {1, 0}, {2, 0}, {7, 0}, {0, 1}, {0, 5}, {1, 2}, {2, 1}};
    for (const ImageLayout& rLayout : vLayouts) {
        for (const FilterRadii& rRadii : vRadii) {
            // Few different values in the first round: many equal samples. Any float in the second.
            for (const bool bFew : {true, false}) {
                SCOPED_TRACE(std::string(rLayout.pFormat->pName) + " " + std::to_string(rLayout.nWidth) + "x" +
                             std::to_string(rLayout.nHeight) + ", median " + std::to_string(rRadii.nMedian) + ", box " +
                             std::to_string(rRadii.nBox));
                std::vector<float> vSamples(rLayout.samples());
                for (float& rSample : vSamples)
                    rSample = bFew ? std::floor(oUniform(oRandom) / 150) : oUniform(oRandom);
                std::vector<float> vExpected = vSamples;
                if (rRadii.nMedian != 0)
                    vExpected = plain(rLayout, vExpected, static_cast<int>(rRadii.nMedian), true);
                if (rRadii.nBox != 0)
                    vExpected = plain(rLayout, vExpected, static_cast<int>(rRadii.nBox), false);
                filterReference(rLayout, rRadii, vSamples);
                for (std::size_t i = 0; i < vSamples.size(); ++i) {
                    if (rRadii.nBox == 0)
                        ASSERT_EQ(vSamples[i], vExpected[i]) << i;
                    else
                        ASSERT_NEAR(vSamples[i], vExpected[i], 1e-4) << i;
                }
            }
        }
    }
}

// A running sum that drifts leaves a little light where there is none, and such a pixel would get the largest gain.
TEST(ReferenceFilter, LeavesNoTraceOfLightThatHasLeftTheWindow) {
    const ImageLayout sLayout = layout("Mono16", 40, 40);
    std::vector<float> vSamples(sLayout.samples(), 0.0F);
    for (std::size_t i = 0; i < 10; ++i) vSamples[i * 40 + i] = 60000.1F + 0.7F / static_cast<float>(i + 1);
    filterReference(sLayout, {0, 3}, vSamples);
    EXPECT_GT(vSamples[12 * 40 + 12], 0.0F);
    for (std::size_t i = 13; i < 40; ++i) ASSERT_EQ(vSamples[i * 40 + i], 0.0F) << i;
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
