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
        while (i < 0) {
            i += iStep;
        }
        while (i >= n) {
            i -= iStep;
        }
        return i;
    };
    std::vector<float> vecOut(rIn.size());
    for (int iY = 0; iY < nHeight; ++iY) {
        for (int iX = 0; iX < nWidth; ++iX) {
            for (int iChannel = 0; iChannel < nChannels; ++iChannel) {
                std::vector<double> vecWindow;
                for (int iV = -iRadius; iV <= iRadius; ++iV) {
                    for (int iU = -iRadius; iU <= iRadius; ++iU) {
                        vecWindow.push_back(rIn[static_cast<std::size_t>(
                            (inside(iY + iV * iStep, nHeight) * nWidth + inside(iX + iU * iStep, nWidth)) * nChannels +
                            iChannel)]);
                    }
                }
                std::sort(vecWindow.begin(), vecWindow.end());
                double dSum = 0.0;
                for (const double dSample : vecWindow) {
                    dSum += dSample;
                }
                const double dResult =
                    bMedian ? vecWindow[vecWindow.size() / 2] : dSum / static_cast<double>(vecWindow.size());
                vecOut[static_cast<std::size_t>((iY * nWidth + iX) * nChannels + iChannel)] =
                    static_cast<float>(dResult);
            }
        }
    }
    return vecOut;
}

TEST(ReferenceFilter, AgreesWithThePlainDefinition) {
    std::mt19937 oRandom(11);
    std::uniform_real_distribution<float> oUniform(0.0F, 1000.0F);
    const std::vector<ImageLayout> vecLayouts = {layoutOf("Mono16", 1, 1),     layoutOf("Mono16", 1, 9),
                                                 layoutOf("Mono10", 9, 1),     layoutOf("Mono12", 17, 13),
                                                 layoutOf("BayerRG12", 1, 1),  layoutOf("BayerGB8", 15, 12),
                                                 layoutOf("BayerRG10p", 8, 7), layoutOf("RGB8", 9, 11)};
    const std::vector<FilterRadii> vecRadii = {{0, 0}, {1, 0}, {2, 0}, {7, 0}, {0, 1}, {0, 5}, {1, 2}, {2, 1}};
    for (const ImageLayout& rLayout : vecLayouts) {
        for (const FilterRadii& rRadii : vecRadii) {
            // Few different values in the first round: many equal samples. Any float in the second.
            for (const bool bFew : {true, false}) {
                SCOPED_TRACE(std::string(rLayout.pFormat->pName) + " " + std::to_string(rLayout.nWidth) + "x" +
                             std::to_string(rLayout.nHeight) + ", median " + std::to_string(rRadii.nMedian) + ", box " +
                             std::to_string(rRadii.nBox));
                std::vector<float> vecSamples(rLayout.samples());
                for (float& rSample : vecSamples) {
                    rSample = bFew ? std::floor(oUniform(oRandom) / 150) : oUniform(oRandom);
                }
                std::vector<float> vecExpected = vecSamples;
                if (rRadii.nMedian != 0) {
                    vecExpected = plain(rLayout, vecExpected, static_cast<int>(rRadii.nMedian), true);
                }
                if (rRadii.nBox != 0) {
                    vecExpected = plain(rLayout, vecExpected, static_cast<int>(rRadii.nBox), false);
                }
                filterReference(rLayout, rRadii, vecSamples);
                for (std::size_t i = 0; i < vecSamples.size(); ++i) {
                    if (rRadii.nBox == 0) {
                        ASSERT_EQ(vecSamples[i], vecExpected[i]) << i;
                    } else {
                        ASSERT_NEAR(vecSamples[i], vecExpected[i], 1e-4) << i;
                    }
                }
            }
        }
    }
}

// A running sum that drifts leaves a little light where there is none, and such a pixel would get the largest gain.
TEST(ReferenceFilter, LeavesNoTraceOfLightThatHasLeftTheWindow) {
    const ImageLayout layout = layoutOf("Mono16", 40, 40);
    std::vector<float> vecSamples(layout.samples(), 0.0F);
    for (std::size_t i = 0; i < 10; ++i) {
        vecSamples[i * 40 + i] = 60000.1F + 0.7F / static_cast<float>(i + 1);
    }
    filterReference(layout, {0, 3}, vecSamples);
    EXPECT_GT(vecSamples[12 * 40 + 12], 0.0F);
    for (std::size_t i = 13; i < 40; ++i) {
        ASSERT_EQ(vecSamples[i * 40 + i], 0.0F) << i;
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
