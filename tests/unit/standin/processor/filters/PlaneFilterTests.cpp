// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The filters of a plane against their definition, for every radius and every set of instructions.

#include "standin/processor/filters/PlaneFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "Targets.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

struct PlaneSize {
    std::size_t nWidth, nHeight;
};

/// Calls fn(index, samples of the window) for each sample of the plane.
template <class F>
void forEachWindow(const PlaneSize& rSize, const std::vector<float>& rIn, int iRadius, F fn) {
    const int nWidth = static_cast<int>(rSize.nWidth);
    const int nHeight = static_cast<int>(rSize.nHeight);
    std::vector<float> vecWindow;
    for (int i = 0; i < nWidth * nHeight; ++i) {
        vecWindow.clear();
        for (int iY = i / nWidth - iRadius; iY <= i / nWidth + iRadius; ++iY) {
            const float* const pRow = &rIn[static_cast<std::size_t>(std::clamp(iY, 0, nHeight - 1) * nWidth)];
            for (int iX = i % nWidth - iRadius; iX <= i % nWidth + iRadius; ++iX) {
                vecWindow.push_back(pRow[std::clamp(iX, 0, nWidth - 1)]);
            }
        }
        fn(static_cast<std::size_t>(i), vecWindow);
    }
}

/// Filters with every target, samples side by side and apart; expects the samples and nothing written between them.
template <class F>
void expectFiltered(const PlaneSize& rSize, const std::vector<float>& rIn, const std::vector<float>& rExpected,
                    F fnFilter) {
    for (const std::size_t nStep : {1U, 3U}) {
        const std::size_t nStepY = rSize.nWidth * nStep + 5;
        const auto spread = [&](const std::vector<float>& r) {
            std::vector<float> vecImage(nStepY * rSize.nHeight + 5, 12321.5F);
            for (std::size_t i = 0; i < r.size(); ++i) {
                vecImage[5 + i / rSize.nWidth * nStepY + i % rSize.nWidth * nStep] = r[i];
            }
            return vecImage;
        };
        const std::vector<float> vecExpected = spread(rExpected);
        forEachTarget([&] {
            std::vector<float> vecImage = spread(rIn);
            fnFilter(Plane{vecImage.data() + 5, rSize.nWidth, rSize.nHeight, nStep, nStepY});
            ASSERT_EQ(vecImage, vecExpected) << "step " << nStep;
        });
    }
}

void checkFilters(const PlaneSize& rSize, const std::vector<float>& rIn, unsigned nRadius) {
    SCOPED_TRACE(std::to_string(rSize.nWidth) + "x" + std::to_string(rSize.nHeight) + ", radius " +
                 std::to_string(nRadius));
    std::vector<float> vecMedians(rIn.size());
    std::vector<float> vecMeans(rIn.size());
    forEachWindow(rSize, rIn, static_cast<int>(nRadius), [&](std::size_t i, std::vector<float>& rWindow) {
        int64_t iUnits = 0;
        for (const float fSample : rWindow) {
            iUnits += std::llrint(std::ldexp(static_cast<double>(fSample), 24));
        }
        vecMeans[i] =
            static_cast<float>(std::ldexp(static_cast<double>(iUnits), -24) / static_cast<double>(rWindow.size()));
        const auto itMiddle = rWindow.begin() + static_cast<std::ptrdiff_t>(rWindow.size() / 2);
        std::nth_element(rWindow.begin(), itMiddle, rWindow.end());
        vecMedians[i] = *itMiddle;
    });
    expectFiltered(rSize, rIn, vecMedians, [&](const Plane& rPlane) { medianFilter(rPlane, nRadius); });
    expectFiltered(rSize, rIn, vecMeans, [&](const Plane& rPlane) { boxFilter(rPlane, nRadius); });
}

TEST(PlaneFilter, AgreesWithTheDefinition) {
    std::mt19937 oRandom(5);
    // The wide and the high ones are larger than a block or tile of any method.
    const std::vector<PlaneSize> vecSizes = {{1, 1}, {1, 37}, {67, 1}, {33, 4}, {64, 5}, {15, 18}, {133, 3}, {3, 131}};
    for (unsigned nRadius = 1; nRadius <= 31; ++nRadius) {
        std::vector<PlaneSize> vecHere = vecSizes;
        if (nRadius <= NETWORK_RADIUS_MAX) {
            vecHere.push_back({521, 3});
        }
        if (nRadius == NETWORK_RADIUS_MAX + 1) {
            vecHere.push_back({250, 250});
        }
        if (nRadius == 31) {
            vecHere.insert(vecHere.end(), {{2, 200}, {200, 2}});
        }
        for (std::size_t i = 0; i < vecHere.size(); ++i) {
            // All values, few, the extremes, and those around a place; each size meets each of them.
            const unsigned uKind = (nRadius + static_cast<unsigned>(i)) % 4;
            std::vector<float> vecWhole(vecHere[i].nWidth * vecHere[i].nHeight);
            std::vector<float> vecFloat(vecWhole.size());
            for (std::size_t k = 0; k < vecWhole.size(); ++k) {
                const uint32_t u = static_cast<uint32_t>(oRandom());
                const uint32_t aKinds[] = {u & 0xFFFF, u & 3, u % 2 * 65535, 30000 + u % 3000};
                vecWhole[k] = static_cast<float>(aKinds[uKind]);
                // Zero has two signs, which count as one, and some samples are too small for a float's full precision.
                if (vecWhole[k] == 0.0F && (u & 4) != 0) {
                    vecWhole[k] = -0.0F;
                }
                const int iExponent = u % 32 == 0 ? -149 : static_cast<int>(u % 32) - 40;
                const float fFraction = static_cast<float>(u >> 20) / 4096.0F;
                vecFloat[k] = uKind == 0   ? std::ldexp(static_cast<float>(u >> 8), iExponent)
                              : uKind == 3 ? vecWhole[k] + fFraction
                                           : vecWhole[k] / 3.0F * (u % 5 == 0 ? 0.0F : 1.0F);
            }
            checkFilters(vecHere[i], vecWhole, nRadius);
            checkFilters(vecHere[i], vecFloat, nRadius);
            // Whole numbers up to a sample anywhere.
            vecWhole[oRandom() % vecWhole.size()] = 7.25F;
            checkFilters(vecHere[i], vecWhole, nRadius);
            if (HasFailure()) {
                return;
            }
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
