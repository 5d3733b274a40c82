// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hot and dead pixels are found where they are, and nowhere else.

#include <algorithm>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "Images.h"
#include "toolkit/judgement/Defects.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

/// Shading of 40 % across the image, and differences from pixel to pixel of up to 3 %.
double shaded(const StandIn::ImageLayout& rLayout, std::size_t i) {
    const double dAcross =
        static_cast<double>(i % rLayout.samplesPerRow()) / static_cast<double>(rLayout.samplesPerRow());
    return 2000.0 * (1.0 - 0.4 * dAcross) * (0.97 + 0.06 * static_cast<double>(i * 2654435761U % 1000U) / 1000.0);
}

}  // namespace

TEST(Defects, AreFoundInEachClassAndAtEachEdge) {
    const struct {
        const char* pFormat;
        std::size_t iSample;
        uint64_t nX, nY;
        unsigned iClass;
    } aCases[] = {{"Mono12", 0, 0, 0, 0},
                  {"Mono12", 64 * 31 + 63, 63, 31, 0},
                  {"BayerGB12", 64 * 7 + 10, 10, 7, 2},
                  {"BayerGB12", 64 * 31 + 63, 63, 31, 3},
                  {"RGB8", 64 * 3 * 5 + 9 * 3 + 1, 9, 5, 1}};
    for (const auto& rCase : aCases) {
        SCOPED_TRACE(rCase.pFormat + std::to_string(rCase.iSample));
        const StandIn::ImageLayout layout = {StandIn::findPixelFormat(rCase.pFormat), 64, 32};
        const double dScale = layout.pFormat->fullScale() / 4095.0;
        StandIn::ReferenceImage dark = makeReference(StandIn::eReferenceDark, layout, [&](std::size_t i) {
            return dScale * (60.0 + static_cast<double>(i % 7));
        });
        StandIn::ReferenceImage light =
            makeReference(StandIn::eReferenceLight, layout, [&](std::size_t i) { return dScale * shaded(layout, i); });
        EXPECT_TRUE(findDefects(dark).empty());
        EXPECT_TRUE(findDefects(light, &dark).empty());

        const auto fnExpect = [&](const std::vector<Defect>& rFound, eDefectKind eKind) {
            ASSERT_EQ(rFound.size(), 1U);
            EXPECT_TRUE(rFound[0].eKind == eKind && rFound[0].nX == rCase.nX && rFound[0].nY == rCase.nY &&
                        rFound[0].iClass == rCase.iClass);
        };
        light.vecSamples[rCase.iSample] *= 0.8F;
        fnExpect(findDefects(light, &dark), eDead);
        light.vecSamples[rCase.iSample] *= 1.6F;
        fnExpect(findDefects(light, &dark), eBright);
        // A hot pixel adds as much under light: what is left there is as good as its neighbours.
        const float fHot = static_cast<float>(dScale) * 500.0F;
        light.vecSamples[rCase.iSample] = static_cast<float>(dScale * shaded(layout, rCase.iSample)) + fHot;
        dark.vecSamples[rCase.iSample] += fHot;
        fnExpect(findDefects(dark), eHot);
        EXPECT_TRUE(findDefects(light, &dark).empty());
        fnExpect(findDefects(light), eBright);
    }
}

// Of any order of the eight, and at any column: widths are no multiples of what is worked on at once.
TEST(Defects, NeighboursAreTheMedianOfEight) {
    const StandIn::ImageLayout layout = {StandIn::findPixelFormat("Mono12"), 75, 60};
    const auto fnIsHot = [](std::size_t i) { return i % 75 % 3 == 1 && i / 75 % 3 == 1; };
    std::mt19937 random(3);
    const StandIn::ReferenceImage dark = makeReference(StandIn::eReferenceDark, layout, [&](std::size_t i) {
        return fnIsHot(i) ? 1000.0 : static_cast<double>(random() % 64) / 4.0;
    });
    const std::vector<Defect> vecFound = findDefects(dark);
    EXPECT_EQ(vecFound.size(), 25U * 20U);
    for (const Defect& rDefect : vecFound) {
        std::vector<double> vecNear;
        for (std::size_t k = 0; k < 9; ++k) {
            vecNear.push_back(dark.vecSamples[(rDefect.nY + k / 3 - 1) * 75 + rDefect.nX + k % 3 - 1]);
        }
        std::sort(vecNear.begin(), vecNear.end());  // the hot one is the last
        EXPECT_EQ(rDefect.dNeighbours, (vecNear[3] + vecNear[4]) / 2.0) << rDefect.nX << " " << rDefect.nY;
    }
}

TEST(Defects, HotPixelsOfTheSensorAreAllFound) {
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 640, 480});
    const std::vector<uint16_t> vecFrame = camera.unpacked(camera.image(StandIn::eSceneDark, 0)).vecSamples;
    std::set<std::size_t> setHot, setFound;
    for (std::size_t i = 0; i < vecFrame.size(); ++i) {
        if (camera.sensor.expectedDarkElectrons(camera.settings, i % 640, i / 640) > 100.0) {
            setHot.insert(i);
        }
    }
    const auto dark = makeReference(StandIn::eReferenceDark, camera.layout, [&](std::size_t i) { return vecFrame[i]; });
    for (const Defect& rDefect : findDefects(dark)) {
        setFound.insert(static_cast<std::size_t>(rDefect.nY * 640 + rDefect.nX));
    }
    EXPECT_GT(setHot.size(), 3U);
    EXPECT_EQ(setFound, setHot);
}

}  // namespace Toolkit
}  // namespace XAPEL2
