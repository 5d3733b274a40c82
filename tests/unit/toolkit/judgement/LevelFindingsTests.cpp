// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What is said of levels: nothing of honest ones, and each fault by its name.

#include "toolkit/judgement/PhotonTransfer.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Images.h"
#include "TemporaryFolder.h"
#include "toolkit/frames/FrameFile.h"
#include "toolkit/judgement/Steadiness.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;
using ::testing::HasSubstr;

namespace {

/// A setup of the simulated camera, exposures in us.
struct LevelSet {
    const char* pFormat;
    uint64_t nWidth, nHeight, nFrames;
    std::vector<uint64_t> vecExposures;
};

CFrameStack stackOf(SimulatedFrames& rCamera, StandIn::eScene eWhat, uint64_t iExposureUs, uint64_t nFrames) {
    rCamera.settings.iExposureUs = iExposureUs;
    CFrameStack stack(rCamera.layout);
    for (uint64_t i = 0; i < nFrames; ++i) {
        stack.add(rCamera.unpacked(rCamera.image(eWhat, i)));
    }
    return stack;
}

/// Levels as those of folders are.
std::vector<LightLevel> simulatedLevels(const LevelSet& rSet, unsigned nSeed) {
    SimulatedFrames camera({StandIn::findPixelFormat(rSet.pFormat), rSet.nWidth, rSet.nHeight}, nSeed);
    std::vector<LightLevel> vecLevels;
    for (const uint64_t iExposureUs : rSet.vecExposures) {
        const CFrameStack light = stackOf(camera, StandIn::eSceneLight, iExposureUs, rSet.nFrames);
        vecLevels.push_back({std::to_string(iExposureUs), light.mean(),
                             stackOf(camera, StandIn::eSceneDark, iExposureUs, rSet.nFrames).mean()});
        vecLevels.back().vecFindings = judgeLevelSteadiness("", vecLevels.back().light, light.outlyingFrames());
    }
    return vecLevels;
}

std::string ids(const Findings& rFindings) {
    std::string strIds;
    for (const Finding& rFinding : rFindings) {
        strIds += (strIds.empty() ? "" : " ") + rFinding.strId;
    }
    return strIds;
}

}  // namespace

// A hundred cameras each; every level stands in for the pair, too.
TEST(LevelFindings, HonestLevelsAreNotBlamed) {
    const LevelSet aSets[] = {
        {"Mono12", 32, 24, 4, {100, 500, 1000, 2500, 4000, 6000, 8000, 16000}},
        {"Mono12", 8, 6, 3, {100, 500, 1000, 2500, 4000, 6000, 8000}},
        {"Mono8", 64, 48, 8, {100, 500, 1000, 2500, 4000, 6000, 8000}},
        {"BayerRG12", 32, 24, 2, {500, 1000, 2500, 4000, 6000, 8000}},
    };
    for (const LevelSet& rSet : aSets) {
        for (unsigned nSeed = 1; nSeed <= 100; ++nSeed) {
            const std::vector<LightLevel> vecLevels = simulatedLevels(rSet, nSeed);
            PhotonTransfer transfer = photonTransfer(vecLevels);
            for (const LightLevel& rLevel : vecLevels) {
                transfer.vecPair = pairPoints(rLevel.dark, rLevel.light);
                EXPECT_EQ(describe(judgeLevels(transfer)), "") << rSet.pFormat << ", seed " << nSeed;
            }
        }
    }
}

TEST(LevelFindings, EachFaultIsToldByItsName) {
    const LevelSet set{"Mono12", 128, 96, 8, {1000, 2500, 4000, 6000, 8000}};
    const std::vector<LightLevel> vecHonest = simulatedLevels(set, 7);
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 128, 96});
    // Frames of two kinds by turns.
    const auto fnMixed = [&](uint64_t iFirstUs, StandIn::eScene eSecond, uint64_t iSecondUs) {
        CFrameStack stack(camera.layout);
        for (uint64_t i = 0; i < set.nFrames; ++i) {
            camera.settings.iExposureUs = i % 2 == 0 ? iFirstUs : iSecondUs;
            stack.add(camera.unpacked(camera.image(i % 2 == 0 ? StandIn::eSceneLight : eSecond, i)));
        }
        return stack.mean();
    };
    const auto fnNoisier = [](LightLevel& rLevel, double dFactor) { rLevel.light.vecClassVariance[0] *= dFactor; };
    using Levels = std::vector<LightLevel>;
    const struct {
        const char* pWhat;
        std::function<void(Levels&)> fnChange;
        const char *pIds, *pSays;
    } aCases[] = {
        {"honest", [](Levels&) {}, "", ""},
        {"a copy beside five", [](Levels& r) { r.push_back(r[1]); }, "same-level", "2500 holds the frames of 2500"},
        {"one five times", [](Levels& r) { r = Levels(5, r[2]); }, "same-level few-levels", "Of 5 levels 4 are there"},
        {"one exposure twice", [&](Levels& r) { r[4].light = stackOf(camera, StandIn::eSceneLight, 6010, 8).mean(); },
         "few-levels", "only 4 are"},
        {"half dark", [&](Levels& r) { r[3].light = fnMixed(6000, StandIn::eSceneDark, 6000); }, "levels-scatter",
         "6000 by itself gives"},
        {"half dark, the brightest", [&](Levels& r) { r[4].light = fnMixed(8000, StandIn::eSceneDark, 8000); },
         "few-levels levels-scatter", "8000 by itself gives"},
        {"much too noisy, in the middle", [&](Levels& r) { fnNoisier(r[2], 6.0); }, "few-levels levels-scatter",
         "4000 by itself gives"},
        {"a little too noisy", [&](Levels& r) { fnNoisier(r[3], 1.12); }, "levels-scatter", "6000 by itself gives"},
        {"the same by less than 5 %", [&](Levels& r) { fnNoisier(r[3], 1.042); }, "", ""},
        {"too quiet", [&](Levels& r) { fnNoisier(r[1], 0.8); }, "levels-scatter", "2500 by itself gives"},
    };
    for (const auto& rCase : aCases) {
        Levels vecLevels = vecHonest;
        rCase.fnChange(vecLevels);
        const Findings vecFindings = judgeLevels(photonTransfer(vecLevels));
        EXPECT_EQ(ids(vecFindings), rCase.pIds) << rCase.pWhat << '\n' << describe(vecFindings);
        EXPECT_THAT(describe(vecFindings), HasSubstr(rCase.pSays)) << rCase.pWhat;
    }
    // A level that is there again makes nothing surer.
    const Levels vecOne(1, vecHonest[2]), vecFive(5, vecHonest[2]);
    const TransferLine one = photonTransfer(vecOne).vecClasses[0], five = photonTransfer(vecFive).vecClasses[0];
    EXPECT_EQ(one.dUncertainty, five.dUncertainty);
    EXPECT_EQ(one.dGain, five.dGain);
}

TEST(LevelFindings, GainOfThePairIsComparedWithThatOfTheLine) {
    const LevelSet set{"BayerRG12", 256, 128, 8, {1000, 2500, 4000, 6000, 8000}};
    PhotonTransfer transfer = photonTransfer(simulatedLevels(set, 7));
    const LightLevel pair = simulatedLevels({"BayerRG12", 256, 128, 8, {5000}}, 7)[0];
    const struct {
        const char* pWhat;
        double dFactor;  // of the variance in the last colour
        double dSaturated;
        uint64_t nFrames;
        bool bTold;
    } aCases[] = {
        {"the same", 1.0, 0.0, 8, false},    {"noisier", 1.15, 0.0, 8, true},
        {"quieter", 0.85, 0.0, 8, true},     {"within 5 %", 1.045, 0.0, 8, false},
        {"saturated", 1.15, 0.01, 8, false}, {"a single frame", 1.15, 0.0, 1, false},
    };
    for (const auto& rCase : aCases) {
        LightLevel changed = pair;
        changed.light.vecClassVariance[3] *= rCase.dFactor;
        changed.light.dSaturatedShare = rCase.dSaturated;
        changed.light.nFrames = rCase.nFrames;
        transfer.vecPair = pairPoints(changed.dark, changed.light);
        const Findings vecFindings = judgeLevels(transfer);
        EXPECT_EQ(ids(vecFindings), rCase.bTold ? "other-conversion-gain" : "") << rCase.pWhat;
    }
    // Of few samples four standard deviations are more than 5 %.
    transfer.vecPair = pairPoints(pair.dark, pair.light);
    transfer.vecPair[0].dVariance *= 1.15;
    transfer.vecPair[0].dUncertainty = 0.04 * transfer.vecPair[0].dVariance;
    EXPECT_EQ(ids(judgeLevels(transfer)), "");
}

TEST(LevelFindings, UnsteadyFramesOfALevelAreTold) {
    const XAPEL2::Test::CTemporaryFolder folder;
    SimulatedFrames camera({StandIn::findPixelFormat("Mono12"), 64, 48});
    StandIn::ReferenceImage dark = makeReference(StandIn::eReferenceDark, camera.layout, [](auto) { return 64.0; });
    const auto fnFound = [&] {
        return judgeLevels(photonTransfer(readLevels({std::string(folder / "level")}, dark, "")));
    };
    const struct {
        const char* pWhat;
        std::vector<uint64_t> vecExposures;  // of the frames, us
        const char *pIds, *pSays;
    } aFolders[] = {
        {"steady", {5000, 5000, 5000, 5000, 5000, 5000}, "few-levels", ""},
        {"one brighter", {5000, 5000, 5000, 5500, 5000, 5000}, "few-levels drift outlying-frames", "frame 4, whose"},
        {"one a little brighter", {5000, 5000, 5000, 5030, 5000, 5000}, "few-levels", ""},
        {"drifting", {5000, 5040, 5080, 5120, 5160, 5200}, "few-levels drift", "level: The mean of a frame went"},
        {"two", {5000, 5500}, "few-levels drift", ""},
    };
    for (const auto& rFolder : aFolders) {
        std::filesystem::create_directory(folder / "level");
        for (std::size_t i = 0; i < rFolder.vecExposures.size(); ++i) {
            camera.settings.iExposureUs = rFolder.vecExposures[i];
            Frame frame = camera.unpacked(camera.image(StandIn::eSceneLight, i));
            frame.strName = std::to_string(i);
            writeFrame(folder / "level", frame);
        }
        EXPECT_EQ(ids(fnFound()), rFolder.pIds) << rFolder.pWhat << '\n' << describe(fnFound());
        EXPECT_THAT(describe(fnFound()), HasSubstr(rFolder.pSays)) << rFolder.pWhat;
        std::filesystem::remove_all(folder / "level");
    }

    StandIn::ReferenceImage light =
        makeReference(StandIn::eReferenceLight, camera.layout, [](auto i) { return 1000.0 + static_cast<double>(i); });
    const struct {
        const char* pWhat;
        std::function<void(StandIn::ReferenceImage&)> fnChange;
        const char* pIds;
    } aReferences[] = {
        {"steady", [](auto&) {}, "few-levels"},
        {"a note",
         [](auto& r) {
             r.means = {2000.0, 2010.0, 2000.0, 2010.0};
         },
         "few-levels"},
        {"drift",
         [](auto& r) {
             r.means = {2000.0, 2100.0, 2000.0, 2100.0};
         },
         "few-levels drift"},
        {"outliers",
         [](auto& r) {
             r.outliers.nFrames = 1;
             r.outliers.vecPlaces = {{StandIn::eOutlierBrightness, 3}};
         },
         "few-levels outlying-frames"},
    };
    for (const auto& rReference : aReferences) {
        StandIn::ReferenceImage changed = light;
        rReference.fnChange(changed);
        StandIn::writeReferenceFile(folder / "level", changed);
        EXPECT_EQ(ids(fnFound()), rReference.pIds) << rReference.pWhat << '\n' << describe(fnFound());
    }
}
