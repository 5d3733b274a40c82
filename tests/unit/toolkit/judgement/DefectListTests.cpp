// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists of defective pixels.

#include "toolkit/judgement/DefectList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "TemporaryFolder.h"

namespace XAPEL2 {
namespace Toolkit {
namespace {

StandIn::ReferenceImage light() {
    StandIn::ReferenceImage reference;
    reference.eKind = StandIn::eReferenceLight;
    reference.layout = {StandIn::findPixelFormat("Mono12"), 40, 30};
    reference.strCamera = R"({"OffsetX":100,"OffsetY":8})";
    return reference;
}

std::vector<std::size_t> markedBy(const std::string& strText) {
    const XAPEL2::Test::CTemporaryFolder folder;
    std::ofstream(folder / "list") << strText;
    uint64_t nOutside = 0;
    const std::vector<uint8_t> vecMap = defectMap(readDefectList(folder / "list"), light(), nOutside);
    std::vector<std::size_t> vecMarked = {static_cast<std::size_t>(nOutside)};
    for (std::size_t i = 0; i < vecMap.size(); ++i) {
        if (vecMap[i] != 0) {
            vecMarked.push_back(i);
        }
    }
    return vecMarked;
}

TEST(DefectList, MarksPixelsWhereTheImageLiesOnTheSensor) {
    using Marked = std::vector<std::size_t>;
    EXPECT_EQ(markedBy("x,y\n# by hand\n\n100, 8\r\n101,9\n"), (Marked{0, 0, 41}));
    EXPECT_EQ(markedBy("138,37,3,2"), (Marked{4, 29 * 40 + 38, 29 * 40 + 39}));
    EXPECT_EQ(markedBy("0,0\n5,5,3,3\n900,900"), (Marked{11}));
    EXPECT_EQ(markedBy(R"([{"x":102,"y":8,"width":2},{"x":100,"y":9,"kind":"hot"}])"), (Marked{0, 2, 3, 40}));
    EXPECT_EQ(markedBy(R"({"Bad pixels":[{"Pixel":[100,10],"Median":[1,1]},{"Pixel":[103,8],"Set":5},
                          {"Pixel":[104,8],"Replace":[-1,0]}]})"),
              (Marked{0, 3, 4, 80}));
}

TEST(DefectList, ColumnsAreWhatTheirNamesSay) {
    using Marked = std::vector<std::size_t>;
    const std::pair<const char*, Marked> aRows[] = {
        {"x,y\n102,9\n", {0, 42}},
        {"y,x\n9,102\n", {0, 42}},
        {" Y , X\r\n 9 , 102\r\n", {0, 42}},
        {"\xEF\xBB\xBF\"x\",\"y\"\n102,9\n", {0, 42}},
        {"# by hand\n\ny x\n9 102\n", {0, 42}},
        {"width,height,x,y\n2,1,102,9\n", {0, 42, 43}},
        {"HEIGHT,y,Width,x\n1,9,2,102\n", {0, 42, 43}},
        {"x,y,width\n102,9,2\n100,8,\n100,9\n", {0, 0, 40, 42, 43}},
        {"x,y,width,height\n102,9\n100,8,,\n", {0, 0, 42}},
        {"x,y\n", {0}},
        {"[]", {0}},
        {"{\"Bad pixels\":[]}", {0}},
    };
    for (const auto& [pText, rMarked] : aRows) {
        EXPECT_EQ(markedBy(pText), rMarked) << pText;
    }
}

TEST(DefectList, RefusesWhatIsNoList) {
    for (const char* pText : {"1", "1,2,3", "1,2 x", "-1,2", "1.5,2", "1,2,0,1", "1e9,2", "{}", "[1]", "[{\"x\":1}]",
                              "{\"Bad pixels\":[{\"Pixel\":[1]}]}", "{\"Bad pixels\":[{\"Pixel\":[1,\"2\"]}]}",
                              "[{\"x\":1,\"y\":2,\"kind\":\"odd\"}]", "[{\"x\":1,\"y\":2}", "1,nan"}) {
        EXPECT_THROW(markedBy(pText), std::runtime_error) << pText;
    }
    EXPECT_THROW(readDefectList("/absent/list"), std::runtime_error);
}

TEST(DefectList, TellsWhatIsWrongWithALine) {
    const std::pair<const char*, const char*> aRows[] = {
        {"", "no list of defects; a CSV file has lines x,y or"},
        {"\n# nothing\n", "no list of defects"},
        {"\x7F"
         "ELF\x02\n",
         "no list of defects"},
        {"column,row\n1,2\n", "unknown column 'column'"},
        {"x,y,score\n1,2,3\n", "unknown column 'score'"},
        {"x,,y\n1,2\n", "unknown column ''"},
        {"x\n1\n", "there is no column 'y'"},
        {"width,height\n1,2\n", "there is no column 'x'"},
        {"x,y,X\n1,2,3\n", "there are two columns 'x'"},
        {"y,x\n1,2,3\n", "entry 1: not y,x, of which"},
        {"x,y,width\n1,2\n1,,2\n", "entry 2: not x,y,width, of which"},
        {"1,2,3", "entry 1: not x,y,width,height, of which"},
        {"width,height,x,y\n1,2\n", "entry 1: not width,height,x,y, of which"},
    };
    for (const auto& [pText, pSaid] : aRows) {
        try {
            markedBy(pText);
            ADD_FAILURE() << pText;
        } catch (const std::runtime_error& rError) {
            EXPECT_THAT(rError.what(), testing::HasSubstr(pSaid)) << pText;
        }
    }
}

TEST(DefectList, ReadsWhatItWrote) {
    const XAPEL2::Test::CTemporaryFolder folder;
    StandIn::ReferenceImage reference = light();
    reference.vecDefects.assign(40 * 30, 0);
    reference.vecDefects[77] = reference.vecDefects[500] = StandIn::eDefectByHand;
    for (const char* pName : {"list.csv", "list.CSV", "list.json"}) {
        const std::string strText = defectListText(folder / pName, reference);
        EXPECT_EQ(strText[0], pName[5] == 'j' ? '{' : 'x') << pName;
        std::ofstream(folder / pName) << strText;
        uint64_t nOutside = 0;
        EXPECT_EQ(defectMap(readDefectList(folder / pName), reference, nOutside), reference.vecDefects) << pName;
    }
}

TEST(DefectList, FindsInBothReferences) {
    StandIn::ReferenceImage bright = light(), dark = light();
    dark.eKind = StandIn::eReferenceDark;
    dark.vecSamples.assign(1200, 50.0F);
    bright.vecSamples.assign(1200, 2050.0F);
    dark.vecSamples[100] = 400.0F;
    bright.vecSamples[100] = 2400.0F;
    bright.vecSamples[700] = 60.0F;
    bright.vecSamples[900] = 3000.0F;
    const std::vector<uint8_t> vecMap = foundDefectMap(bright, &dark);
    EXPECT_EQ(vecMap[100], StandIn::eDefectHot);
    EXPECT_EQ(vecMap[700], StandIn::eDefectDead);
    EXPECT_EQ(vecMap[900], StandIn::eDefectUneven);
    EXPECT_EQ(countMarked(vecMap), 3U);
}

}  // namespace
}  // namespace Toolkit
}  // namespace XAPEL2
