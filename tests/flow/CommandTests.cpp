// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The application from outside: what its sub-commands write, say, and end with.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "JsonProgram.h"
#include "StreamFixture.h"
#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace fs = std::filesystem;
using namespace XAPEL2::Test;
using nlohmann::json;
using ::testing::HasSubstr;

namespace {

using Words = std::vector<std::string>;

class Command : public ::testing::Test {
protected:
    static json run(const std::vector<std::string>& rWords, int iExit = 0, const std::string& strSaid = "") {
        return runJson(XAPEL2_SHADING_PROGRAM, rWords, iExit, strSaid);
    }

    void recordPair(const std::string& strDevice) {
        run({"record", "dark", "-d", strDevice, "-n", "16", "-o", file("dark.tif")});
        run({"record", "light", "-d", strDevice, "-n", "16", "-o", file("light.tif")});
    }

    Words withPair(Words vecWords, const Words& rMore = {}) const {
        vecWords.insert(vecWords.begin() + 1, {"--dark", file("dark.tif"), "--light", file("light.tif")});
        vecWords.insert(vecWords.end(), rMore.begin(), rMore.end());
        return vecWords;
    }

    static Words withForce(Words vecWords) {
        vecWords.push_back("--force");
        return vecWords;
    }

    std::string file(const std::string& strName) const { return m_folder / strName; }

    Words filesIn(const std::string& strFolder) const {
        Words vecFiles;
        for (const auto& rEntry : fs::directory_iterator(file(strFolder))) {
            if (rEntry.is_regular_file()) {
                vecFiles.push_back(rEntry.path());
            }
        }
        std::sort(vecFiles.begin(), vecFiles.end());
        return vecFiles;
    }

    std::vector<std::string> contents(const std::string& strFolder) const {
        std::vector<std::string> vecBytes;
        for (const std::string& rFile : filesIn(strFolder)) {
            vecBytes.push_back(content(rFile));
        }
        return vecBytes;
    }

    CTemporaryFolder m_folder;
};

}  // namespace

// The library corrects the stream, images handed in, and the frames of files: one frame, one result.
TEST_F(Command, EveryRoadOfAFrameGivesTheSameBytes) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono12p", "BayerRG10p", "RGB8", "BGR8"}) {
        SCOPED_TRACE(pFormat);
        const std::string strDevice = std::string("sim:7?width=66&height=34&format=") + pFormat;
        const std::string strFolder = std::string(pFormat) + "/";
        recordPair(strDevice);
        const auto fnRun = [&](const std::string& strOut, const Words& rMore) {
            const json told = run(withPair({"run", "-d", strDevice, "-n", "3", "-o", file(strFolder + strOut)}, rMore));
            EXPECT_EQ(told.at("corrected"), 3);
            EXPECT_EQ(told.at("written"), 3);
            EXPECT_EQ(told.contains("addedMs"), !rMore.empty()) << "frames that are written are not waited for";
        };
        fnRun("stream", {});
        fnRun("handed-in", {"--raw"});
        fnRun("tiff", {"--raw", "--format", "tiff"});
        fnRun("png", {"--raw", "--format", "png"});
        EXPECT_EQ(contents(strFolder + "handed-in"), contents(strFolder + "stream"));
        EXPECT_NE(contents(strFolder + "handed-in/raw"), contents(strFolder + "stream"));
        for (const char* pRaw : {"handed-in/raw", "tiff/raw", "png/raw"}) {
            const Words vecFiles = filesIn(strFolder + pRaw);
            const json told = run(withPair({"correct", "--overwrite", "-o", file(strFolder + "files")}, vecFiles));
            EXPECT_EQ(told.at("written"), vecFiles.size());
            EXPECT_EQ(contents(strFolder + "files"), contents(strFolder + "stream")) << pRaw;
        }
    }
}

// What was corrected looks as what was not, and once was corrected again.
TEST_F(Command, CorrectedFramesSayThatTheyAre) {
    const std::string strDevice = "sim:7?width=64&height=48";
    recordPair(strDevice);
    for (const char* pFormat : {"pgm", "tiff", "png"}) {
        SCOPED_TRACE(pFormat);
        const std::string strFolder = file(pFormat), strAgain = file(pFormat + std::string("-again"));
        run(withPair({"run", "-d", strDevice, "-n", "2", "--raw", "-o", strFolder, "--format", pFormat}));
        run(withPair({"correct", "-o", strAgain, strFolder}), 1, "is corrected already (Shading corrected, dark ");
        EXPECT_FALSE(fs::exists(strAgain));
        run(withPair({"correct", "-o", strAgain, strFolder}, {"--force"}), 0, "is corrected already");
        run(withPair({"correct", "-o", file(pFormat + std::string("-raw")), strFolder + "/raw"}));
    }
}

// As between two programs: byte by byte what the files give.
TEST_F(Command, RawFramesPassThroughAPipe) {
    const std::string strDevice = "sim:7?width=66&height=34&format=Mono12";
    recordPair(strDevice);
    run(withPair({"run", "-d", strDevice, "-n", "9", "--raw", "-o", file("made")}));
    const auto fnRaw = [&](const std::string& strFolder) {
        std::string strAll;
        for (std::string strFile : contents(strFolder)) {
            strFile = strFile.substr(strFile.size() - 2 * 66 * 34);
            for (std::size_t i = 0; i < strFile.size(); i += 2) {
                std::swap(strFile[i], strFile[i + 1]);
            }
            strAll += strFile;
        }
        return strAll;
    };
    const auto fnShell = [&](const std::string& strWords, const std::string& strMore = "") {
        return runProgram("/bin/sh",
                          {"-c", "exec " XAPEL2_SHADING_PROGRAM " correct - --dark " + file("dark.tif") + " --light " +
                                     file("light.tif") + " " + strWords + " <" + file("raw") + strMore});
    };
    std::ofstream(file("raw"), std::ios::binary) << fnRaw("made/raw");
    EXPECT_EQ(fnShell("--stream Mono12:66x34 -o -", " >" + file("out")).iExit, 0);
    EXPECT_TRUE(content(file("out")) == fnRaw("made"));
    EXPECT_EQ(fnShell("--stream Mono12:66x34 -o " + file("folder")).iExit, 0);
    EXPECT_TRUE(fnRaw("folder") == fnRaw("made"));
    const std::pair<const char*, int> aCases[] = {{"--stream Mono12:66x35 -o -", 1},
                                                  {"--stream Mono12:66 -o -", 2},
                                                  {"--stream Mono9:66x34 -o -", 2},
                                                  {"-o -", 2},
                                                  {"-o - --json", 2},
                                                  {"x.pgm --stream Mono12:66x34 -o -", 2},
                                                  {"--stream Mono12:66x34 --uncertainty -o -", 2},
                                                  {"--stream Mono12:66x34 --format pgm -o -", 2},
                                                  {"--stream Mono12:66x34 --overwrite -o -", 2}};
    for (const auto& [pWords, iExit] : aCases) {
        EXPECT_EQ(fnShell(pWords, " >" + file("out")).iExit, iExit) << pWords;
    }
    const json told = json::parse(fnShell("--stream Mono12:66x34 --json -o " + file("again")).strOut);
    for (const char* pMember : {"frames", "corrected", "written"}) {
        EXPECT_EQ(told.value(pMember, 0), 9) << pMember;
    }
    EXPECT_EQ(told.value("untouched", json()), json::array());
    EXPECT_EQ(told.value("/judgement/verdict"_json_pointer, ""), "good");
    run(withPair({"correct", "--stream", "Mono12:66x34", "-o", file("files"), file("made/raw")}), 2, "--stream");
    const ProgramResult empty = fnShell("--stream Mono12:66x34 -o " + file("none"), " </dev/null");
    EXPECT_EQ(empty.iExit, 3);
    EXPECT_THAT(empty.strErr, HasSubstr("standard input is empty"));
    // A closed input was waited for without end, and samples above full scale came out as saturated ones.
    EXPECT_THAT(fnShell("--stream Mono12:66x34 -o -", " <&- >" + file("out")).strErr, HasSubstr("cannot be read"));
    std::ofstream(file("high"), std::ios::binary) << std::string(2 * 66 * 34, '\x10');
    EXPECT_THAT(fnShell("--stream Mono12:66x34 -o -", " <" + file("high") + " >" + file("out")).strErr,
                HasSubstr("frame 0 has a sample of 4112, above the full scale of Mono12"));
    std::ofstream(file("raw"), std::ios::binary | std::ios::app) << "half";
    const ProgramResult cut = fnShell("--stream Mono12:66x34 -o -", " >" + file("out"));
    EXPECT_EQ(cut.iExit, 3);
    EXPECT_THAT(cut.strErr, HasSubstr("ends within a frame: 4 of 4488 bytes"));
    EXPECT_TRUE(content(file("out")) == fnRaw("made")) << "the whole ones before it are there";
}

// Once a limit of size ended the program and left half a file behind, and with closed streams warnings could end up in
// frames.
TEST_F(Command, LimitsAreToldAndClosedStreamsHarmNoFrame) {
    const std::string strDevice = "sim:7?width=64&height=48";
    recordPair(strDevice);
    run(withPair({"run", "-d", strDevice, "-n", "4", "--raw", "-o", file("made")}));
    const auto fnShell = [&](const std::string& strBefore, const std::string& strOut, const std::string& strAfter) {
        return runProgram("/bin/sh", {"-c", strBefore + " exec " XAPEL2_SHADING_PROGRAM " correct --dark " +
                                                file("dark.tif") + " --light " + file("light.tif") + " -o " +
                                                file(strOut) + " " + file("made/raw") + strAfter});
    };
    const ProgramResult limited = fnShell("ulimit -f 4;", "limited", "");
    EXPECT_EQ(limited.iExit, 3);
    EXPECT_THAT(limited.strErr, HasSubstr("cannot write: File too large"));
    EXPECT_TRUE(fs::is_empty(file("limited")));
    EXPECT_EQ(fnShell("", "closed", " <&- >&- 2>&-").iExit, 3) << "the summary cannot be told";
    EXPECT_TRUE(contents("closed") == contents("made"));
}

// The references lie beside the frames, as they often do.
TEST_F(Command, FoldersAndPatternsStandForTheirFiles) {
    const std::string strDevice = "sim:7?width=64&height=48";
    recordPair(strDevice);
    run(withPair({"run", "-d", strDevice, "-n", "12", "--raw", "-o", file("made")}));
    fs::rename(file("made/raw/scene_0003.pgm"), file("THREE.PGM"));
    for (const char* pName : {"scene_0010.pgm", "scene_0011.pgm", "scene_0001.pgm"}) {
        fs::rename(file("made/raw/") + pName, file(pName));
    }
    std::ofstream(file("scene_0001.uncertainty.tif")) << "no frame";
    EXPECT_EQ(run(withPair({"correct", "-o", file("folder"), m_folder.path().string()})).value("written", 0), 4);
    EXPECT_EQ(run(withPair({"correct", "-o", file("pattern"), file("scene_001?.pgm")})).at("written"), 2);
    EXPECT_THAT(filesIn("pattern"),
                ::testing::ElementsAre(file("pattern/scene_0010.pgm"), file("pattern/scene_0011.pgm")));
    run(withPair({"correct", "-o", file("none"), file("x*.pgm")}), 2, "no file matches");
    fs::create_directory(file("empty"));
    run(withPair({"correct", "-o", file("none"), file("empty")}), 2, "has no image file");
    EXPECT_FALSE(fs::exists(file("none")));
}

// The rows of a line are no frames: of two frames it is warned, and a report knows which frames it took.
TEST_F(Command, ALineTellsItsFramesAndItsRows) {
    const std::string strDevice = "sim:7?width=64&height=48";
    for (const char* pKind : {"dark", "light"}) {
        const json told =
            run({"record", pKind, "-d", strDevice, "-n", "2", "--line", "-o", file(pKind + std::string(".tif"))});
        EXPECT_THAT(told.dump(), HasSubstr("few-frames"));
    }
    const auto line = XAPEL2::StandIn::readReferenceFile(file("light.tif"));
    EXPECT_TRUE(line.isLine());
    EXPECT_EQ(line.nImages, 2U);
    EXPECT_EQ(line.nRows, 48U);
    EXPECT_EQ(run(withPair({"run", "-d", strDevice, "-n", "2"})).at("corrected"), 2);
}

TEST_F(Command, SettingsAreListedWithWhatTheyTake) {
    const json listed = run({"settings", "-d", "sim:7?width=64&height=48&sensorwidth=96&exposure=1234"});
    std::map<std::string, json> byName;
    for (const json& rNode : listed.at("settings")) {
        byName[rNode.at("name")] = rNode;
    }
    EXPECT_EQ(byName["ExposureTime"].at("value"), "1234");
    EXPECT_EQ(byName["OffsetX"].at("max"), 32);
    EXPECT_EQ(byName["Width"].at("min"), 1);
    EXPECT_EQ(byName["StandInScene"].at("entries"), json({"Dark", "Light", "Scene"}));
    EXPECT_THAT(byName["PixelFormat"].at("entries"), ::testing::Contains("BayerRG12p"));
    EXPECT_EQ(byName["DeviceSerialNumber"].at("writable"), false);
    EXPECT_EQ(byName["SensorWidth"].at("value"), "96");
    const ProgramResult text = runProgram(XAPEL2_SHADING_PROGRAM, {"settings", "-d", "sim:7?width=64&height=48"});
    EXPECT_THAT(text.strOut, HasSubstr("Width                   64                1 to 64\n"));
    EXPECT_THAT(text.strOut, HasSubstr("DeviceSerialNumber      7                 read-only\n"));
    run({"settings"}, 2, "--device is missing");
    run({"settings", "-d", "nothing"}, 3, "nothing");
}

// What correction adds is told in milliseconds, and the slowest frames are not the median.
TEST_F(Command, TimeThatCorrectionAddsIsPartOfTheRun) {
    const std::string strDevice = "sim:7?width=1000&height=800";
    for (const char* pKind : {"dark", "light"}) {
        run({"record", pKind, "-d", strDevice, "-n", "2", "-o", file(pKind + std::string(".tif"))});
    }
    run(withPair({"run", "-d", strDevice, "-n", "8", "--raw", "-o", file("frames")}));
    const json told =
        run(withPair({"run", "-d", "replay:" + file("frames/raw"), "-n", "8", "--raw", "-o", file("again")}));
    const double dMedianMs = told.at("addedMs").at("median"), dP99Ms = told.at("addedMs").at("p99");
    EXPECT_GT(dMedianMs, 0.0);
    EXPECT_GT(dP99Ms, dMedianMs);
    // Half of the frames took as long or longer.
    EXPECT_LT(4.0 * dMedianMs, 1e3 * 8.0 / told.at("rate").get<double>());
    EXPECT_EQ(told.at("addedMs").at("method"), "correction alone");
}

// The command output says what was before and what is now, and writes what it says.
TEST_F(Command, OutputOfAReferenceIsSetAndTold) {
    recordPair("sim:7?width=96&height=64&sensorwidth=128&sensorheight=80&offsetx=16&offsety=8");
    std::ofstream(file("list.csv")) << "16,8\n20,9,2,1\n0,0\n";
    const Words vecSet = {"output", file("light.tif")};
    const auto fnSet = [&](Words vecMore, bool bWritten) {
        vecMore.insert(vecMore.begin(), vecSet.begin(), vecSet.end());
        const json told = run(vecMore);
        EXPECT_EQ(told.at("written"), bWritten) << ::testing::PrintToString(vecMore);
        return told;
    };
    const auto fnChange = [](const char* pBefore, const char* pAfter) {
        return json({{"before", pBefore}, {"after", pAfter}});
    };
    json told = fnSet({"--target", "1500.5", "--pedestal", "16", "--defects", file("list.csv")}, true);
    EXPECT_EQ(told.at("target"), fnChange("mean", "1500.50 DN"));
    EXPECT_EQ(told.at("pedestal"), fnChange("0.00 DN", "16.00 DN"));
    EXPECT_EQ(told.at("defects"), fnChange("0", "3"));
    EXPECT_EQ(told.at("outside"), 1);
    auto reference = XAPEL2::StandIn::readReferenceFile(file("light.tif"));
    EXPECT_EQ(reference.output.eTarget, XAPEL2::StandIn::eTargetValue);
    EXPECT_EQ(reference.output.dTarget, 1500.5);
    EXPECT_EQ(reference.output.dPedestal, 16.0);
    ASSERT_EQ(reference.vecDefects.size(), 96U * 64U);
    EXPECT_TRUE(reference.vecDefects[0] && reference.vecDefects[96 + 4] && reference.vecDefects[96 + 5]);

    told = fnSet({"--export", file("out.csv")}, false);
    EXPECT_EQ(told.at("target"), fnChange("1500.50 DN", "1500.50 DN"));
    EXPECT_EQ(content(file("out.csv")), "x,y\n16,8\n20,9\n21,9\n");
    const ProgramResult result =
        runProgram(XAPEL2_SHADING_PROGRAM, {"output", file("light.tif"), "--target", "max", "--defects", "none"});
    EXPECT_EQ(result.strOut, "Target: max (was 1500.50 DN)\nPedestal: 16.00 DN, unchanged\nDefects: 0 (was 3)\n" +
                                 file("light.tif") + ": written\n");
    told = fnSet({"--target", "mean", "--pedestal", "0"}, true);
    EXPECT_EQ(told.at("target"), fnChange("max", "mean"));
    reference = XAPEL2::StandIn::readReferenceFile(file("light.tif"));
    EXPECT_TRUE(reference.output.isDefault() && reference.vecDefects.empty());

    const std::pair<Words, const char*> aRefused[] = {{{"--target", "0"}, "up to 4095 DN"},
                                                      {{"--target", "4095.5"}, "up to 4095 DN"},
                                                      {{"--pedestal", "2048"}, "half of full scale, 2047.5 DN"},
                                                      {{"--defects", "find", "--dark", file("light.tif")}, "no dark"}};
    for (const auto& [rWords, pSaid] : aRefused) {
        Words vecWords = vecSet;
        vecWords.insert(vecWords.end(), rWords.begin(), rWords.end());
        run(vecWords, 2, pSaid);
    }
    run({"output", file("dark.tif"), "--target", "max"}, 2, "is a dark reference");
}

// Out as floating-point images, as other programs take and make them, and back again.
TEST_F(Command, MastersOfOtherProgramsBecomeReferences) {
    using XAPEL2::StandIn::readReferenceFile;
    recordPair("sim:7?width=64&height=48");
    const Words vecFrom = {"record", "light", "--from", file("light.tif"), "-o", file("own.tif")};
    const auto fnWith = [](Words vecWords, const Words& rMore) {
        vecWords.insert(vecWords.end(), rMore.begin(), rMore.end());
        return vecWords;
    };
    const json told = run(fnWith(vecFrom, {"--pixel-format", "Mono12", "-n", "16"}));
    EXPECT_EQ(told.value("from", ""), file("light.tif"));
    EXPECT_EQ(told.value("kind", ""), "light");
    EXPECT_EQ(told.value("frames", 0), 16);
    EXPECT_EQ(told.value("saturatedShare", -1.0), 0.0);
    EXPECT_EQ(told.value("settingsFiled", true), false);
    const auto own = readReferenceFile(file("own.tif")), made = readReferenceFile(file("light.tif"));
    EXPECT_EQ(own.vecSamples, made.vecSamples);
    EXPECT_NEAR(own.dMean, made.dMean, 1e-3);
    EXPECT_EQ(own.nImages, 16U);
    // Of a mean nobody knows the noise, and with it neither the gain nor how sure the figures are.
    const json judged = run({"check", file("dark.tif"), file("own.tif")});
    EXPECT_TRUE(judged.at("light").at("temporalNoise").is_null());
    const json figures = judged.at("pair").at("nonUniformity").at("classes").at(0);
    EXPECT_TRUE(figures.at("prnuPercent").at("total").is_number());
    EXPECT_TRUE(figures.at("prnuPercentUncertainty").at("total").is_null());
    run({"run", "-d", "sim:7?width=64&height=48", "-n", "2", "--dark", file("dark.tif"), "--light", file("own.tif")});

    run({"output", file("light.tif"), "--dark", file("dark.tif"), "--gain", file("gain.tif")});
    run({"record", "light", "--from", file("gain.tif"), "--pixel-format", "Mono8", "--force", "-o", file("gains.tif")});
    EXPECT_NEAR(readReferenceFile(file("gains.tif")).dMean, 1.0, 0.1) << "as many above as below";

    run(vecFrom, 2, "--pixel-format Mono12");
    run(fnWith(vecFrom, {"--pixel-format", "Mono9"}), 2, "no format Mono9");
    run(fnWith(vecFrom, {"--pixel-format", "Mono12", "-d", "sim"}), 2, "two sources");
    for (const Words& rMore : {Words{"--line"}, Words{"--keep-outliers"}, Words{"--timeout", "10"}}) {
        run(fnWith(vecFrom, fnWith({"--pixel-format", "Mono12"}, rMore)), 2, rMore[0]);
    }
    run({"record", "light", "-d", "sim", "--pixel-format", "Mono8", "-o", file("own.tif")}, 2, "--pixel-format");
    run(fnWith(vecFrom, {"--pixel-format", "RGB8"}), 3, "do not fit the pixel format");
    run(fnWith(vecFrom, {"--pixel-format", "Mono8"}), 3, "no number from 0 to full scale");
    run({"record", "light", "-o", file("own.tif")}, 2, "--from");
    EXPECT_EQ(readReferenceFile(file("own.tif")).vecSamples, made.vecSamples) << "an older one stays";
}

TEST_F(Command, RecordingTellsWhatIsInTheFile) {
    const json told =
        run({"record", "light", "-d", "sim:3?width=64&height=48&fps=50", "-n", "5", "-o", file("light.tif")});
    EXPECT_EQ(told.at("frames"), 5);
    EXPECT_LE(told.at("rate").get<double>(), 65.0);
    EXPECT_GE(told.at("rate").get<double>(), 1.0);
    EXPECT_EQ(told.at("settingsFiled"), true);
    const auto reference = XAPEL2::StandIn::readReferenceFile(file("light.tif"));
    EXPECT_EQ(reference.nImages, 5U);
    EXPECT_DOUBLE_EQ(told.at("saturatedShare").get<double>(), reference.dSaturatedShare);
    EXPECT_NEAR(told.at("judgement").at("mean").get<double>(), reference.dMean, 1e-3);
    EXPECT_EQ(json::parse(reference.strCamera).at("ExposureTime"), 10000);
}

TEST_F(Command, ReferencesAreJudgedAgainstTheCamera) {
    const std::string strCamera = "sim:7?width=64&height=48&sensorwidth=96&sensorheight=48";
    recordPair(strCamera);
    const struct {
        const char *pSettings, *pSaid;
        int iExit, iForcedExit;
    } aRows[] = {
        {"", "", 0, 0},
        {"&exposure=20000", "warning: ", 0, 0},
        {"&offsetx=16", "refused: ", 1, 1},
        {"&reversex=1", "refused: ", 1, 1},
        {"&offsetx=32&reversex=1", "", 0, 0},  // the same pixels, mirrored
        {"&format=Mono8", "refused: ", 1, 1},
    };
    for (const auto& rRow : aRows) {
        const Words vecWords = withPair({"run", "-n", "2", "-d", strCamera + rRow.pSettings});
        const json told = run(vecWords, rRow.iExit, rRow.pSaid);
        EXPECT_EQ(told.at("judgement").at("verdict") == "good", rRow.pSaid[0] == '\0');
        run(withForce(vecWords), rRow.iForcedExit, rRow.pSaid);
    }
    run(withPair({"run", "-n", "2", "-d", "sim:7?width=32&height=40&offsetx=16&sensorwidth=96&sensorheight=48"}));
    const json other = run(withPair({"run", "-n", "2", "-d", "sim:8?width=64&height=48&sensorwidth=96"}), 0,
                           "(serial number 7), this is simulated camera, seed 8 (serial number 8)");
    EXPECT_EQ(other.at("judgement").at("camera").at(0).at("id"), "other-camera");
    run({"record", "light", "-d", "sim:8?width=64&height=48&sensorwidth=96", "-n", "16", "-o", file("other.tif")});
    const json pair = run({"check", file("dark.tif"), file("other.tif")});
    EXPECT_EQ(pair.at("pair").at("findings").at(0).at("id"), "other-camera");
    EXPECT_EQ(pair.at("light").at("camera").at("DeviceSerialNumber"), "8");
    EXPECT_EQ(pair.at("light").at("camera").at("Recorded").get<std::string>().size(), 20U);
    run({"record", "light", "-d", "sim:8?width=64&height=48", "-n", "16", "-o", file("other.tif")});
    run({"check", file("dark.tif"), file("other.tif")}, 1, "sensor of 64 x 48");
    // What the library writes by itself tells nothing of the camera.
    for (const char* pName : {"dark.tif", "light.tif"}) {
        XAPEL2::StandIn::ReferenceImage image = XAPEL2::StandIn::readReferenceFile(file(pName));
        image.strCamera.clear();
        image.geometry = {};
        XAPEL2::StandIn::writeReferenceFile(file(pName), image);
    }
    const Words vecUnknown = withPair({"run", "-n", "2", "-d", strCamera + "&offsetx=16"});
    run(vecUnknown, 0, "note: Not compared");
    Words vecQuiet = vecUnknown;
    vecQuiet.push_back("-q");
    EXPECT_EQ(runProgram(XAPEL2_SHADING_PROGRAM, vecQuiet).strErr, "");
}

// The processor would refuse it too, in its own words.
TEST_F(Command, PairThatFitsNoFramesIsRefusedByJudgement) {
    const std::string strDevice = "sim:7?width=64&height=48";
    recordPair(strDevice);
    run(withPair({"run", "-d", strDevice, "-n", "1", "--raw", "-o", file("made")}));
    fs::remove(file("dark.tif"));
    run({"record", "dark", "-d", "sim:7?width=66&height=48", "-n", "16", "-o", file("dark.tif")});
    run(withPair({"correct", "-o", file("none"), file("made/raw")}), 1,
        "refused: The dark reference is Mono12, 66 x 48");
    EXPECT_FALSE(fs::exists(file("none")));
}

TEST_F(Command, SaturatedReferenceIsRefusedWithTheNumber) {
    // An exposure that saturates some percent of the image, not all of it.
    for (unsigned iExposureUs = 16000; iExposureUs < 20000; iExposureUs += 100) {
        const std::string strDevice = "sim:7?width=160&height=120&exposure=" + std::to_string(iExposureUs);
        const Words vecWords = {"record", "light", "-d", strDevice, "-n", "2", "-o", file("light.tif")};
        fs::remove(file("light.tif"));
        const ProgramResult result = runProgram(XAPEL2_SHADING_PROGRAM, vecWords);
        const double dPercent = XAPEL2::StandIn::readReferenceFile(file("light.tif")).dSaturatedShare * 100.0;
        ASSERT_EQ(result.iExit, dPercent > 1.0 ? 1 : 0) << dPercent << " % at " << iExposureUs << " us";
        if (dPercent > 3.0) {
            char acNumber[32];
            std::snprintf(acNumber, sizeof acNumber, "%.2f %%", dPercent);
            const std::string strRefused = content(file("light.tif"));
            std::ofstream(file("light.tif")) << "older";
            run(vecWords, 1, acNumber);
            EXPECT_EQ(content(file("light.tif")), "older");
            EXPECT_THAT(m_folder.names(), ::testing::ElementsAre("light.tif"));
            std::ofstream(file("light.tif")) << strRefused;
            run({"run", "-d", strDevice, "--light", file("light.tif"), "-n", "1"}, 1, "Light reference: ");
            run(withForce(vecWords));
            EXPECT_LT(dPercent, 5.0);
            return;
        }
    }
    FAIL() << "no exposure saturates";
}

// Once -q left a warning nowhere.
TEST_F(Command, QuietLeavesWarningsOnStderr) {
    const std::string strDim = "sim:7?width=64&height=48&exposure=300";
    recordPair("sim:7?width=64&height=48");
    run({"record", "light", "-d", strDim, "-n", "16", "-o", file("dim.tif")});
    const Words aCases[] = {
        {"record", "light", "-d", strDim, "-n", "16", "-o", file("again.tif")},
        {"record", "light", "--from", file("dim.tif"), "--pixel-format", "Mono12", "-n", "16", "-o", file("own.tif")},
        {"check", file("dark.tif"), file("dim.tif")}};
    for (Words vecWords : aCases) {
        const ProgramResult usual = runProgram(XAPEL2_SHADING_PROGRAM, vecWords);
        EXPECT_THAT(usual.strErr, ::testing::Not(HasSubstr("warning: "))) << "standard output tells it";
        vecWords.push_back("-q");
        const ProgramResult quiet = runProgram(XAPEL2_SHADING_PROGRAM, vecWords);
        EXPECT_EQ(quiet.iExit, 0);
        EXPECT_EQ(quiet.strOut, "");
        EXPECT_THAT(quiet.strErr, HasSubstr("warning: ")) << vecWords[0] << usual.strOut;
    }
}

TEST_F(Command, FailureHasItsExitCodeAndSaysWhatToDo) {
    const std::string strCamera = "sim:7?width=32&height=32";
    recordPair(strCamera);
    run(withPair({"run", "-d", strCamera, "-n", "2", "--format", "tiff", "-o", file("frames")}));
    const std::string strFrame = filesIn("frames").at(0), strBefore = content(strFrame);
    fs::create_directories(file("other"));
    fs::create_directories(file("replay"));
    fs::copy_file(strFrame, file("replay/light_1.tif"));
    fs::create_hard_link(strFrame, file("other/") + fs::path(strFrame).filename().string());
    std::ofstream(file("text.tif")) << "text";
    const auto fnCorrect = [&](const Words& rMore) {
        return withPair({"correct", strFrame, "--format", "tiff", "-o"}, rMore);
    };
    const struct {
        Words vecWords;
        int iExit;
        const char* pSaid;
    } aRows[] = {
        {{"run", "-d", strCamera}, 2, "--light"},
        {withPair({"run", "-d", strCamera, "-n", "2", "--format", "tiff", "-o", file("frames")}), 2, "--overwrite"},
        {fnCorrect({file("frames")}), 2, "source"},
        {fnCorrect({file("frames"), "--overwrite"}), 2, "source"},
        {fnCorrect({file("other"), "--overwrite"}), 2, "source"},
        {fnCorrect({file("new"), file("text.tif")}), 3, "text.tif"},
        {fnCorrect({file("new"), file("other/") + fs::path(strFrame).filename().string()}), 2, "by itself"},
        {{"record", "dark", "-d", strCamera, "-o", file("no/dark.tif")}, 3, "create it"},
        {{"record", "dark", "-d", "simulated", "-o", file("d.tif")}, 3, "simulated"},
        {{"record", "dark", "-d", strCamera + "&fps=1", "--timeout", "0.05", "-o", file("d.tif")}, 3, "--timeout"},
        {{"run", "-d", strCamera, "--light", file("dark.tif")}, 2, "--dark"},
        {{"run", "-d", strCamera, "--light", file("text.tif")}, 3, "text.tif"},
        {{"record", "light", "-d", "replay:" + file("replay"), "-o", file("replay/light_1.tif")}, 2, "source"},
        {{"run", "-d", "replay:" + file("none"), "--light", file("light.tif")}, 3, "none"},
        {{"run", "-d", "replay:" + file("replay") + "?format=Mono12", "--light", file("light.tif")}, 2, "--scene"},
        {{"run", "-d", strCamera, "-n", "0"}, 2, "1000000000"},
        {{"check", file("dark.tif"), file("dark.tif")}, 1, "refused: "},
        {withPair({"report", "-o", file("dark.tif")}), 2, "source"},
    };
    for (const auto& rRow : aRows) {
        EXPECT_FALSE(run(rRow.vecWords, rRow.iExit, rRow.pSaid).empty());
    }
    EXPECT_EQ(content(strFrame), strBefore);
    EXPECT_THAT(m_folder.names(),
                ::testing::UnorderedElementsAre("dark.tif", "light.tif", "frames", "other", "replay", "text.tif"));
    for (const Words& rUse :
         std::vector<Words>{{}, {"record"}, {"record", "grey", "-d", "sim", "-o", "x"}, {"run", "-n", "0"}}) {
        EXPECT_EQ(runProgram(XAPEL2_SHADING_PROGRAM, rUse).iExit, 2) << ::testing::PrintToString(rUse);
    }
}

TEST_F(Command, DevicesListsWhatCanBeOpened) {
    const json told = run({"devices"});
    ASSERT_FALSE(told.at("devices").empty());
    const json& rFirst = told.at("devices")[0];
    EXPECT_EQ(rFirst.at("id"), "sim");
    EXPECT_EQ(rFirst.at("pixelFormat"), "Mono12");
    EXPECT_EQ(rFirst.at("width"), 1024);
    EXPECT_EQ(rFirst.at("height"), 768);
    EXPECT_THAT(runProgram(XAPEL2_SHADING_PROGRAM, {"devices"}).strOut, HasSubstr(", Mono12, 1024 x 768\n"));
}

TEST_F(Command, WhatCannotBePrintedIsAnError) {
    for (const char* pWords : {"--help", "--version", "correct --help", "devices", "devices --json"}) {
        const ProgramResult result =
            runProgram("/bin/sh", {"-c", std::string("exec " XAPEL2_SHADING_PROGRAM " ") + pWords + " > /dev/full"});
        EXPECT_EQ(result.iExit, 3) << pWords;
        EXPECT_THAT(result.strErr, HasSubstr("standard output cannot be written: No space left")) << pWords;
    }
}

// One frame a second: the signal meets a fetch that waits.
TEST_F(Command, InterruptEndsInOrder) {
    const std::string strSlow = "sim:7?width=32&height=32&fps=1";
    recordPair("sim:7?width=32&height=32");
    const struct {
        Words vecWords;
        int iSignal, iExit;
    } aRows[] = {
        {{"record", "dark", "-d", strSlow, "-n", "1000", "-o", file("dark.tif")}, SIGINT, -1},
        {{"record", "dark", "-d", strSlow, "-n", "1000", "-o", file("new.tif")}, SIGTERM, -1},
        {withPair({"run", "-d", strSlow, "-n", "1000"}), SIGINT, -1},
        {withPair({"run", "-d", strSlow}), SIGINT, 0},
        {withPair({"run", "-d", strSlow}), SIGHUP, 0},
    };
    const std::string strBefore = content(file("dark.tif"));
    // A pipe that stays open behind two frames.
    CProgram pipe("/bin/bash", {"-c", "exec " XAPEL2_SHADING_PROGRAM " correct - --stream Mono12:32x32 --dark " +
                                          file("dark.tif") + " --light " + file("light.tif") + " -o " + file("piped") +
                                          " < <(head -c 4096 /dev/zero; exec sleep 60)"});
    ASSERT_TRUE(XapelTest::eventually([&] { return fs::exists(file("piped/frame_000001.pgm")); }));
    pipe.signal(SIGINT);
    const ProgramResult piped = pipe.wait();
    EXPECT_EQ(piped.iSignal, SIGINT);
    EXPECT_THAT(piped.strOut, HasSubstr("2 corrected frames written to " + file("piped")));
    fs::remove_all(file("piped"));
    for (const auto& rRow : aRows) {
        CProgram program(XAPEL2_SHADING_PROGRAM, rRow.vecWords);
        ASSERT_TRUE(XapelTest::eventually([&] { return program.out().find("from sim") != std::string::npos; }));
        program.signal(rRow.iSignal);
        const ProgramResult result = program.wait();
        EXPECT_EQ(result.iExit, rRow.iExit) << result.strErr;
        EXPECT_EQ(result.iSignal, rRow.iExit == 0 ? 0 : rRow.iSignal);
    }
    EXPECT_EQ(content(file("dark.tif")), strBefore);
    EXPECT_THAT(m_folder.names(), ::testing::UnorderedElementsAre("dark.tif", "light.tif"));
}
