// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The report from outside: which frames its figures are of, and what becomes of it when judgement refuses.

#include <cmath>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "JsonProgram.h"
#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace fs = std::filesystem;
using namespace XAPEL2::Test;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr unsigned SIDE = 32, FRAMES = 8;

class Report : public ::testing::Test {
protected:
    static json run(const std::vector<std::string>& rWords, int iExit = 0, const std::string& strSaid = "") {
        return runJson(XAPEL2_SHADING_PROGRAM, rWords, iExit, strSaid);
    }

    json report(const std::string& strDevice, int iExit = 0, const std::string& strSaid = "",
                const char* pMore = "--json") {
        return run({"report", "-d", strDevice, "--dark", m_folder / "dark.tif", "--light", m_folder / "light.tif", "-o",
                    m_folder / "report.html", pMore},
                   iExit, strSaid);
    }

    void recordPair(const std::string& strDevice, unsigned nLight) {
        run({"record", "dark", "-d", strDevice, "-n", "4", "-o", m_folder / "dark.tif"});
        run({"record", "light", "-d", strDevice, "-n", std::to_string(nLight), "-o", m_folder / "light.tif"});
    }

    // Dark frames of 10 DN; light ones with a signal of 90 and 110 DN in turn from column to column, of which the later
    // half is brighter by a fifth in every fourth row.
    std::string writeFrames() const {
        const fs::path frames = m_folder / "<frames> & \"more\"";
        fs::create_directories(frames);
        for (unsigned iFrame = 0; iFrame < FRAMES; ++iFrame) {
            for (const bool bLight : {false, true}) {
                std::ofstream out(frames / ((bLight ? "light_" : "dark_") + std::to_string(iFrame) + ".pgm"));
                out << "P5 " << SIDE << ' ' << SIDE << " 255\n";
                for (unsigned i = 0; i < SIDE * SIDE; ++i) {
                    const unsigned uSignal = i % 2 == 0 ? 90 : 110;
                    const bool bBright = iFrame >= FRAMES / 2 && i / SIDE % 4 == 0;
                    out << static_cast<char>(10 + (bLight ? (bBright ? uSignal * 6 / 5 : uSignal) : 0));
                }
            }
        }
        return "replay:" + frames.string();
    }

    const CTemporaryFolder m_folder;
};

}  // namespace

TEST_F(Report, FiguresAreOfFramesOutsideTheReference) {
    const std::string strDevice = writeFrames();
    recordPair(strDevice, FRAMES / 2);
    const json told = report(strDevice);
    EXPECT_EQ(told.at("frames"), json({{"dark", 4}, {"light", 4}}));
    EXPECT_EQ(told.at("selfTest"), false);
    // After correction: a quarter of the rows at 120 DN, the others at 100, and nothing else.
    const json after = told.at("after").at("classes").at(0);
    const double dSamples = SIDE * SIDE;
    EXPECT_NEAR(after.at("prnuPercent").at("total").get<double>(),
                100.0 * std::sqrt(20.0 * 20.0 * 3.0 / 16.0 * dSamples / (dSamples - 1.0)) / 105.0, 1e-6);
    EXPECT_NEAR(after.at("lightMean").get<double>(), 105.0, 1e-6);
    EXPECT_EQ(after.at("dsnu").at("total"), 0.0);
    EXPECT_EQ(told.at("profiles").at("rows").at("after").at(0), 114.2857);
    EXPECT_EQ(told.at("gain").at("max"), json(static_cast<double>(100.0F / 90.0F)));

    const std::string strPage = content(m_folder / "report.html");
    EXPECT_THAT(strPage, HasSubstr("&lt;frames&gt; &amp; &quot;more&quot;"));
    EXPECT_THAT(strPage, Not(HasSubstr("ExposureTime"))) << "nobody told with what the files were taken";
    EXPECT_THAT(strPage, Not(HasSubstr("<frames>")));
    EXPECT_THAT(strPage, Not(HasSubstr("://"))) << "an address";
}

// By content: once the first ones of any folder were taken for those of the reference.
TEST_F(Report, FramesOfTheReferenceAreKnownWhereverTheyStand) {
    const std::string strDevice = writeFrames();
    recordPair(strDevice, FRAMES / 2);
    const fs::path frames = strDevice.substr(strDevice.find(':') + 1), other = m_folder / "other";
    fs::create_directories(other);
    for (unsigned i = 0; i < FRAMES; ++i) {
        const std::string strName = "_" + std::to_string(i) + ".pgm";
        fs::copy(frames / ("dark" + strName), other / ("dark" + strName));
        if (i >= FRAMES / 2) {  // of the light ones those that the reference did not take
            fs::copy(frames / ("light" + strName), other / ("light" + strName));
        }
    }
    const json others = report("replay:" + other.string());
    EXPECT_EQ(others.at("frames"), json({{"dark", 4}, {"light", 4}}));
    EXPECT_EQ(others.at("selfTest"), false);
    fs::copy(frames / "light_0.pgm", other / "light_9.pgm");
    EXPECT_EQ(report("replay:" + other.string()).at("before").at("classes"), others.at("before").at("classes"))
        << "a frame of the reference is left out, last as it is";
}

TEST_F(Report, TellsTheFramesRecordedNotThoseAskedFor) {
    const std::string strDevice = writeFrames();
    for (const char* pKind : {"dark", "light"}) {
        const std::vector<std::string> vecWords = {"record", pKind,  "-d", strDevice,
                                                   "-n",     "1000", "-o", m_folder / (std::string(pKind) + ".tif")};
        EXPECT_THAT(runProgram(XAPEL2_SHADING_PROGRAM, vecWords).strOut,
                    HasSubstr("Recording 8 " + std::string(pKind) + " frames"));
        EXPECT_EQ(run(vecWords, 0, "all that there is").at("frames"), FRAMES);
    }
}

TEST_F(Report, FiltersAreThoseAskedFor) {
    recordPair("sim:3?width=64&height=48", 4);
    const json told =
        run({"report", "--dark", m_folder / "dark.tif", "--light", m_folder / "light.tif", "--median-dark", "1",
             "--box-dark", "2", "--median-light", "3", "--box-light", "4", "-o", m_folder / "report.html"});
    EXPECT_EQ(told.at("filters"),
              "median on the dark reference, radius 1, box on the dark reference, radius 2, median "
              "on the light reference, radius 3, box on the light reference, radius 4");
}

TEST_F(Report, WithoutFramesLeftThereAreNoFiguresAfterCorrection) {
    const std::string strDevice = writeFrames();
    recordPair(strDevice, FRAMES - 1);
    const json oneLeft = report(strDevice);
    EXPECT_TRUE(oneLeft.at("after").is_null() && oneLeft.at("selfTest") == false);
    recordPair(strDevice, FRAMES);
    const json noneLeft = report(strDevice, 0, "self-test only");
    EXPECT_TRUE(noneLeft.at("after").is_null() && noneLeft.at("selfTest") == true);
    EXPECT_THAT(content(m_folder / "report.html"), HasSubstr("Shading correction: self-test"));
    EXPECT_EQ(run({"report", "-d", strDevice, "-o", m_folder / "own.html"}).at("frames"),
              json({{"dark", 2}, {"light", 2}}))
        << "a camera with few frames shares them out by itself";
}

TEST_F(Report, TellsOfARefusalWhereThePairCanBeApplied) {
    const std::string strDevice = "sim:3?width=64&height=48";
    recordPair(strDevice, 4);
    report("sim:3?width=32&height=48", 1, "32 x 48");
    EXPECT_FALSE(fs::exists(m_folder / "report.html"));
    // Files of older versions do not tell where on the sensor they lie.
    for (const char* pName : {"dark.tif", "light.tif"}) {
        XAPEL2::StandIn::ReferenceImage reference = XAPEL2::StandIn::readReferenceFile(m_folder / pName);
        reference.geometry = {};
        XAPEL2::StandIn::writeReferenceFile(m_folder / pName, reference);
    }
    EXPECT_EQ(report(strDevice + "&offsetx=16", 1, "offset").at("verdict"), "refused");
    EXPECT_THAT(content(m_folder / "report.html"), HasSubstr("The references are refused"));
    report(strDevice + "&offsetx=16", 0, "offset", "--force");
    const json bright = report(strDevice + "&exposure=20000");
    EXPECT_EQ(bright.at("findings").back().at("id"), "measured-saturated");
}

// Each pixel of a window is held against its own place in the references; once it was against the first pixels of them.
TEST_F(Report, AWindowIsMeasuredWithReferencesOfTheSensor) {
    const std::string strSensor = "&sensorwidth=160&sensorheight=120";
    recordPair("sim:3?width=160&height=120" + strSensor, 16);
    const json window = report("sim:3?width=64&height=48&offsetx=33&offsety=20" + strSensor);
    for (const char* pFigure : {"prnu", "dsnu"}) {
        const json& rSummary = window.at("summary");
        EXPECT_LT(rSummary.at(pFigure + std::string("After")), rSummary.at(pFigure + std::string("Before")));
    }
    EXPECT_TRUE(window.at("summary").at("dsnuPredicted").is_null()) << "of corrected frames, which end at 0";
    EXPECT_THAT(window.at("findings"), Not(::testing::Contains(::testing::Contains(::testing::ResultOf(
                                           [](const json& r) { return r.dump(); }, HasSubstr("measured-dark"))))));
    EXPECT_EQ(window.at("gain").at("width"), 160);
}

TEST_F(Report, WrongUseAndAFileThatCannotBeWritten) {
    run({"report", "-o", m_folder / "r.html"}, 2, "--light");
    recordPair("sim:3?width=64&height=48", 2);
    run({"report", "--dark", m_folder / "dark.tif", "-o", m_folder / "r.html"}, 2, "--light");
    const std::string strPair = m_folder / "light.tif";
    run({"report", "--light", strPair, "-o", m_folder / "none/r.html"}, 3, "none");
    fs::create_directories(m_folder / "taken/folder");
    run({"report", "--light", strPair, "-o", m_folder / "taken"}, 3, "taken");
    EXPECT_THAT(m_folder.names(), ::testing::UnorderedElementsAre("dark.tif", "light.tif", "taken"));
}

// References of another camera of the same model: once a verdict of "good".
TEST_F(Report, ReferencesOfAnotherCameraMissTheirPrediction) {
    recordPair("sim:3?width=64&height=48", 16);
    const json own = report("sim:3?width=64&height=48");
    EXPECT_EQ(own.at("findings").size(), 1U) << "the dark reference has few frames";
    const json& rOwn = own.at("summary");
    EXPECT_NEAR(rOwn.at("dsnuAfter").get<double>() / rOwn.at("dsnuPredicted").get<double>(), 1.0, 0.1);
    const json other = report("sim:4?width=64&height=48", 0, "another camera");
    EXPECT_EQ(other.at("verdict"), "warning");
    std::vector<std::string> vecIds;
    for (const json& rFinding : other.at("findings")) {
        vecIds.push_back(rFinding.at("id"));
    }
    EXPECT_THAT(vecIds, ElementsAre("few-frames", "other-camera", "other-camera", "measured-missed", "measured-spots",
                                    "measured-dark-worse"));
}

// Without a dark reference nothing is known of a conversion gain, but the light one has told its own noise.
TEST_F(Report, LightReferenceAloneOfAnotherCameraMissesItsPrediction) {
    recordPair("sim:3?width=64&height=48", 16);
    const auto fnMissed = [&](const char* pDevice, const char* pSaid) {
        const std::string strPage = m_folder / (std::string("alone-") + pDevice[4] + ".html");
        const json told = run({"report", "-d", pDevice, "--light", m_folder / "light.tif", "-o", strPage}, 0, pSaid);
        const json& rFindings = told.at("findings");
        EXPECT_TRUE(std::any_of(rFindings.begin(), rFindings.end(), [](const json& r) {
            return r.at("id") == "measured-dark-worse" && r.at("advice").get<std::string>().find("Take a dark") == 0;
        })) << "the dark level is multiplied";
        return std::any_of(rFindings.begin(), rFindings.end(),
                           [](const json& r) { return r.at("id") == "measured-missed"; });
    };
    EXPECT_FALSE(fnMissed("sim:3?width=64&height=48", ""));
    EXPECT_TRUE(fnMissed("sim:4?width=64&height=48", "new dust"));
}
