// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The noise that the sub-commands tell, from outside: correct --uncertainty, check --levels.

#include <cmath>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tiffio.h>
#include <nlohmann/json.hpp>

#include "JsonProgram.h"
#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace fs = std::filesystem;
using namespace XAPEL2::Test;
using nlohmann::json;
using ::testing::HasSubstr;

namespace {

using Words = std::vector<std::string>;

class NoiseCommand : public ::testing::Test {
protected:
    static json run(const std::vector<std::string>& rWords, int iExit = 0, const std::string& strSaid = "") {
        return runJson(XAPEL2_SHADING_PROGRAM, rWords, iExit, strSaid);
    }
    std::string file(const std::string& strName) const { return m_folder / strName; }

    void record(const std::string& strKind, const std::string& strDevice, unsigned nFrames,
                const std::string& strName) const {
        run({"record", strKind, "-d", strDevice, "-n", std::to_string(nFrames), "-o", file(strName), "--force"});
    }

    template <class TSample>
    std::vector<double> samples(const std::string& strName) const {
        TIFF* pTiff = TIFFOpen(file(strName).c_str(), "r");
        std::vector<double> vecSamples;
        for (uint32_t i = 0; pTiff != nullptr && i < TIFFNumberOfStrips(pTiff); ++i) {
            std::vector<TSample> vecStrip(static_cast<std::size_t>(TIFFStripSize(pTiff)) / sizeof(TSample));
            const tmsize_t nBytes = TIFFReadEncodedStrip(pTiff, i, vecStrip.data(), TIFFStripSize(pTiff));
            vecSamples.insert(vecSamples.end(), vecStrip.begin(),
                              vecStrip.begin() + nBytes / static_cast<tmsize_t>(sizeof(TSample)));
        }
        if (pTiff != nullptr) {
            TIFFClose(pTiff);
        }
        return vecSamples;
    }

    CTemporaryFolder m_folder;
};

}  // namespace

TEST_F(NoiseCommand, UncertaintyStandsBesideEachFrameAndHolds) {
    const std::string strDevice = "sim:7?width=160&height=120&format=Mono12";
    record("dark", strDevice, 4, "dark.tif");
    record("light", strDevice, 4, "light.tif");
    run({"run", "-d", strDevice, "--scene", "Light", "--dark", file("dark.tif"), "--light", file("light.tif"), "-n",
         "8", "--raw", "--format", "tiff", "-o", file("run")});
    // The first four are in the reference.
    Words vecCorrect = {"correct",
                        "--dark",
                        file("dark.tif"),
                        "--light",
                        file("light.tif"),
                        "--uncertainty",
                        "--format",
                        "tiff",
                        "-o",
                        file("out"),
                        file("run/raw/even_0006.tif"),
                        file("run/raw/even_0007.tif")};
    run(vecCorrect);
    double dMean = 0.0, dSquares = 0.0, dCount = 0.0;
    for (const char* pName : {"even_0006", "even_0007"}) {
        const std::vector<double> vecFrame = samples<uint16_t>(std::string("out/") + pName + ".tif");
        const std::vector<double> vecDeviations = samples<float>(std::string("out/") + pName + ".uncertainty.tif");
        ASSERT_EQ(vecFrame.size(), 160U * 120U);
        ASSERT_EQ(vecDeviations.size(), vecFrame.size());
        for (const double dValue : vecFrame) {
            dMean += dCount == 0.0 ? dValue / static_cast<double>(vecFrame.size()) : 0.0;
        }
        for (std::size_t i = 0; i < vecFrame.size(); ++i) {
            const double dOff = (vecFrame[i] - dMean) / vecDeviations[i];
            if (std::abs(dOff) < 7.0) {
                dSquares += dOff * dOff;
                dCount += 1.0;
            }
        }
    }
    EXPECT_NEAR(std::sqrt(dSquares / dCount), 1.0, 0.03);
    EXPECT_GT(dCount, 0.999 * 2.0 * 160.0 * 120.0);

    // A dark frame has no shot noise: read noise of 1.8 DN, times the gain, and what the references and the rounding
    // add.
    run({"run", "-d", strDevice, "--scene", "Dark", "--dark", file("dark.tif"), "--light", file("light.tif"), "-n", "1",
         "--raw", "--format", "tiff", "-o", file("dark")});
    run({"correct", "--dark", file("dark.tif"), "--light", file("light.tif"), "--uncertainty", "-o", file("black"),
         file("dark/raw/dark_0000.tif")});
    const std::vector<double> vecBlack = samples<float>("black/dark_0000.uncertainty.tif");
    ASSERT_EQ(vecBlack.size(), 160U * 120U);
    double dBlack = 0.0, dTold = 0.0;
    for (const double dDeviation : vecBlack) {
        dBlack += std::isnan(dDeviation) ? 0.0 : dDeviation;
        dTold += std::isnan(dDeviation) ? 0.0 : 1.0;
    }
    EXPECT_NEAR(dBlack / dTold, 2.5, 0.5);

    // What stands there is not written over, and what cannot be told is not told.
    fs::remove(file("out/even_0006.tif"));
    fs::remove(file("out/even_0007.tif"));
    run(vecCorrect, 2, "uncertainty.tif exists");
    EXPECT_FALSE(fs::exists(file("out/even_0006.tif")));
    vecCorrect.insert(vecCorrect.end(), {"--overwrite", "--box-light", "2"});
    run(vecCorrect, 2, "filter");
    run({"correct", "--light", file("light.tif"), "--uncertainty", "-o", file("two"), file("run/raw/even_0006.tif")}, 2,
        "a dark and a light reference");
    record("dark", strDevice, 1, "dark.tif");
    run({"correct", "--dark", file("dark.tif"), "--light", file("light.tif"), "--uncertainty", "-o", file("two"),
         file("run/raw/even_0006.tif")},
        2, "two frames or more");
    EXPECT_FALSE(fs::exists(file("two")));
}

TEST_F(NoiseCommand, LevelsGiveTheGainOfALineAndOfTheWholePair) {
    const std::string strDevice = "sim:7?width=160&height=120&format=Mono12&exposure=";
    Words vecCheck = {"check", file("dark.tif"), file("light.tif"), "--levels"};
    record("dark", strDevice + "8000", 8, "dark.tif");
    record("light", strDevice + "8000", 8, "light.tif");
    const double dPair = run({"check", file("dark.tif"), file("light.tif")}).at("pair").at("conversionGain");
    double dProducts = 0.0, dSquares = 0.0;
    for (const char* pExposure : {"1000", "3000", "5000", "7000", "9000", "11000", "15000"}) {
        for (const std::string strKind : {"dark", "light"}) {
            record(strKind, strDevice + pExposure, 8, strKind + pExposure + ".tif");
            vecCheck.push_back(file(strKind + pExposure + ".tif"));
        }
        // 70 % of full scale are 9,500 us.
        if (std::stoi(pExposure) <= 9000) {
            const auto dark = XAPEL2::StandIn::readReferenceFile(file(std::string("dark") + pExposure + ".tif"));
            const auto light = XAPEL2::StandIn::readReferenceFile(file(std::string("light") + pExposure + ".tif"));
            const double dSignal = light.dMean - dark.dMean;
            dProducts += dSignal * (std::pow(light.dTemporalNoise, 2.0) - std::pow(dark.dTemporalNoise, 2.0));
            dSquares += dSignal * dSignal;
        }
    }
    const json judged = run(vecCheck);
    const double dGain = judged.at("levels").at("classes").at(0).at("conversionGain");
    EXPECT_NEAR(dGain / (dProducts / dSquares), 1.0, 0.001);
    EXPECT_NEAR(dGain, 0.3, 0.003);
    EXPECT_EQ(judged.at("pair").at("conversionGain"), dGain);
    EXPECT_NE(dPair, dGain);
    EXPECT_EQ(judged.at("levels").at("classes").at(0).at("points").size(), 7U);
    EXPECT_NEAR(judged.at("pair").at("noise").at("classes").at(0).at("conversionGain"), dGain, 1e-12);

    run({"check", file("dark.tif"), file("light.tif"), "--levels", file("light1000.tif")});
    record("light", strDevice + "3000", 1, "single.tif");
    run({"check", file("dark.tif"), file("light.tif"), "--levels", file("single.tif")}, 3, "of a single frame");
    fs::create_directory(file("empty"));
    run({"check", file("dark.tif"), file("light.tif"), "--levels", file("empty")}, 2, "no image file");
    run({"check", file("dark.tif"), file("light.tif"), "--levels", file("none.tif")}, 3, "none.tif");
}

TEST_F(NoiseCommand, ReportShowsTheNoiseAsCurveAndMap) {
    const std::string strDevice = "sim:7?width=96&height=64&format=RGB8";
    record("dark", strDevice, 8, "dark.tif");
    const auto fnReport = [&] {
        return run({"report", "-d", strDevice, "--dark", file("dark.tif"), "--light", file("light.tif"), "-n", "4",
                    "-o", file("report.html")});
    };
    record("light", strDevice, 8, "light.tif");
    const json shown = fnReport(), checked = run({"check", file("dark.tif"), file("light.tif")});
    EXPECT_EQ(shown.at("noise"), checked.at("pair").at("noise"));
    ASSERT_EQ(shown.at("noise").at("classes").size(), 3U);
    for (const json& rClass : shown.at("noise").at("classes")) {
        const std::vector<double> vecAfter = rClass.at("deviations"), vecBefore = rClass.at("frameDeviations");
        ASSERT_EQ(vecAfter.size(), shown.at("noise").at("values").size());
        for (std::size_t i = 1; i < vecAfter.size(); ++i) {
            EXPECT_GT(vecAfter[i], vecAfter[i - 1]) << "light adds noise";
            EXPECT_GT(vecAfter[i], vecBefore[i]) << "so do the references and the rounding";
        }
        // 256 DN of 0.01875 DN per electron and 6 e- of read noise
        EXPECT_NEAR(vecBefore.back(), std::sqrt(0.01875 * 0.01875 * 36.0 + 0.01875 * 255.0 + 1.0 / 12.0), 0.05);
    }
    // The map is of a reference at its mean: the deviation at the target of the mean of the colours lies within it.
    const double dBlack = shown.at("pictures").at("noise").at("black");
    const double dWhite = shown.at("pictures").at("noise").at("white");
    EXPECT_GT(dBlack, 1.0);
    EXPECT_LT(dWhite, 2.5);
    EXPECT_GT(dWhite, dBlack + 0.1);
    EXPECT_THAT(content(file("report.html")), HasSubstr("Map of the noise"));

    record("light", strDevice, 1, "light.tif");
    EXPECT_TRUE(fnReport().at("noise").is_null());
    EXPECT_THAT(content(file("report.html")), ::testing::Not(HasSubstr("Map of the noise")));
}
