// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The conversion gain from levels of known noise, and from those of the simulated sensor.

#include "toolkit/judgement/PhotonTransfer.h"

#include <algorithm>
#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Images.h"
#include "TemporaryFolder.h"
#include "standin/files/SafeFile.h"
#include "standin/files/TiffOutput.h"
#include "toolkit/frames/FrameFile.h"
#include "toolkit/text/Errors.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;
using ::testing::HasSubstr;

namespace {

/// An image of one mean and variance in each class.
MeanImage flat(const char* pFormat, double dMean, double dVariance, double dStep = 0.0) {
    MeanImage image{{StandIn::findPixelFormat(pFormat), 32, 16}, 16, {}};
    for (std::size_t i = 0; i < image.layout.samples(); ++i) {
        image.vecSamples.push_back(static_cast<float>(dMean + dStep * image.layout.classOf(i)));
    }
    for (unsigned i = 0; i < image.layout.classes(); ++i) {
        image.vecClassVariance.push_back(dVariance);
    }
    image.dTemporalVariance = dVariance;
    return image;
}

/// Levels of 0.25 DN per electron over 100 DN of dark of a variance of 9 DN^2.
std::vector<LightLevel> levels(const std::vector<double>& rSignals, const char* pFormat = "Mono12") {
    std::vector<LightLevel> vecLevels;
    for (const double dSignal : rSignals) {
        vecLevels.push_back(
            {std::to_string(dSignal), flat(pFormat, 100.0 + dSignal, 9.0 + 0.25 * dSignal), flat(pFormat, 100.0, 9.0)});
    }
    return vecLevels;
}

std::vector<bool> used(const TransferLine& rLine) {
    std::vector<bool> vecUsed;
    for (const TransferPoint& rPoint : rLine.vecPoints) {
        vecUsed.push_back(rPoint.bUsed);
    }
    return vecUsed;
}

}  // namespace

TEST(PhotonTransfer, LineReachesTo70PercentOfSaturation) {
    std::vector<LightLevel> vecLevels = levels({0.0, 400.0, 1200.0, 2000.0, 2700.0, 2900.0, 3500.0});
    // Full scale is 3,995 DN above the dark, 70 % of it 2,796.5 DN.
    TransferLine line = photonTransfer(vecLevels).vecClasses[0];
    EXPECT_NEAR(line.dGain, 0.25, 1e-9);
    EXPECT_EQ(line.dSaturation, 3995.0);
    EXPECT_EQ(used(line), (std::vector<bool>{false, true, true, true, true, false, false}));
    // 512 samples of 16 frames, in the light and in the dark.
    EXPECT_NEAR(line.vecPoints[0].dUncertainty, std::sqrt(2.0 * (9.0 * 9.0 + 9.0 * 9.0) / (512.0 * 15.0)), 0.003);
    // Beyond saturation the variance falls: 70 % of 2,700 DN are 1,890 DN then.
    vecLevels[5].light.vecClassVariance[0] = 300.0;
    vecLevels[6].light.vecClassVariance[0] = 20.0;
    line = photonTransfer(vecLevels).vecClasses[0];
    EXPECT_NEAR(line.dGain, 0.25, 1e-9);
    EXPECT_EQ(line.dSaturation, 2700.0);
    EXPECT_EQ(used(line), (std::vector<bool>{false, true, true, false, false, false, false}));
    // Signals of 3 and 4 units, 0.2 and 0.3 DN per electron: (9 * 0.2 + 16 * 0.3) / 25
    vecLevels = levels({300.0, 400.0});
    vecLevels[0].light.vecClassVariance[0] = 9.0 + 60.0;
    vecLevels[1].light.vecClassVariance[0] = 9.0 + 120.0;
    EXPECT_NEAR(photonTransfer(vecLevels).vecClasses[0].dGain, 0.264, 1e-9);
    EXPECT_EQ(judgeLevels(photonTransfer(vecLevels)).front().strId, "few-levels");
    EXPECT_THAT(judgeLevels(photonTransfer(levels({10.0, 20.0}))).front().strText, HasSubstr("Only 2 levels are"));
    EXPECT_THAT(judgeLevels(photonTransfer(levels({0.0}))).front().strText, HasSubstr("The only level is not"));
    EXPECT_TRUE(judgeLevels(photonTransfer(levels({10.0, 20.0, 30.0, 40.0, 50.0}))).empty());
}

TEST(PhotonTransfer, ClassesHaveTheirOwnLight) {
    std::vector<LightLevel> vecLevels;
    for (const double dSignal : {200.0, 400.0, 600.0}) {
        LightLevel level{"", flat("BayerRG12", 100.0 + dSignal, 0.0, 30.0), flat("BayerRG12", 100.0, 9.0)};
        for (unsigned i = 0; i < 4; ++i) {
            level.light.vecClassVariance[i] = 9.0 + (0.2 + 0.1 * i) * (dSignal + 30.0 * i);
        }
        vecLevels.push_back(level);
    }
    const PhotonTransfer transfer = photonTransfer(vecLevels);
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_NEAR(transfer.vecClasses[i].dGain, 0.2 + 0.1 * i, 1e-9);
    }
    EXPECT_NEAR(transfer.gain(), 0.35, 1e-9);
}

TEST(PhotonTransfer, UnusableLevelsAreRefusedByName) {
    std::vector<LightLevel> vecLevels = levels({10.0, 20.0});
    vecLevels[1].light.nFrames = 1;
    vecLevels[1].strName = "second";
    const auto fnSays = [&] {
        try {
            photonTransfer(vecLevels);
        } catch (const std::invalid_argument& rError) {
            return std::string(rError.what());
        }
        return std::string();
    };
    EXPECT_THAT(fnSays(), HasSubstr("second: the noise of a single frame"));
    vecLevels[1].light = flat("Mono10", 110.0, 12.0);
    EXPECT_THAT(fnSays(), HasSubstr("second has another format"));
}

TEST(PhotonTransfer, LevelsGoWithTheDarkOfTheirExposure) {
    const XAPEL2::Test::CTemporaryFolder folder;
    const auto fnWrite = [&](const char* pName, StandIn::eReferenceKind eKind, double dValue, const char* pSettings) {
        StandIn::ReferenceImage image =
            makeReference(eKind, {StandIn::findPixelFormat("Mono12"), 8, 8}, [&](std::size_t) { return dValue; });
        image.strCamera = pSettings;
        StandIn::writeReferenceFile(folder / pName, image);
        return image;
    };
    fnWrite("l1", StandIn::eReferenceLight, 1000.0, R"({"ExposureTime":1000})");
    fnWrite("l2", StandIn::eReferenceLight, 2000.0, R"({"ExposureTime":2000})");
    fnWrite("l3", StandIn::eReferenceLight, 3000.0, "");
    fnWrite("d2", StandIn::eReferenceDark, 60.0, R"({"ExposureTime":2000})");
    const auto dark = fnWrite("d1", StandIn::eReferenceDark, 50.0, R"({"ExposureTime":1000})");
    const std::vector<LightLevel> vecLevels =
        readLevels({folder / "l1", folder / "d2", folder / "l2", folder / "l3"}, dark, "d1");
    ASSERT_EQ(vecLevels.size(), 3U);
    const PhotonTransfer transfer = photonTransfer(vecLevels);
    EXPECT_EQ(transfer.vecDarks, (std::vector<std::string>{"d1", folder / "d2", "d1"}));
    EXPECT_TRUE(transfer.vecOtherExposure.empty());
    // Without the second dark one the first stands in, and that is told.
    const PhotonTransfer lacking =
        photonTransfer(readLevels({folder / "l1", folder / "l2", folder / "l3"}, dark, "d1"));
    EXPECT_EQ(lacking.vecOtherExposure, std::vector<std::string>{folder / "l2"});
    EXPECT_EQ(judgeLevels(lacking).back().strId, "other-exposure");
    EXPECT_THAT(describe(lacking, *dark.layout.pFormat), HasSubstr(folder / "l2" + ", dark d1\n"));
    EXPECT_THROW(readLevels({folder / "d2"}, dark, "d1"), CUsageError);
    EXPECT_EQ(vecLevels[0].dark.vecSamples[0], 50.0F);
    EXPECT_EQ(vecLevels[1].dark.vecSamples[0], 60.0F);
    EXPECT_EQ(vecLevels[2].dark.vecSamples[0], 50.0F);
}

// Files of two pages each, beside one that is no image.
TEST(PhotonTransfer, FolderGivesEveryPageOfItsImageFiles) {
    const XAPEL2::Test::CTemporaryFolder folder;
    const std::vector<uint16_t> vecPages[] = {std::vector<uint16_t>(64, 100), std::vector<uint16_t>(64, 104)};
    StandIn::TiffImage image;
    image.nWidth = image.nHeight = 8;
    image.nBits = 16;
    image.uLargest = 4095;
    const auto fnWrite = [&](const std::string& strName) {
        StandIn::CSafeFile file(folder / strName, StandIn::eSaveQuick);
        StandIn::writeTiff(file.get(), {{image, vecPages[0].data()}, {image, vecPages[1].data()}});
        file.finish();
    };
    StandIn::saveFile(folder / "LICENSE.txt", "no image");
    const auto dark = makeReference(StandIn::eReferenceDark, {StandIn::findPixelFormat("Mono12"), 8, 8},
                                    [](std::size_t) { return 50.0; });
    for (const uint64_t nFrames : {2U, 4U}) {
        fnWrite(std::to_string(nFrames) + ".tif");
        const std::vector<LightLevel> vecRead = readLevels({std::string(folder / "")}, dark, "dark");
        ASSERT_EQ(vecRead.size(), 1U);
        EXPECT_EQ(vecRead[0].light.nFrames, nFrames);
        EXPECT_EQ(vecRead[0].light.vecSamples[0], 102.0F);
    }
}

// 100,000 samples of 8 frames at each of seven levels tell K to 0.1 %.
TEST(PhotonTransfer, SimulatedLevelsGiveTheGainOfTheModel) {
    const XAPEL2::Test::CTemporaryFolder folder;
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 320, 240});
    constexpr uint64_t FRAMES = 8;
    const auto fnStack = [&](StandIn::eScene eWhat, uint64_t iExposureUs) {
        camera.settings.iExposureUs = iExposureUs;
        CFrameStack stack(camera.layout);
        for (uint64_t i = 0; i < FRAMES; ++i) {
            Frame frame = camera.unpacked(camera.image(eWhat, i));
            frame.strName = std::to_string(i);
            stack.add(frame);
            if (iExposureUs == 8000 && eWhat == StandIn::eSceneLight) {
                writeFrame(std::string(folder / ""), frame);
            }
        }
        return stack.mean();
    };
    std::vector<LightLevel> vecLevels;
    for (const uint64_t iExposureUs : {1000U, 2500U, 4000U, 6000U, 8000U, 10000U, 12000U, 16000U}) {
        vecLevels.push_back({std::to_string(iExposureUs), fnStack(StandIn::eSceneLight, iExposureUs),
                             fnStack(StandIn::eSceneDark, iExposureUs)});
    }
    const TransferLine line = photonTransfer(vecLevels).vecClasses[0];
    EXPECT_NEAR(line.dGain / camera.sensor.model().systemGain(camera.settings), 1.0, 0.003);
    EXPECT_LT(line.dUncertainty / line.dGain, 0.002);
    EXPECT_LT(std::abs(line.dGain - 0.3), 3.0 * line.dUncertainty);

    // The same frames from a folder.
    StandIn::ReferenceImage dark;
    dark.layout = camera.layout;
    dark.nImages = FRAMES;
    dark.vecSamples = vecLevels[4].dark.vecSamples;
    dark.dTemporalNoise = std::sqrt(vecLevels[4].dark.dTemporalVariance);
    const std::vector<LightLevel> vecRead = readLevels({std::string(folder / "")}, dark, "dark");
    ASSERT_EQ(vecRead.size(), 1U);
    EXPECT_EQ(vecRead[0].light.nFrames, FRAMES);
    EXPECT_EQ(vecRead[0].light.vecSamples, vecLevels[4].light.vecSamples);
    EXPECT_EQ(vecRead[0].light.dTemporalVariance, vecLevels[4].light.dTemporalVariance);
}
