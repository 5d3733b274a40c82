// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The sub-command output from outside: which pixels it marks, lists, and reads back.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "JsonProgram.h"
#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2::Test;
using nlohmann::json;
using ::testing::HasSubstr;

namespace {

using Words = std::vector<std::string>;

constexpr uint64_t WIDTH = 96, HEIGHT = 64;

class OutputCommand : public ::testing::Test {
protected:
    OutputCommand() {
        // Of this seed there are hot and dead pixels; the image begins off the sensor's corner.
        const std::string strDevice =
            "sim:7?sensorwidth=384&sensorheight=256&width=96&height=64&offsetx=32&offsety=16&format=Mono12";
        run({"record", "dark", "-d", strDevice, "-n", "4", "-o", file("dark.tif")});
        run({"record", "light", "-d", strDevice, "-n", "4", "-o", file("light.tif")});
        // Pixels that stand out, whatever the seed.
        change("dark.tif", [](auto& rImage) { rImage.vecSamples[5 * WIDTH + 7] = 2000.0F; });
        change("light.tif", [](auto& rImage) {
            rImage.vecSamples[20 * WIDTH + 30] = 100.0F;
            rImage.vecSamples[40 * WIDTH + 50] *= 1.5F;
        });
    }

    template <class TChange>
    void change(const std::string& strName, const TChange& fnChange) const {
        XAPEL2::StandIn::ReferenceImage image = XAPEL2::StandIn::readReferenceFile(file(strName));
        fnChange(image);
        XAPEL2::StandIn::writeReferenceFile(file(strName), image);
    }

    static json run(const std::vector<std::string>& rWords, int iExit = 0, const std::string& strSaid = "") {
        return runJson(XAPEL2_SHADING_PROGRAM, rWords, iExit, strSaid);
    }
    json output(Words vecMore, int iExit = 0, const std::string& strSaid = "") const {
        vecMore.insert(vecMore.begin(), {"output", file("light.tif")});
        return run(vecMore, iExit, strSaid);
    }
    std::string file(const std::string& strName) const { return m_folder / strName; }
    std::string list(const std::string& strName, const std::string& strText) const {
        std::ofstream(file(strName)) << strText;
        return file(strName);
    }
    std::vector<uint8_t> map() const { return XAPEL2::StandIn::readReferenceFile(file("light.tif")).vecDefects; }

    CTemporaryFolder m_folder;
};

}  // namespace

TEST_F(OutputCommand, FoundDefectsAreMarkedListedAndReadBack) {
    const json found = output({"--defects", "find", "--dark", file("dark.tif")});
    EXPECT_EQ(found.at("written"), true);
    const std::vector<uint8_t> vecFound = map();
    ASSERT_EQ(vecFound.size(), WIDTH * HEIGHT);
    EXPECT_EQ(vecFound[5 * WIDTH + 7] & XAPEL2::StandIn::eDefectHot, XAPEL2::StandIn::eDefectHot);
    EXPECT_EQ(vecFound[20 * WIDTH + 30], XAPEL2::StandIn::eDefectDead);
    EXPECT_EQ(vecFound[40 * WIDTH + 50], XAPEL2::StandIn::eDefectUneven);
    EXPECT_EQ(vecFound[30 * WIDTH + 30], 0);
    // Without the dark reference nobody knows which are hot.
    output({"--defects", "find"});
    EXPECT_EQ(map()[20 * WIDTH + 30], XAPEL2::StandIn::eDefectDead);
    output({"--defects", "find", "--dark", file("dark.tif")});

    for (const char* pList : {"defects.json", "defects.csv", "DEFECTS.CSV"}) {
        output({"--export", file(pList)});
        EXPECT_EQ(map(), vecFound) << "an export marks nothing";
        output({"--defects", "none"});
        EXPECT_TRUE(map().empty());
        const json read = output({"--defects", file(pList)});
        EXPECT_EQ(read.at("outside"), 0);
        EXPECT_EQ(read.at("defects").at("before"), "0");
        const std::vector<uint8_t> vecRead = map();
        ASSERT_EQ(vecRead.size(), vecFound.size());
        for (std::size_t i = 0; i < vecRead.size(); ++i) {
            EXPECT_EQ(vecRead[i] != 0, vecFound[i] != 0) << pList << ": pixel " << i;
        }
        output({"--defects", "find", "--dark", file("dark.tif")});
    }
}

TEST_F(OutputCommand, ListsAreInCoordinatesOfTheSensor) {
    // Two rows of three pixels at (8, 4) of the image, and one that is not on it.
    const json set = output({"--defects", list("list.csv", "x,y,width,height\n40,20,3,2\n# more\n1,1\n")});
    EXPECT_EQ(set.at("outside"), 1);
    EXPECT_EQ(set.at("defects").at("after"), "6");
    const std::vector<uint8_t> vecMap = map();
    ASSERT_EQ(vecMap.size(), WIDTH * HEIGHT);
    for (std::size_t i = 0; i < vecMap.size(); ++i) {
        const std::size_t nX = i % WIDTH, nY = i / WIDTH;
        const bool bMarked = nX >= 8 && nX < 11 && nY >= 4 && nY < 6;
        EXPECT_EQ(vecMap[i], bMarked ? XAPEL2::StandIn::eDefectByHand : 0) << nX << ' ' << nY;
    }
    EXPECT_EQ(output({"--pedestal", "0"}).at("written"), false) << "nothing has changed";
}

// One pixel of the sensor, in lists that go between references of one sensor.
TEST_F(OutputCommand, ListsGoBetweenMirroredAndBinnedReferences) {
    const std::string strSensor = "sim:7?sensorwidth=384&sensorheight=256";
    const struct {
        const char *pPlace, *pCsv;
        std::size_t iMarked;
    } aRows[] = {
        {"&width=384&height=256", "x,y\n294,43\n", 43 * 384 + 294},
        {"&width=384&height=256&reversex=1", "x,y\n294,43\n", 43 * 384 + 89},
        {"&width=384&height=256&reversey=1", "x,y\n294,43\n", 212 * 384 + 294},
        {"&binning=2&width=192&height=128", "x,y,width,height\n294,42,2,2\n", 21 * 192 + 147},
    };
    const std::string strList = list("one.csv", "x,y\n294,43\n");
    for (const auto& rRow : aRows) {
        const std::string strDevice = strSensor + rRow.pPlace;
        run({"record", "light", "-d", strDevice, "-n", "2", "-o", file("light.tif")});
        EXPECT_EQ(output({"--defects", strList}).at("outside"), 0) << rRow.pPlace;
        const std::vector<uint8_t> vecMap = map();
        ASSERT_GT(vecMap.size(), rRow.iMarked) << rRow.pPlace;
        EXPECT_EQ(vecMap.size() - static_cast<std::size_t>(std::count(vecMap.begin(), vecMap.end(), 0)), 1U);
        EXPECT_NE(vecMap[rRow.iMarked], 0) << rRow.pPlace;
        output({"--export", file("out.csv")});
        EXPECT_EQ(content(file("out.csv")), rRow.pCsv) << rRow.pPlace;
    }
}

// Once a gain map could take the place of the reference that it was made of.
TEST_F(OutputCommand, NothingIsWrittenOverWhatWasRead) {
    const std::string strList = list("list.csv", "40,20\n");
    std::filesystem::create_hard_link(file("light.tif"), file("link.tif"));
    const Words vecRead = {file("light.tif"), file("dark.tif"), strList};
    const auto fnContents = [&] {
        Words vecContents;
        for (const std::string& rFile : vecRead) {
            vecContents.push_back(content(rFile));
        }
        return vecContents;
    };
    const Words vecBefore = fnContents();
    for (const char* pOption : {"--gain", "--export"}) {
        for (const std::string& rFile : {vecRead[0], vecRead[1], vecRead[2], file("link.tif")}) {
            output({"--dark", file("dark.tif"), "--defects", strList, pOption, rFile}, 2, "is a source");
            EXPECT_TRUE(fnContents() == vecBefore) << pOption << ' ' << rFile;
        }
    }
    for (const std::string& rExport : {file("one.tif"), file("./one.tif")}) {
        output({"--target", "max", "--gain", file("one.tif"), "--export", rExport}, 2, "name one file");
        EXPECT_TRUE(fnContents() == vecBefore);
        EXPECT_FALSE(std::filesystem::exists(file("one.tif")));
    }
}

// A recording waits beside the file that it replaces, and once took the place of links and of what is read-only.
TEST_F(OutputCommand, RecordingsGoBehindLinksAndSpareWhatIsReadOnly) {
    namespace fs = std::filesystem;
    const Words vecRecord = {"record", "dark", "-d", "sim:7?width=96&height=64", "-n", "4", "-o"};
    const auto fnRecord = [&](const char* pName, int iExit, const std::string& strSaid) {
        Words vecWords = vecRecord;
        vecWords.push_back(file(pName));
        run(vecWords, iExit, strSaid);
    };
    fs::create_symlink("dark.tif", file("link.tif"));
    fs::create_symlink("new.tif", file("early.tif"));
    const std::string strBefore = content(file("dark.tif"));
    fnRecord("link.tif", 0, "");
    fnRecord("early.tif", 0, "");
    EXPECT_TRUE(fs::is_symlink(file("link.tif")) && fs::is_symlink(file("early.tif")));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file("new.tif"))));
    EXPECT_TRUE(content(file("dark.tif")) != strBefore);

    fs::permissions(file("dark.tif"), fs::perms::owner_read);
    const std::string strKept = content(file("dark.tif"));
    for (const char* pName : {"dark.tif", "link.tif"}) {
        fnRecord(pName, 3, "read-only");
        EXPECT_TRUE(content(file("dark.tif")) == strKept);
    }
}

TEST_F(OutputCommand, WhatIsWrongIsRefusedAndChangesNothing) {
    output({"--target", "1500", "--pedestal", "8.5", "--defects", list("good.csv", "40,20\n")});
    const std::string strBefore = content(file("light.tif"));
    const struct {
        Words vecWords;
        int iExit;
        const char* pSaid;
    } aRows[] = {
        {{"--target", "0"}, 2, "--target"},
        {{"--target", "0.5"}, 2, "--target"},
        {{"--target", "4096"}, 2, "4095 DN"},
        {{"--target", "4000", "--pedestal", "95"}, 2, "4095.00 DN together"},
        {{"--target", "nan"}, 2, "--target"},
        {{"--target", "100x"}, 2, "--target"},
        {{"--pedestal", "2048"}, 2, "half of full scale"},
        {{"--pedestal", "32767.5"}, 2, "half of full scale"},
        {{"--pedestal", "32767.6"}, 2, "takes a number from 0 to 32767.5"},
        {{"--pedestal", "-1"}, 2, "--pedestal"},
        {{"--defects", "find", "--dark", file("light.tif")}, 2, "is no dark reference"},
        {{"--defects", file("missing.csv")}, 3, "missing.csv"},
        {{"--defects", "finf"}, 3, "takes find, none or"},
        {{"--defects", list("words.csv", "x,y\n40,abc\n")}, 3, "words.csv"},
        {{"--defects", list("negative.csv", "-1,4\n")}, 3, "negative.csv"},
        {{"--defects", list("one.csv", "40\n")}, 3, "one.csv"},
        {{"--defects", list("empty.csv", "")}, 3, "no list of defects"},
        {{"--defects", list("junk.csv", "\x7F\x02")}, 3, "no list of defects"},
        {{"--defects", list("score.csv", "x,y,score\n40,20,1\n")}, 3, "unknown column 'score'"},
        {{"--defects", list("cut.json", "[{\"x\": 40, \"y\": ")}, 3, "cut.json"},
        {{"--defects", list("other.json", "{\"pixels\": []}")}, 3, "other.json"},
        {{"--defects", list("all.csv", "32,16,96,64\n")}, 2, "more than a reference of this size"},
    };
    for (const auto& rRow : aRows) {
        output(rRow.vecWords, rRow.iExit, rRow.pSaid);
        EXPECT_EQ(content(file("light.tif")), strBefore) << ::testing::PrintToString(rRow.vecWords);
    }
    run({"output", file("dark.tif"), "--target", "max"}, 2, "is a dark reference");
    run({"output", file("missing.tif"), "--target", "max"}, 3, "missing.tif");
    output({"--export", file("nowhere/list.csv")}, 3, "nowhere");
    for (const char* pName : {"list.txt", "list", "csv"}) {
        output({"--target", "max", "--export", file(pName)}, 2, "ends in .csv or .json");
        EXPECT_EQ(content(file("light.tif")), strBefore) << pName;
        EXPECT_FALSE(std::filesystem::exists(file(pName)));
    }
}
