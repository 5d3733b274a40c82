// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Device identifiers: what each one opens, and what is said about those that open nothing.

#include "standin/cameras/DeviceId.h"
#include "standin/cameras/interface/FrameSource.h"

#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>

namespace XAPEL2 {
namespace StandIn {
namespace {

TEST(FrameSourceId, OpensTheSimulatedSensorAsAsked) {
    const struct {
        const char* pId;
        const char* pDescription;
        uint64_t nWidth, nHeight;
        const char* pFormat;
    } CASES[] = {
        {"sim", "simulated camera, seed 1", 1024, 768, "Mono12"},
        {"sim:18446744073709551615", "simulated camera, seed 18446744073709551615", 1024, 768, "Mono12"},
        {"sim:7?height=1&width=32768&format=BayerRG12p", "simulated camera, seed 7", 32768, 1, "BayerRG12p"},
    };
    for (const auto& rCase : CASES) {
        const auto pSource = makeFrameSource(rCase.pId);
        const CameraSettings settings = pSource->defaultSettings();
        EXPECT_EQ(pSource->description(), rCase.pDescription);
        EXPECT_EQ(settings.nWidth, rCase.nWidth) << rCase.pId;
        EXPECT_EQ(settings.nHeight, rCase.nHeight) << rCase.pId;
        EXPECT_EQ(pSource->sensorWidth(), rCase.nWidth) << rCase.pId;
        EXPECT_STREQ(settings.pFormat->pName, rCase.pFormat) << rCase.pId;
    }
}

TEST(FrameSourceId, StartsTheSimulatedSensorWithItsSettings) {
    const auto pSource = makeFrameSource(
        "sim:7?binning=2&width=64&offsetx=16&height=48&offsety=3&exposure=20000&gain=150&reversex=1&reversey=0&fps=50");
    const CameraSettings r = pSource->defaultSettings();
    const uint64_t aSettings[] = {r.nWidth,      r.nOffsetX,     r.nHeight,   r.nOffsetY,  r.nBinningX,   r.nBinningY,
                                  r.iExposureUs, r.iGainPercent, r.iReverseX, r.iReverseY, r.iFrameRateHz};
    const uint64_t aExpected[] = {64, 16, 48, 3, 2, 2, 20000, 150, 1, 0, 50};
    EXPECT_TRUE(std::equal(std::begin(aSettings), std::end(aSettings), aExpected));
    EXPECT_EQ(pSource->sensorWidth(), 160U);
    EXPECT_EQ(pSource->sensorHeight(), 102U);
    EXPECT_EQ(makeFrameSource("sim?width=64&offsetx=16&sensorwidth=100")->sensorWidth(), 100U);
}

TEST(FrameSourceId, RefusesOthersAndSaysWhy) {
    const std::pair<const char*, const char*> CASES[] = {
        {"", "no such source"},
        {"replay:", "no folder"},
        {"sim:", "seed ''"},
        {"sim:-1", "seed '-1'"},
        {"sim:18446744073709551616", "seed '18446744073709551616'"},
        {"sim?width=64&", "unknown setting ''"},
        {"sim?Width=64", "unknown setting 'Width', known are format, width, height, exposure,"},
        {"sim?width", "width '' is not a number from 1 to 32768"},
        {"sim?width=0", "width '0'"},
        {"sim?height=32769", "height '32769'"},
        {"sim?width=64&width=64", "'width' is given twice"},
        {"sim?binning=3", "binning is 1, 2 or 4"},
        {"sim?width=32768&offsetx=1", "sensor of 32769 pixels a side, which must not exceed 32768"},
        {"sim?width=64&binning=2&sensorwidth=127", "sensor of 128 pixels a side, which must not exceed 127"},
        {"replay:?format=Mono8", "no folder"},
        {"replay:dir?format=Mono9", "unknown format 'Mono9'"},
        {"sim?format=Mono9", "unknown format 'Mono9', known are Mono8, Mono10,"},
    };
    for (const auto& [pId, pSaid] : CASES) {
        try {
            makeFrameSource(pId);
            ADD_FAILURE() << "'" << pId << "' was accepted";
        } catch (const std::invalid_argument& rError) {
            EXPECT_NE(std::string(rError.what()).find(pSaid), std::string::npos) << rError.what();
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
