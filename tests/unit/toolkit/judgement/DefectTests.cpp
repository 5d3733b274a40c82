// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hot and dead pixels are found where they are, and nowhere else.

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
        const StandIn::ImageLayout Layout = {StandIn::findPixelFormat(rCase.pFormat), 64, 32};
        const double dScale = Layout.pFormat->fullScale() / 4095.0;
        StandIn::ReferenceImage Dark = makeReference(StandIn::eReferenceDark, Layout, [&](std::size_t i) {
            return dScale * (60.0 + static_cast<double>(i % 7));
        });
        StandIn::ReferenceImage Light =
            makeReference(StandIn::eReferenceLight, Layout, [&](std::size_t i) { return dScale * shaded(Layout, i); });
        EXPECT_TRUE(findDefects(Dark).empty());
        EXPECT_TRUE(findDefects(Light, &Dark).empty());

        const auto fnExpect = [&](const std::vector<Defect>& rFound, eDefectKind eKind) {
            ASSERT_EQ(rFound.size(), 1U);
            EXPECT_TRUE(rFound[0].eKind == eKind && rFound[0].nX == rCase.nX && rFound[0].nY == rCase.nY &&
                        rFound[0].iClass == rCase.iClass);
        };
        Light.vSamples[rCase.iSample] *= 0.8F;
        fnExpect(findDefects(Light, &Dark), eDead);
        Light.vSamples[rCase.iSample] *= 1.6F;
        fnExpect(findDefects(Light, &Dark), eBright);
        // A hot pixel adds as much under light: what is left there is as good as its neighbours.
        const float fHot = static_cast<float>(dScale) * 500.0F;
        Light.vSamples[rCase.iSample] = static_cast<float>(dScale * shaded(Layout, rCase.iSample)) + fHot;
        Dark.vSamples[rCase.iSample] += fHot;
        fnExpect(findDefects(Dark), eHot);
        EXPECT_TRUE(findDefects(Light, &Dark).empty());
        fnExpect(findDefects(Light), eBright);
    }
}

TEST(Defects, HotPixelsOfTheSensorAreAllFound) {
    SimulatedFrames Camera({StandIn::findPixelFormat("Mono12"), 640, 480});
    const std::vector<uint16_t> vecFrame = Camera.unpacked(Camera.image(StandIn::eSceneDark, 0)).aSamples;
    std::set<std::size_t> setHot, setFound;
    for (std::size_t i = 0; i < vecFrame.size(); ++i) {
        if (Camera.Sensor.expectedDarkElectrons(Camera.Settings, i % 640, i / 640) > 100.0) {
            setHot.insert(i);
        }
    }
    const auto Dark = makeReference(StandIn::eReferenceDark, Camera.Layout, [&](std::size_t i) { return vecFrame[i]; });
    for (const Defect& rDefect : findDefects(Dark)) {
        setFound.insert(static_cast<std::size_t>(rDefect.nY * 640 + rDefect.nX));
    }
    EXPECT_GT(setHot.size(), 3U);
    EXPECT_EQ(setFound, setHot);
}

}  // namespace Toolkit
}  // namespace XAPEL2
