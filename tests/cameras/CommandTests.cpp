// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The commands of README.md, on the simulated camera that Debian has in the package aravis-tools.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <nlohmann/json.hpp>

#include "Program.h"
#include "Rig.h"
#include "xapel2/XapelExceptions.h"

namespace XapelTest {
namespace {

using XAPEL2::Test::CProgram;
using XAPEL2::Test::CTemporaryFolder;

const std::string CAMERA = "aravis:127.0.0.1";

std::vector<std::vector<std::string>> readmeCommands() {
    std::vector<std::vector<std::string>> vecCommands;
    std::ifstream in(XAPEL2_README);
    for (std::string strLine; std::getline(in, strLine);) {
        const std::string strProgram = "    xapel2-shading ";
        if (strLine.rfind(strProgram, 0) == 0) {
            std::istringstream words(strLine.substr(strProgram.size()));
            vecCommands.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
        }
    }
    return vecCommands;
}

bool answers() {
    try {
        closeDevice(openDevice(CAMERA));
        return true;
    } catch (const XAPEL2::Exceptions::IException&) {
        return false;
    }
}

// Its picture is a ramp that moves on with each frame: black at an exposure time of 1000 us, and even in the mean of
// 255 frames.
std::vector<std::string> forCamera(std::vector<std::string> vecCommand) {
    const bool bDark = vecCommand[1] == "dark";
    for (std::string& rWord : vecCommand) {
        if (rWord == "sim") {
            rWord = CAMERA + (bDark ? "?ExposureTime=1000" : "?ExposureTime=10000&AcquisitionFrameRate=100");
        }
    }
    if (vecCommand[1] == "light") {
        vecCommand.insert(vecCommand.end(), {"-n", "255"});
    }
    return vecCommand;
}

TEST(CameraCommands, OfTheReadmeWorkOnDebiansSimulatedCamera) {
    const std::string strCamera = XAPEL2_FAKE_CAMERA_PROGRAM;
    if (strCamera.empty()) {
        ASSERT_EQ(std::getenv("XAPEL2_REQUIRE_CAMERAS"), nullptr) << "aravis-tools is not installed";
        GTEST_SKIP() << "aravis-tools is not installed";
    }
    const CTemporaryFolder folder;
    std::filesystem::current_path(folder.path());
    const CProgram camera(strCamera, {"-i", "127.0.0.1"});
    ASSERT_TRUE(eventually(answers));

    std::string strOut;
    const auto vecCommands = readmeCommands();
    ASSERT_EQ(vecCommands.size(), 5U);
    for (const auto& rCommand : vecCommands) {
        const auto result = XAPEL2::Test::runProgram(XAPEL2_SHADING_PROGRAM, forCamera(rCommand));
        EXPECT_EQ(result.iExit, 0) << rCommand[0] << ": " << result.strErr;
        strOut += result.strOut;
    }
    EXPECT_NE(strOut.find("mean               0.0 DN"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("mean               127.0 DN"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("32 corrected, 0 left untouched"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("told without -o, or with --raw"), std::string::npos) << "no live frame is used up";
    const std::filesystem::directory_iterator frames("corrected");
    EXPECT_EQ(std::distance(begin(frames), end(frames)), 32);
    EXPECT_NE(XAPEL2::Test::content("report.html").find("</html>"), std::string::npos);
}

TEST(CameraCommands, BearLostPacketsAndTellThatTheCameraIsGone) {
    Rig rig(0.01);
    rig.pCamera->losePackets(0.1);  // two frames of five
    const std::string strCamera = rig.strId + "?PixelFormat=Mono8&Width=64&Height=64&AcquisitionFrameRate=200";
    const std::string strDark = rig.folder / "dark.tif", strLight = rig.folder / "light.tif";
    const auto fnRun = [&](const std::vector<std::string>& rArguments) {
        const auto result = XAPEL2::Test::runProgram(XAPEL2_SHADING_PROGRAM, rArguments);
        EXPECT_EQ(result.iExit, 0) << rArguments[0] << ": " << result.strErr;
        return result.strErr;
    };
    rig.scene.cover(true);
    const auto recorded = XAPEL2::Test::runProgram(
        XAPEL2_SHADING_PROGRAM, {"record", "dark", "-d", strCamera, "-n", "16", "-o", strDark, "--json"});
    EXPECT_NE(recorded.strErr.find("incomplete"), std::string::npos);
    const auto record = nlohmann::json::parse(recorded.strOut);
    EXPECT_EQ(record.at("frames"), 16);
    EXPECT_NE(recorded.strErr.find("left out of the reference: " + record.at("leftOut").dump() + " frame"),
              std::string::npos)
        << recorded.strErr << recorded.strOut;
    rig.scene.cover(false);
    fnRun({"record", "light", "-d", strCamera, "-n", "16", "-o", strLight});
    fnRun({"report", "-n", "8", "-d", strCamera, "--dark", strDark, "--light", strLight, "-o",
           rig.folder / "report.html"});

    // Each frame is either corrected or named as untouched.
    const auto lossy = XAPEL2::Test::runProgram(
        XAPEL2_SHADING_PROGRAM, {"run", "-d", strCamera, "--dark", strDark, "--light", strLight, "-n", "40", "--raw",
                                 "-o", rig.folder / "out", "--json"});
    const auto json = nlohmann::json::parse(lossy.strOut);
    ASSERT_EQ(json.at("untouched").size(), 1U) << lossy.strOut;
    const auto nUntouched = json.at("untouched").at(0).at("frames").get<uint64_t>();
    EXPECT_GT(nUntouched, 0U);
    EXPECT_EQ(json.at("corrected").get<uint64_t>(), 40 - nUntouched);
    EXPECT_EQ(json.at("written").get<uint64_t>(), 40 - nUntouched);
    EXPECT_EQ(json.at("frames"), 40);

    rig.pCamera->losePackets(0);
    CProgram run(XAPEL2_SHADING_PROGRAM,
                 {"run", "-d", strCamera, "--dark", strDark, "--light", strLight, "-n", "100000"});
    const uint64_t nBefore = rig.scene.frames();
    ASSERT_TRUE(eventually([&] { return rig.scene.frames() > nBefore + 400; }));
    rig.pCamera.reset();
    const auto begin = std::chrono::steady_clock::now();
    const auto result = run.wait();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_EQ(result.iExit, 3);
    EXPECT_NE(result.strErr.find("code -1010, the camera is lost: it does not answer"), std::string::npos)
        << result.strErr << "not only once the time-out is over";
}

}  // namespace
}  // namespace XapelTest
