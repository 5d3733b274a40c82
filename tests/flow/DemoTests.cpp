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
    Values vecRaw, vecCorrected;
};

struct DemoRun {
    ProgramResult program;
    nlohmann::json figures;
    ImageLayout layout;
    Values vecDark, vecSignal,
        vecTarget;  // of the formula: D (zeros without a dark reference), L - D, and its class's mean
    std::vector<Frame> vecFrames;
};

ProgramResult runShading(const std::vector<std::string>& rArguments) {
    return runProgram(XAPEL2_SHADING_PROGRAM, rArguments);
}

// The samples of a binary pixmap, which is of this size.
Values readPixmap(const fs::path& rFile, const ImageLayout& rLayout) {
    std::ifstream in(rFile, std::ios::binary);
    std::string strMagic;
    std::size_t nWidth = 0, nHeight = 0, nFullScale = 0;
    in >> strMagic >> nWidth >> nHeight >> nFullScale;
    in.get();  // the one separator
    EXPECT_EQ(strMagic, rLayout.pFormat->nChannels == 3 ? "P6" : "P5");
    EXPECT_TRUE(nWidth == rLayout.nWidth && nHeight == rLayout.nHeight) << rFile;
    EXPECT_EQ(nFullScale, rLayout.pFormat->fullScale());
    Values vecResult(rLayout.samples());
    for (double& rSample : vecResult) {
        const int iHigh = nFullScale > 255 ? in.get() : 0;
        rSample = iHigh << 8 | in.get();
    }
    EXPECT_TRUE(in.good() && in.get() == std::ifstream::traits_type::eof()) << rFile << " is of another length";
    return vecResult;
}

Values readGreyPng(const fs::path& rFile) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&png, rFile.c_str()), 0) << rFile;
    png.format = PNG_FORMAT_GRAY;
    std::vector<png_byte> vecBytes(PNG_IMAGE_SIZE(png));
    EXPECT_NE(png_image_finish_read(&png, nullptr, vecBytes.data(), 0, nullptr), 0) << rFile;
    return {vecBytes.begin(), vecBytes.end()};
}

// For each sample the mean over its colour class.
Values classMeans(const ImageLayout& rLayout, const Values& rValues) {
    double afSum[4] = {}, afCount[4] = {};
    for (std::size_t i = 0; i < rValues.size(); ++i) {
        afSum[classOf(rLayout, i)] += rValues[i];
        afCount[classOf(rLayout, i)] += 1.0;
    }
    Values vecMeans(rValues.size());
    for (std::size_t i = 0; i < vecMeans.size(); ++i) {
        vecMeans[i] = afSum[classOf(rLayout, i)] / afCount[classOf(rLayout, i)];
    }
    return vecMeans;
}

// Standard deviation over the mean, after every colour class has been divided by its mean.
double spreadPercent(const ImageLayout& rLayout, const Values& rValues) {
    const Values vecMeans = classMeans(rLayout, rValues);
    double dSquare = 0.0;
    for (std::size_t i = 0; i < vecMeans.size(); ++i) {
        dSquare += std::pow(rValues[i] / vecMeans[i] - 1.0, 2) / static_cast<double>(vecMeans.size());
    }
    return 100.0 * std::sqrt(dSquare);
}

Values minus(Values vecResult, const Values& rOther) {
    std::transform(vecResult.begin(), vecResult.end(), rOther.begin(), vecResult.begin(), std::minus<>());
    return vecResult;
}

// Runs "demo" into rOut and reads what it wrote.
DemoRun runDemo(std::vector<std::string> vecArguments, const fs::path& rOut) {
    vecArguments.insert(vecArguments.begin(), "demo");
    vecArguments.insert(vecArguments.end(), {"--out", rOut});
    DemoRun run;
    run.program = runShading(vecArguments);
    if (run.program.iExit != 0) {
        throw std::runtime_error("demo ended with " + std::to_string(run.program.iExit) + ": " + run.program.strErr);
    }
    std::ifstream(rOut / "figures.json") >> run.figures;
    const ReferenceImage light = readReferenceFile(rOut / "reference-light.tif");
    run.layout = light.layout;
    EXPECT_EQ(run.figures.at("pixel_format"), run.layout.pFormat->pName);
    EXPECT_EQ(run.figures.at("width"), run.layout.nWidth);
    EXPECT_EQ(run.figures.at("height"), run.layout.nHeight);
    EXPECT_EQ(run.figures.at("light_frames"), light.nImages);
    run.vecDark.resize(light.vecSamples.size());
    if (fs::exists(rOut / "reference-dark.tif")) {
        const ReferenceImage dark = readReferenceFile(rOut / "reference-dark.tif");
        EXPECT_EQ(run.figures.at("dark_frames"), dark.nImages);
        run.vecDark.assign(dark.vecSamples.begin(), dark.vecSamples.end());
    }
    run.vecSignal = minus({light.vecSamples.begin(), light.vecSamples.end()}, run.vecDark);
    run.vecTarget = classMeans(run.layout, run.vecSignal);
    for (const nlohmann::json& rName : run.figures.at("frames")) {
        const auto strName = rName.get<std::string>();
        run.vecFrames.push_back({strName, readPixmap(rOut / "raw" / strName, run.layout),
                                 readPixmap(rOut / "corrected" / strName, run.layout)});
    }
    return run;
}

// Every pixel of every corrected frame: within 1 DN up to 12 bits, within 1 + G/2 DN above. And the figures of pixels.
void expectFormula(const DemoRun& rRun) {
    ASSERT_FALSE(rRun.vecFrames.empty());
    EXPECT_EQ(rRun.figures.at("frames_corrected"), rRun.vecFrames.size());
    const double dFullScale = rRun.layout.pFormat->fullScale();
    for (const Frame& rFrame : rRun.vecFrames) {
        std::size_t nWrong = 0;
        double dWorst = 0.0;
        for (std::size_t i = 0; i < rRun.vecSignal.size(); ++i) {
            const double dSignal = rRun.vecSignal[i];
            const double dGain = dSignal > 0.0 ? std::clamp(rRun.vecTarget[i] / dSignal, 0.0, 16.0) : 1.0;
            const double dExact = std::clamp(std::round((rFrame.vecRaw[i] - rRun.vecDark[i]) * dGain), 0.0, dFullScale);
            const double dError =
                std::abs(rFrame.vecCorrected[i] - (rFrame.vecRaw[i] >= dFullScale ? dFullScale : dExact));
            nWrong += dError > (dFullScale <= 4095.0 ? 1.0 : 1.0 + dGain / 2.0) ? 1U : 0U;
            dWorst = std::max(dWorst, dError);
        }
        EXPECT_EQ(nWrong, 0U) << rFrame.strName << ": " << dWorst << " DN off at worst";
    }
    const Frame& rFirst = rRun.vecFrames[0];
    EXPECT_NEAR(rRun.figures.at("pixels_before_percent").get<double>(),
                spreadPercent(rRun.layout, minus(rFirst.vecRaw, rRun.vecDark)), 1e-6);
    EXPECT_NEAR(rRun.figures.at("pixels_after_percent").get<double>(), spreadPercent(rRun.layout, rFirst.vecCorrected),
                1e-6);
}

// What is left of an even frame after correction is its own shot noise and that of the light reference, read noise
// and rounding of both, and the rounding of the result (EMVA 1288 camera model; the dark reference drops out to first
// order).
double predictedPercent(const DemoRun& rRun) {
    const SensorModel model;
    const double dReferenceFrames = rRun.figures.at("light_frames");
    double dVariance = 0.0;
    for (std::size_t i = 0; i < rRun.vecSignal.size(); ++i) {
        const double dElectrons = (rRun.vecSignal[i] + rRun.vecDark[i] - model.dOffset12) / model.dGain12;
        const double dNoise =
            std::pow(model.dGain12, 2) * (dElectrons + model.dReadNoise * model.dReadNoise) + 1.0 / 12.0;
        dVariance += (1.0 + 1.0 / dReferenceFrames) * dNoise / std::pow(rRun.vecSignal[i], 2) +
                     1.0 / 12.0 / std::pow(rRun.vecTarget[i], 2);
    }
    return 100.0 * std::sqrt(dVariance / static_cast<double>(rRun.vecSignal.size()));
}

std::set<std::string> namesIn(const fs::path& rFolder) {
    std::set<std::string> names;
    for (const fs::directory_entry& rEntry : fs::directory_iterator(rFolder)) {
        names.insert(rEntry.path().filename());
    }
    return names;
}

// Flat 8-bit frames of nSide x nSide pixels, brighter to the right.
void writeFrames(const fs::path& rFolder, const std::vector<std::string>& rNames, unsigned nSide = 32) {
    fs::create_directories(rFolder);
    std::string strRow;
    for (unsigned i = 0; i < nSide; ++i) {
        strRow += static_cast<char>(60 + 2 * i);
    }
    for (const std::string& rName : rNames) {
        std::ofstream out(rFolder / (rName + ".pgm"), std::ios::binary);
        out << "P5\n" << nSide << ' ' << nSide << "\n255\n";
        for (unsigned i = 0; i < nSide; ++i) {
            out << strRow;
        }
    }
}

}  // namespace

TEST(Demo, SimulatedCameraIsFlatToItsNoise) {
    const CTemporaryFolder out;
    const DemoRun run = runDemo({}, out.path());
    expectFormula(run);
    EXPECT_EQ(run.vecFrames.size(), 8U);
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_THAT(run.vecFrames.at(i).strName, HasSubstr("even_"));
        EXPECT_NEAR(classMeans(run.layout, run.vecFrames[i].vecCorrected)[0] / run.vecTarget[0], 1.0, 0.002);
    }
    ASSERT_EQ(run.figures.at("pixel_format"), "Mono12");
    EXPECT_EQ(run.figures.at("light_frames"), 16);
    // Half the reference frames would raise it by 3 %. A block is the mean of 16 x 16 pixels.
    EXPECT_NEAR(run.figures.at("pixels_after_percent").get<double>() / predictedPercent(run), 1.0, 0.01);
    EXPECT_NEAR(run.figures.at("blocks_after_percent").get<double>() * 16.0 / predictedPercent(run), 1.0, 0.1);
    EXPECT_NEAR(
        run.figures.at("blocks_before_percent").get<double>() / run.figures.at("pixels_before_percent").get<double>(),
        0.98, 0.02)
        << "nearly all of it is lens and dust";

    EXPECT_GT(spreadPercent(run.layout, readGreyPng(out.path() / "before.png")),
              4.0 * spreadPercent(run.layout, readGreyPng(out.path() / "after.png")));
    const std::string strReport = content(out.path() / "report.html");
    EXPECT_THAT(strReport, HasSubstr("</html>"));
    for (const auto& [pName, pFigure] :
         {std::pair("fetch_median_ms", "plain"), {"fetch_corrected_median_ms", "corrected"}}) {
        EXPECT_THAT(strReport, HasSubstr("<data value=\"" + run.figures.at(pName).dump() + "\" data-figure=\"/time/" +
                                         pFigure + "MedianMs\">"));
    }
}

TEST(Demo, EveryKindOfFormatFollowsTheFormula) {
    for (const char* pCamera : {"sim:2?width=70&height=50&format=Mono8", "sim:3?width=64&height=48&format=BayerRG12p",
                                "sim:4?width=64&height=48&format=RGB8", "sim:5?width=67&height=33&format=Mono16"}) {
        SCOPED_TRACE(pCamera);
        const CTemporaryFolder out;
        expectFormula(runDemo({"--camera", pCamera}, out.path()));
    }
}

TEST(Demo, RecordedFramesTakeTheSameRoad) {
    const char* pFrames = std::getenv("XAPEL2_FRAMES");
    if (pFrames == nullptr) {
        GTEST_SKIP() << "XAPEL2_FRAMES names no folder of recorded frames";
    }
    const fs::path folder = fs::path(pFrames) / "ring_16bit";
    const CTemporaryFolder out;
    const DemoRun run = runDemo({"--frames", folder}, out.path());
    expectFormula(run);
    EXPECT_EQ(run.figures.at("dark_frames"), 6);
    EXPECT_EQ(run.figures.at("light_frames"), 12);
    EXPECT_EQ(run.vecFrames.size(), 10U);
    EXPECT_EQ(run.vecFrames.at(0).strName, "light_0169.pgm");
    for (const Frame& rFrame : run.vecFrames) {
        EXPECT_EQ(rFrame.vecRaw, readPixmap(folder / rFrame.strName, run.layout)) << rFrame.strName;
    }
    EXPECT_NEAR(run.figures.at("blocks_before_percent").get<double>(), 14.0, 2.0);
    EXPECT_LT(run.figures.at("blocks_after_percent").get<double>(), 3.5);
}

TEST(Demo, NewRunReplacesItsOwnFilesOnly) {
    const CTemporaryFolder folder;
    const fs::path frames = folder.path() / "frames";
    const fs::path out = folder.path() / "out";
    const ProgramResult told = runShading({"demo", "--camera", "sim:1?width=32&height=32", "--out", out, "--json"});
    EXPECT_GT(nlohmann::json::parse(told.strOut).at("blocks_before_percent"), 0.1) << told.strErr;
    EXPECT_TRUE(fs::exists(out / "reference-dark.tif"));
    std::ofstream(out / "raw" / "mine.pgm") << "mine";

    writeFrames(frames, {"light_1", "light_2", "light_3", "scene_1"});
    const DemoRun run = runDemo({"--frames", frames}, out);
    expectFormula(run);
    EXPECT_THAT(run.program.strOut, HasSubstr("without a dark reference"));
    EXPECT_EQ(run.figures.at("dark_frames"), 0);
    EXPECT_FALSE(fs::exists(out / "reference-dark.tif"));
    EXPECT_EQ(namesIn(out / "raw"), (std::set<std::string>{"light_2.pgm", "light_3.pgm", "scene_1.pgm", "mine.pgm"}));
    EXPECT_EQ(namesIn(out / "corrected"), (std::set<std::string>{"light_2.pgm", "light_3.pgm", "scene_1.pgm"}));
    // Its own output would go before it is read.
    EXPECT_EQ(runShading({"demo", "--frames", out / "raw", "--out", out}).iExit, 2);
    EXPECT_EQ(namesIn(out / "raw").size(), 4U);
    EXPECT_EQ(runShading({"demo", "--frames", frames, "--out", frames}).iExit, 0) << "beside them is well";
}

TEST(Demo, ReplacesWhatIsNotItsOwnOnRequestOnly) {
    const CTemporaryFolder folder;
    const fs::path out = folder.path() / "out";
    const std::vector<std::string> vecDemo = {"demo", "--camera", "sim:1?width=32&height=32", "--out", out};
    for (const char* pMine : {"before.png", "figures.json", "raw/even_0016.pgm"}) {
        fs::remove_all(out);
        fs::create_directories(out / "raw");
        std::ofstream(out / pMine) << "{}";
        const ProgramResult result = runShading(vecDemo);
        EXPECT_EQ(result.iExit, 2) << pMine;
        EXPECT_THAT(result.strErr, ::testing::AllOf(HasSubstr(pMine), HasSubstr("--overwrite")));
        EXPECT_EQ(content(out / pMine), "{}");
        EXPECT_FALSE(fs::exists(out / "reference-dark.tif")) << "one that fails leaves nothing";
        std::vector<std::string> vecInsist = vecDemo;
        vecInsist.emplace_back("--overwrite");
        EXPECT_EQ(runShading(vecInsist).iExit, 0);
        EXPECT_NE(content(out / pMine), "{}");
        EXPECT_EQ(runShading(vecDemo).iExit, 0) << "now they are its own";
    }
}

TEST(Demo, FigureThatASmallImageDoesNotHaveIsLeftOutWithAWord) {
    const CTemporaryFolder out;
    const DemoRun run = runDemo({"--camera", "sim:2?width=20&height=10"}, out.path());
    EXPECT_TRUE(run.figures.at("blocks_before_percent").is_null());
    EXPECT_TRUE(run.figures.at("pixels_before_percent").is_number());
    EXPECT_THAT(run.program.strOut, HasSubstr("16 x 16 blocks: unknown"));
    EXPECT_THAT(run.program.strOut, ::testing::Not(HasSubstr("nan")));
}

TEST(Demo, UnusableFramesAreNamedAndLeaveTheOutputAlone) {
    const CTemporaryFolder folder;
    const fs::path root = folder.path();
    writeFrames(root / "truncated", {"dark_1", "light_1", "light_2", "light_3"});
    fs::resize_file(root / "truncated" / "light_2.pgm", 500);
    writeFrames(root / "othersize", {"light_1", "light_2"});
    writeFrames(root / "othersize", {"scene_7"}, 2);
    writeFrames(root / "nolight", {"dark_1", "light_1"});
    // Somebody's own file of a name that the demonstration uses, too.
    const fs::path out = root / "out";
    fs::create_directories(out);
    std::ofstream(out / "reference-light.tif") << "mine";
    const std::pair<const char*, const char*> aRows[] = {
        {"truncated", "light_2.pgm"}, {"othersize", "scene_7.pgm"}, {"nolight", "light_*"}, {"missing", "missing"}};
    for (const auto& [pFrames, pNamed] : aRows) {
        const ProgramResult result = runShading({"demo", "--frames", root / pFrames, "--out", out});
        EXPECT_EQ(result.iExit, 3) << pFrames;
        EXPECT_THAT(result.strErr, HasSubstr(pNamed));
        EXPECT_EQ(namesIn(out), std::set<std::string>{"reference-light.tif"}) << pFrames;
        EXPECT_EQ(fs::file_size(out / "reference-light.tif"), 4U) << pFrames;
    }
    const fs::path noFolder = root / "file";
    std::ofstream{noFolder} << "mine";
    const ProgramResult result = runShading({"demo", "--out", noFolder});
    EXPECT_EQ(result.iExit, 3);
    EXPECT_THAT(result.strErr, HasSubstr(noFolder.string()));
}

TEST(Demo, WrongUseIsTold) {
    const std::vector<std::vector<std::string>> vecAaUses = {
        {}, {"show"}, {"demo", "--speed"}, {"demo", "--out"}, {"demo", "--camera", "sim", "--frames", "x"}};
    for (const std::vector<std::string>& rUse : vecAaUses) {
        const ProgramResult result = runShading(rUse);
        EXPECT_EQ(result.iExit, 2) << ::testing::PrintToString(rUse);
        EXPECT_FALSE(result.strErr.empty());
    }
}
