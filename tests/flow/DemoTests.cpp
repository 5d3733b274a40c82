// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration from outside: what it wrote is compared with the reference formula and with the noise that the
// laws of the sensor leave.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>

#include <nlohmann/json.hpp>

#include "Program.h"
#include "TemporaryFolder.h"
#include "TestImages.h"
#include "standin/cameras/sim/SensorModel.h"
#include "xapel2_standin/ReferenceFile.h"

namespace fs = std::filesystem;
using namespace XAPEL2::StandIn;
using namespace XAPEL2::Test;
using ::testing::HasSubstr;

namespace {

typedef std::vector<double> Values;

struct Frame {
    std::string strName;
    Values Raw, Corrected;
};

struct DemoRun {
    ProgramResult Program;
    nlohmann::json Figures;
    ImageLayout Layout;
    Values Dark, Signal, Target;  // of the formula: D (zeros without a dark reference), L - D, and its class's mean
    std::vector<Frame> Frames;
};

ProgramResult runShading(const std::vector<std::string>& rArguments) {
    return runProgram(XAPEL2_SHADING_PROGRAM, rArguments);
}

// The samples of a binary pixmap, which is of this size.
Values readPixmap(const fs::path& rFile, const ImageLayout& rLayout) {
    std::ifstream In(rFile, std::ios::binary);
    std::string strMagic;
    std::size_t nWidth = 0, nHeight = 0, nFullScale = 0;
    In >> strMagic >> nWidth >> nHeight >> nFullScale;
    In.get();  // the one separator
    EXPECT_EQ(strMagic, rLayout.pFormat->nChannels == 3 ? "P6" : "P5");
    EXPECT_TRUE(nWidth == rLayout.nWidth && nHeight == rLayout.nHeight) << rFile;
    EXPECT_EQ(nFullScale, rLayout.pFormat->fullScale());
    Values Result(rLayout.samples());
    for (double& rSample : Result) {
        const int iHigh = nFullScale > 255 ? In.get() : 0;
        rSample = iHigh << 8 | In.get();
    }
    EXPECT_TRUE(In.good() && In.get() == std::ifstream::traits_type::eof()) << rFile << " is of another length";
    return Result;
}

Values readGreyPng(const fs::path& rFile) {
    png_image Png{};
    Png.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&Png, rFile.c_str()), 0) << rFile;
    Png.format = PNG_FORMAT_GRAY;
    std::vector<png_byte> aBytes(PNG_IMAGE_SIZE(Png));
    EXPECT_NE(png_image_finish_read(&Png, nullptr, aBytes.data(), 0, nullptr), 0) << rFile;
    return {aBytes.begin(), aBytes.end()};
}

// For each sample the mean over its colour class.
Values classMeans(const ImageLayout& rLayout, const Values& rValues) {
    double afSum[4] = {}, afCount[4] = {};
    for (std::size_t i = 0; i < rValues.size(); ++i) {
        afSum[classOf(rLayout, i)] += rValues[i];
        afCount[classOf(rLayout, i)] += 1.0;
    }
    Values Means(rValues.size());
    for (std::size_t i = 0; i < Means.size(); ++i) {
        Means[i] = afSum[classOf(rLayout, i)] / afCount[classOf(rLayout, i)];
    }
    return Means;
}

// Standard deviation over the mean, after every colour class has been divided by its mean.
double spreadPercent(const ImageLayout& rLayout, const Values& rValues) {
    const Values Means = classMeans(rLayout, rValues);
    double fSquare = 0.0;
    for (std::size_t i = 0; i < Means.size(); ++i) {
        fSquare += std::pow(rValues[i] / Means[i] - 1.0, 2) / static_cast<double>(Means.size());
    }
    return 100.0 * std::sqrt(fSquare);
}

Values minus(Values Result, const Values& rOther) {
    std::transform(Result.begin(), Result.end(), rOther.begin(), Result.begin(), std::minus<>());
    return Result;
}

// Runs "demo" into rOut and reads what it wrote.
DemoRun runDemo(std::vector<std::string> astrArguments, const fs::path& rOut) {
    astrArguments.insert(astrArguments.begin(), "demo");
    astrArguments.insert(astrArguments.end(), {"--out", rOut});
    DemoRun Run;
    Run.Program = runShading(astrArguments);
    if (Run.Program.iExit != 0) {
        throw std::runtime_error("demo ended with " + std::to_string(Run.Program.iExit) + ": " + Run.Program.strErr);
    }
    std::ifstream(rOut / "figures.json") >> Run.Figures;
    const ReferenceImage Light = readReferenceFile(rOut / "reference-light.tif");
    Run.Layout = Light.sLayout;
    EXPECT_EQ(Run.Figures.at("pixel_format"), Run.Layout.pFormat->pName);
    EXPECT_EQ(Run.Figures.at("width"), Run.Layout.nWidth);
    EXPECT_EQ(Run.Figures.at("height"), Run.Layout.nHeight);
    EXPECT_EQ(Run.Figures.at("light_frames"), Light.nImages);
    Run.Dark.resize(Light.vSamples.size());
    if (fs::exists(rOut / "reference-dark.tif")) {
        const ReferenceImage Dark = readReferenceFile(rOut / "reference-dark.tif");
        EXPECT_EQ(Run.Figures.at("dark_frames"), Dark.nImages);
        Run.Dark.assign(Dark.vSamples.begin(), Dark.vSamples.end());
    }
    Run.Signal = minus({Light.vSamples.begin(), Light.vSamples.end()}, Run.Dark);
    Run.Target = classMeans(Run.Layout, Run.Signal);
    for (const nlohmann::json& rName : Run.Figures.at("frames")) {
        const auto strName = rName.get<std::string>();
        Run.Frames.push_back({strName, readPixmap(rOut / "raw" / strName, Run.Layout),
                              readPixmap(rOut / "corrected" / strName, Run.Layout)});
    }
    return Run;
}

// Every pixel of every corrected frame: within 1 DN up to 12 bits, within 1 + G/2 DN above. And the figures of pixels.
void expectFormula(const DemoRun& rRun) {
    ASSERT_FALSE(rRun.Frames.empty());
    EXPECT_EQ(rRun.Figures.at("frames_corrected"), rRun.Frames.size());
    const double fFullScale = rRun.Layout.pFormat->fullScale();
    for (const Frame& rFrame : rRun.Frames) {
        std::size_t nWrong = 0;
        double fWorst = 0.0;
        for (std::size_t i = 0; i < rRun.Signal.size(); ++i) {
            const double fSignal = rRun.Signal[i];
            const double fGain = fSignal > 0.0 ? std::clamp(rRun.Target[i] / fSignal, 0.0, 16.0) : 1.0;
            const double fExact = std::clamp(std::round((rFrame.Raw[i] - rRun.Dark[i]) * fGain), 0.0, fFullScale);
            const double fError = std::abs(rFrame.Corrected[i] - (rFrame.Raw[i] >= fFullScale ? fFullScale : fExact));
            nWrong += fError > (fFullScale <= 4095.0 ? 1.0 : 1.0 + fGain / 2.0) ? 1U : 0U;
            fWorst = std::max(fWorst, fError);
        }
        EXPECT_EQ(nWrong, 0U) << rFrame.strName << ": " << fWorst << " DN off at worst";
    }
    const Frame& rFirst = rRun.Frames[0];
    EXPECT_NEAR(rRun.Figures.at("pixels_before_percent").get<double>(),
                spreadPercent(rRun.Layout, minus(rFirst.Raw, rRun.Dark)), 1e-6);
    EXPECT_NEAR(rRun.Figures.at("pixels_after_percent").get<double>(), spreadPercent(rRun.Layout, rFirst.Corrected),
                1e-6);
}

// What is left of an even frame after correction is its own shot noise and that of the light reference, read noise
// and rounding of both, and the rounding of the result (EMVA 1288 camera model; the dark reference drops out to first
// order).
double predictedPercent(const DemoRun& rRun) {
    const SensorModel Model;
    const double fReferenceFrames = rRun.Figures.at("light_frames");
    double fVariance = 0.0;
    for (std::size_t i = 0; i < rRun.Signal.size(); ++i) {
        const double fElectrons = (rRun.Signal[i] + rRun.Dark[i] - Model.fOffset12) / Model.fGain12;
        const double fNoise =
            std::pow(Model.fGain12, 2) * (fElectrons + Model.fReadNoise * Model.fReadNoise) + 1.0 / 12.0;
        fVariance += (1.0 + 1.0 / fReferenceFrames) * fNoise / std::pow(rRun.Signal[i], 2) +
                     1.0 / 12.0 / std::pow(rRun.Target[i], 2);
    }
    return 100.0 * std::sqrt(fVariance / static_cast<double>(rRun.Signal.size()));
}

std::set<std::string> namesIn(const fs::path& rFolder) {
    std::set<std::string> Names;
    for (const fs::directory_entry& rEntry : fs::directory_iterator(rFolder)) {
        Names.insert(rEntry.path().filename());
    }
    return Names;
}

// Flat 8-bit frames of nSide x nSide pixels, brighter to the right.
void writeFrames(const fs::path& rFolder, const std::vector<std::string>& rNames, unsigned nSide = 32) {
    fs::create_directories(rFolder);
    std::string strRow;
    for (unsigned i = 0; i < nSide; ++i) {
        strRow += static_cast<char>(60 + 2 * i);
    }
    for (const std::string& rName : rNames) {
        std::ofstream Out(rFolder / (rName + ".pgm"), std::ios::binary);
        Out << "P5\n" << nSide << ' ' << nSide << "\n255\n";
        for (unsigned i = 0; i < nSide; ++i) {
            Out << strRow;
        }
    }
}

}  // namespace

TEST(Demo, SimulatedCameraIsFlatToItsNoise) {
    const CTemporaryFolder Out;
    const DemoRun Run = runDemo({}, Out.path());
    expectFormula(Run);
    EXPECT_EQ(Run.Frames.size(), 8U);
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_THAT(Run.Frames.at(i).strName, HasSubstr("even_"));
        EXPECT_NEAR(classMeans(Run.Layout, Run.Frames[i].Corrected)[0] / Run.Target[0], 1.0, 0.002);
    }
    ASSERT_EQ(Run.Figures.at("pixel_format"), "Mono12");
    EXPECT_EQ(Run.Figures.at("light_frames"), 16);
    // Half the reference frames would raise it by 3 %. A block is the mean of 16 x 16 pixels.
    EXPECT_NEAR(Run.Figures.at("pixels_after_percent").get<double>() / predictedPercent(Run), 1.0, 0.01);
    EXPECT_NEAR(Run.Figures.at("blocks_after_percent").get<double>() * 16.0 / predictedPercent(Run), 1.0, 0.1);
    EXPECT_NEAR(
        Run.Figures.at("blocks_before_percent").get<double>() / Run.Figures.at("pixels_before_percent").get<double>(),
        0.98, 0.02)
        << "nearly all of it is lens and dust";

    EXPECT_GT(spreadPercent(Run.Layout, readGreyPng(Out.path() / "before.png")),
              4.0 * spreadPercent(Run.Layout, readGreyPng(Out.path() / "after.png")));
    EXPECT_THAT(content(Out.path() / "report.html"), HasSubstr("</html>"));
}

TEST(Demo, EveryKindOfFormatFollowsTheFormula) {
    for (const char* pCamera : {"sim:2?width=70&height=50&format=Mono8", "sim:3?width=64&height=48&format=BayerRG12p",
                                "sim:4?width=64&height=48&format=RGB8", "sim:5?width=67&height=33&format=Mono16"}) {
        SCOPED_TRACE(pCamera);
        const CTemporaryFolder Out;
        expectFormula(runDemo({"--camera", pCamera}, Out.path()));
    }
}

TEST(Demo, RecordedFramesTakeTheSameRoad) {
    const char* pFrames = std::getenv("XAPEL2_FRAMES");
    if (pFrames == nullptr) {
        GTEST_SKIP() << "XAPEL2_FRAMES names no folder of recorded frames";
    }
    const fs::path Folder = fs::path(pFrames) / "ring_16bit";
    const CTemporaryFolder Out;
    const DemoRun Run = runDemo({"--frames", Folder}, Out.path());
    expectFormula(Run);
    EXPECT_EQ(Run.Figures.at("dark_frames"), 6);
    EXPECT_EQ(Run.Figures.at("light_frames"), 12);
    EXPECT_EQ(Run.Frames.size(), 10U);
    EXPECT_EQ(Run.Frames.at(0).strName, "light_0169.pgm");
    for (const Frame& rFrame : Run.Frames) {
        EXPECT_EQ(rFrame.Raw, readPixmap(Folder / rFrame.strName, Run.Layout)) << rFrame.strName;
    }
    EXPECT_NEAR(Run.Figures.at("blocks_before_percent").get<double>(), 14.0, 2.0);
    EXPECT_LT(Run.Figures.at("blocks_after_percent").get<double>(), 3.5);
}

TEST(Demo, NewRunReplacesItsOwnFilesOnly) {
    const CTemporaryFolder Folder;
    const fs::path Frames = Folder.path() / "frames";
    const fs::path Out = Folder.path() / "out";
    const ProgramResult Told = runShading({"demo", "--camera", "sim:1?width=32&height=32", "--out", Out, "--json"});
    EXPECT_GT(nlohmann::json::parse(Told.strOut).at("blocks_before_percent"), 0.1) << Told.strErr;
    EXPECT_TRUE(fs::exists(Out / "reference-dark.tif"));
    std::ofstream(Out / "raw" / "mine.pgm") << "mine";

    writeFrames(Frames, {"light_1", "light_2", "light_3", "scene_1"});
    const DemoRun Run = runDemo({"--frames", Frames}, Out);
    expectFormula(Run);
    EXPECT_THAT(Run.Program.strOut, HasSubstr("without a dark reference"));
    EXPECT_EQ(Run.Figures.at("dark_frames"), 0);
    EXPECT_FALSE(fs::exists(Out / "reference-dark.tif"));
    EXPECT_EQ(namesIn(Out / "raw"), (std::set<std::string>{"light_2.pgm", "light_3.pgm", "scene_1.pgm", "mine.pgm"}));
    EXPECT_EQ(namesIn(Out / "corrected"), (std::set<std::string>{"light_2.pgm", "light_3.pgm", "scene_1.pgm"}));
    // Its own output would go before it is read.
    EXPECT_EQ(runShading({"demo", "--frames", Out / "raw", "--out", Out}).iExit, 2);
    EXPECT_EQ(namesIn(Out / "raw").size(), 4U);
    EXPECT_EQ(runShading({"demo", "--frames", Frames, "--out", Frames}).iExit, 0) << "beside them is well";
}

TEST(Demo, ReplacesWhatIsNotItsOwnOnRequestOnly) {
    const CTemporaryFolder Folder;
    const fs::path Out = Folder.path() / "out";
    const std::vector<std::string> vecDemo = {"demo", "--camera", "sim:1?width=32&height=32", "--out", Out};
    for (const char* pMine : {"before.png", "figures.json", "raw/even_0016.pgm"}) {
        fs::remove_all(Out);
        fs::create_directories(Out / "raw");
        std::ofstream(Out / pMine) << "{}";
        const ProgramResult Result = runShading(vecDemo);
        EXPECT_EQ(Result.iExit, 2) << pMine;
        EXPECT_THAT(Result.strErr, ::testing::AllOf(HasSubstr(pMine), HasSubstr("--overwrite")));
        EXPECT_EQ(content(Out / pMine), "{}");
        EXPECT_FALSE(fs::exists(Out / "reference-dark.tif")) << "one that fails leaves nothing";
        std::vector<std::string> vecInsist = vecDemo;
        vecInsist.emplace_back("--overwrite");
        EXPECT_EQ(runShading(vecInsist).iExit, 0);
        EXPECT_NE(content(Out / pMine), "{}");
        EXPECT_EQ(runShading(vecDemo).iExit, 0) << "now they are its own";
    }
}

TEST(Demo, FigureThatASmallImageDoesNotHaveIsLeftOutWithAWord) {
    const CTemporaryFolder Out;
    const DemoRun Run = runDemo({"--camera", "sim:2?width=20&height=10"}, Out.path());
    EXPECT_TRUE(Run.Figures.at("blocks_before_percent").is_null());
    EXPECT_TRUE(Run.Figures.at("pixels_before_percent").is_number());
    EXPECT_THAT(Run.Program.strOut, HasSubstr("16 x 16 blocks: unknown"));
    EXPECT_THAT(Run.Program.strOut, ::testing::Not(HasSubstr("nan")));
}

TEST(Demo, UnusableFramesAreNamedAndLeaveTheOutputAlone) {
    const CTemporaryFolder Folder;
    const fs::path Root = Folder.path();
    writeFrames(Root / "truncated", {"dark_1", "light_1", "light_2", "light_3"});
    fs::resize_file(Root / "truncated" / "light_2.pgm", 500);
    writeFrames(Root / "othersize", {"light_1", "light_2"});
    writeFrames(Root / "othersize", {"scene_7"}, 2);
    writeFrames(Root / "nolight", {"dark_1", "light_1"});
    // Somebody's own file of a name that the demonstration uses, too.
    const fs::path Out = Root / "out";
    fs::create_directories(Out);
    std::ofstream(Out / "reference-light.tif") << "mine";
    const std::pair<const char*, const char*> aRows[] = {
        {"truncated", "light_2.pgm"}, {"othersize", "scene_7.pgm"}, {"nolight", "light_*"}, {"missing", "missing"}};
    for (const auto& [pFrames, pNamed] : aRows) {
        const ProgramResult Result = runShading({"demo", "--frames", Root / pFrames, "--out", Out});
        EXPECT_EQ(Result.iExit, 3) << pFrames;
        EXPECT_THAT(Result.strErr, HasSubstr(pNamed));
        EXPECT_EQ(namesIn(Out), std::set<std::string>{"reference-light.tif"}) << pFrames;
        EXPECT_EQ(fs::file_size(Out / "reference-light.tif"), 4U) << pFrames;
    }
    const fs::path NoFolder = Root / "file";
    std::ofstream{NoFolder} << "mine";
    const ProgramResult Result = runShading({"demo", "--out", NoFolder});
    EXPECT_EQ(Result.iExit, 3);
    EXPECT_THAT(Result.strErr, HasSubstr(NoFolder.string()));
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
