// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration from outside: what it wrote is compared with the reference formula and with the noise that the
// laws of the sensor leave.

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DemoRun.h"
#include "SensorModel.h"
#include "TemporaryFolder.h"

namespace fs = std::filesystem;
using namespace XAPEL2::Test;
using ::testing::HasSubstr;

namespace {

constexpr double REFERENCE_FRAMES = 16.0;

// Every pixel of every corrected frame: within 1 DN up to 12 bits, within 1 + G/2 DN above.
void expectFormula(const DemoRun& rRun) {
    const CFormula Formula(rRun);
    ASSERT_FALSE(rRun.aPairs.empty());
    EXPECT_EQ(rRun.Figures.at("frames_corrected"), rRun.aPairs.size());
    for (const FramePair& rPair : rRun.aPairs) {
        std::size_t nWrong = 0;
        double fWorst = 0.0;
        for (std::size_t i = 0; i < Formula.samples(); ++i) {
            const double fAllowed = rPair.Raw.uFullScale <= 4095 ? 1.0 : 1.0 + Formula.gain(i) / 2.0;
            const double fError = rPair.Corrected.aSamples[i] - Formula.corrected(i, rPair.Raw.aSamples[i]);
            nWrong += std::abs(fError) > fAllowed ? 1U : 0U;
            fWorst = std::max(fWorst, std::abs(fError));
        }
        EXPECT_EQ(nWrong, 0U) << rPair.strName << ": " << fWorst << " DN off at worst";
    }
}

// figures.json says what its files say.
void expectFigures(const DemoRun& rRun) {
    const CFormula Formula(rRun);
    const FramePair& rFirst = rRun.aPairs.at(0);
    EXPECT_EQ(rRun.Figures.at("width"), rFirst.Raw.nWidth);
    EXPECT_EQ(rRun.Figures.at("height"), rFirst.Raw.nHeight);
    const struct {
        const char* pKey;
        bool bBefore;
        std::size_t nSide;
    } aRows[] = {{"blocks_before_percent", true, 16},
                 {"blocks_after_percent", false, 16},
                 {"pixels_before_percent", true, 1},
                 {"pixels_after_percent", false, 1}};
    for (const auto& rRow : aRows) {
        const Image<uint16_t>& rFrame = rRow.bBefore ? rFirst.Raw : rFirst.Corrected;
        EXPECT_NEAR(rRun.Figures.at(rRow.pKey).get<double>(),
                    unevennessPercent(Formula, rFrame, rRow.bBefore, rRow.nSide), 1e-6)
            << rRow.pKey;
    }
}

// What is left of an even frame after correction is its own shot noise and that of the light reference, read noise
// and rounding of both, and the rounding of the result (EMVA 1288 camera model; the dark reference drops out to first
// order). The mean over nSamples independent samples lowers it by their root.
double predictedPercent(const DemoRun& rRun, double fSystemGain, double fOffset, double nSamples) {
    const XAPEL2::StandIn::SensorModel Model;
    const CFormula Formula(rRun);
    double fVariance = 0.0;
    for (std::size_t i = 0; i < Formula.samples(); ++i) {
        const double fSignal = Formula.signal(i);
        const double fElectrons = (fSignal + Formula.dark(i) - fOffset) / fSystemGain;
        const double fNoise =
            fSystemGain * fSystemGain * (fElectrons + Model.fReadNoise * Model.fReadNoise) + 1.0 / 12.0;
        const double fTarget = Formula.target(Formula.classOf(i));
        fVariance += (1.0 + 1.0 / REFERENCE_FRAMES) * fNoise / (fSignal * fSignal) + 1.0 / (12.0 * fTarget * fTarget);
    }
    return 100.0 * std::sqrt(fVariance / static_cast<double>(Formula.samples()) / nSamples);
}

std::set<std::string> namesIn(const fs::path& rFolder) {
    std::set<std::string> Names;
    for (const fs::directory_entry& rEntry : fs::directory_iterator(rFolder)) {
        Names.insert(rEntry.path().filename());
    }
    return Names;
}

// The reference is the mean of the recorded frames: those of the prefix in the order of their names, all but the last
// nLeft.
void expectMeanOfFrames(const Image<float>& rReference, const fs::path& rFolder, const std::string& strPrefix,
                        std::size_t nLeft) {
    std::vector<fs::path> aFiles;
    for (const std::string& rName : namesIn(rFolder)) {
        if (rName.rfind(strPrefix, 0) == 0) {
            aFiles.push_back(rFolder / rName);
        }
    }
    ASSERT_GT(aFiles.size(), nLeft);
    aFiles.resize(aFiles.size() - nLeft);
    std::vector<double> afMean(rReference.aSamples.size());
    for (const fs::path& rFile : aFiles) {
        const Image<uint16_t> Frame = readPixmap(rFile);
        ASSERT_EQ(Frame.aSamples.size(), afMean.size());
        for (std::size_t i = 0; i < afMean.size(); ++i) {
            afMean[i] += Frame.aSamples[i] / static_cast<double>(aFiles.size());
        }
    }
    double fWorst = 0.0;
    for (std::size_t i = 0; i < afMean.size(); ++i) {
        fWorst = std::max(fWorst, std::abs(afMean[i] - rReference.aSamples[i]));
    }
    EXPECT_LT(fWorst, 0.01) << strPrefix << " reference, DN";
}

// A folder of flat 8-bit frames of 32 x 32 pixels, brighter to the right.
void writeFrames(const fs::path& rFolder, const std::vector<std::string>& rNames) {
    Image<uint16_t> Ramp{32, 32, 1, 255, {}};
    for (unsigned i = 0; i < 32 * 32; ++i) {
        Ramp.aSamples.push_back(static_cast<uint16_t>(60 + 3 * (i % 32)));
    }
    fs::create_directories(rFolder);
    for (const std::string& rName : rNames) {
        writePgm(rFolder / (rName + ".pgm"), Ramp);
    }
}

}  // namespace

TEST(Demo, SimulatedCameraIsFlatToItsNoise) {
    const CTemporaryFolder Out;
    const DemoRun Run = runDemo({}, Out.path());
    expectFormula(Run);
    expectFigures(Run);
    EXPECT_EQ(Run.aPairs.size(), 8U);

    const CFormula Formula(Run);
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_THAT(Run.aPairs.at(i).strName, HasSubstr("even_"));
        double fMean = 0.0;
        for (const uint16_t uSample : Run.aPairs[i].Corrected.aSamples) {
            fMean += uSample / static_cast<double>(Formula.samples());
        }
        EXPECT_NEAR(fMean / Formula.target(0), 1.0, 0.002) << Run.aPairs[i].strName;
    }
    ASSERT_EQ(Run.Figures.at("pixel_format"), "Mono12");
    const XAPEL2::StandIn::SensorModel Model;
    const double fPixels = predictedPercent(Run, Model.fGain12, Model.fOffset12, 1.0);
    const double fBlocks = predictedPercent(Run, Model.fGain12, Model.fOffset12, 256.0);
    // Half the reference frames would raise it by 3 %.
    EXPECT_NEAR(Run.Figures.at("pixels_after_percent").get<double>() / fPixels, 1.0, 0.01);
    EXPECT_NEAR(Run.Figures.at("blocks_after_percent").get<double>() / fBlocks, 1.0, 0.1);

    const Image<uint16_t> Before = readPng(Out.path() / "before.png");
    const Image<uint16_t> After = readPng(Out.path() / "after.png");
    EXPECT_GT(unevennessPercent(Formula, Before, false, 16), 4.0 * unevennessPercent(Formula, After, false, 16));
    EXPECT_EQ(readPng(Out.path() / "profile.png").nWidth, 1000U);
}

TEST(Demo, EveryKindOfFormatFollowsTheFormula) {
    for (const char* pCamera : {"sim:2?width=70&height=50&format=Mono8", "sim:3?width=64&height=48&format=BayerRG12p",
                                "sim:4?width=64&height=48&format=RGB8", "sim:5?width=67&height=33&format=Mono16"}) {
        SCOPED_TRACE(pCamera);
        const CTemporaryFolder Out;
        const DemoRun Run = runDemo({"--camera", pCamera}, Out.path());
        expectFormula(Run);
        expectFigures(Run);
    }
}

TEST(Demo, RecordedFramesTakeTheSameRoad) {
    const char* pFrames = std::getenv("XAPEL2_FRAMES");
    if (pFrames == nullptr) {
        GTEST_SKIP() << "XAPEL2_FRAMES names no folder of recorded frames";
    }
    const fs::path Frames = fs::path(pFrames) / "ring_16bit";
    const CTemporaryFolder Out;
    const DemoRun Run = runDemo({"--frames", Frames}, Out.path());
    expectFormula(Run);
    expectFigures(Run);
    expectMeanOfFrames(Run.Dark, Frames, "dark_", 0);
    expectMeanOfFrames(Run.Light, Frames, "light_", 1);
    EXPECT_EQ(Run.aPairs.size(), 7U);
    EXPECT_EQ(Run.aPairs.at(0).strName, "light_0175.pgm");
    for (const FramePair& rPair : Run.aPairs) {
        EXPECT_EQ(rPair.Raw.aSamples, readPixmap(Frames / rPair.strName).aSamples) << rPair.strName;
    }
    EXPECT_GT(Run.Figures.at("blocks_before_percent").get<double>(), 12.0);
    EXPECT_LT(Run.Figures.at("blocks_before_percent").get<double>(), 16.0);
    EXPECT_LT(Run.Figures.at("blocks_after_percent").get<double>(), 3.5);
}

TEST(Demo, NewRunReplacesItsOwnFilesOnly) {
    const CTemporaryFolder Folder;
    const fs::path Frames = Folder.path() / "frames";
    const fs::path Out = Folder.path() / "out";
    runDemo({"--camera", "sim:1?width=32&height=32"}, Out);
    EXPECT_TRUE(fs::exists(Out / "reference-dark.tif"));
    std::ofstream(Out / "raw" / "mine.pgm") << "mine";

    writeFrames(Frames, {"light_1", "light_2", "light_3", "scene_1"});
    const DemoRun Run = runDemo({"--frames", Frames}, Out);
    expectFormula(Run);
    EXPECT_THAT(Run.Program.strOut, HasSubstr("without a dark reference"));
    EXPECT_EQ(Run.Figures.at("dark_frames"), 0);
    EXPECT_FALSE(fs::exists(Out / "reference-dark.tif"));
    EXPECT_EQ(namesIn(Out / "raw"), (std::set<std::string>{"light_3.pgm", "scene_1.pgm", "mine.pgm"}));
    EXPECT_EQ(namesIn(Out / "corrected"), (std::set<std::string>{"light_3.pgm", "scene_1.pgm"}));
}

TEST(Demo, UnusableFramesAreNamedAndLeaveTheOutputAlone) {
    const CTemporaryFolder Folder;
    const fs::path Truncated = Folder.path() / "truncated";
    writeFrames(Truncated, {"dark_1", "light_1", "light_2", "light_3"});
    fs::resize_file(Truncated / "light_2.pgm", 500);
    const fs::path OtherSize = Folder.path() / "othersize";
    writeFrames(OtherSize, {"light_1", "light_2"});
    writePgm(OtherSize / "scene_7.pgm", {2, 1, 1, 255, {1, 2}});
    const fs::path NoLight = Folder.path() / "nolight";
    writeFrames(NoLight, {"dark_1", "light_1"});

    const struct {
        fs::path Frames;
        const char* pNamed;
    } aRows[] = {{Truncated, "light_2.pgm"},
                 {OtherSize, "scene_7.pgm"},
                 {NoLight, "light_*"},
                 {Folder.path() / "missing", "missing"}};
    // Somebody's own file of a name that the demonstration uses, too.
    const fs::path Out = Folder.path() / "out";
    fs::create_directories(Out);
    std::ofstream(Out / "reference-light.tif") << "mine";
    for (const auto& rRow : aRows) {
        const ProgramResult Result = runShading({"demo", "--frames", rRow.Frames, "--out", Out});
        EXPECT_EQ(Result.iExit, 3) << rRow.pNamed;
        EXPECT_THAT(Result.strErr, HasSubstr(rRow.pNamed));
        ASSERT_TRUE(fs::exists(Out / "reference-light.tif")) << rRow.pNamed;
        EXPECT_EQ(fs::file_size(Out / "reference-light.tif"), 4U) << rRow.pNamed;
    }
    std::ofstream(Folder.path() / "file") << "no folder";
    const ProgramResult Result = runShading({"demo", "--out", Folder.path() / "file"});
    EXPECT_EQ(Result.iExit, 3);
    EXPECT_THAT(Result.strErr, HasSubstr((Folder.path() / "file").string()));
}

TEST(Demo, WrongUseIsTold) {
    const std::vector<std::vector<std::string>> aaUses = {
        {}, {"show"}, {"demo", "--speed"}, {"demo", "--out"}, {"demo", "--camera", "sim", "--frames", "x"}};
    for (const std::vector<std::string>& rUse : aaUses) {
        const ProgramResult Result = runShading(rUse);
        EXPECT_EQ(Result.iExit, 2) << ::testing::PrintToString(rUse);
        EXPECT_FALSE(Result.strErr.empty());
    }
}
