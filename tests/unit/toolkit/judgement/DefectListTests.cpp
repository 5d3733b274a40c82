// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists of defective pixels.

#include "toolkit/judgement/DefectList.h"

#include <gtest/gtest.h>

#include <fstream>

#include "TemporaryFolder.h"

namespace XAPEL2 {
namespace Toolkit {
namespace {

StandIn::ReferenceImage light() {
    StandIn::ReferenceImage reference;
    reference.eKind = StandIn::eReferenceLight;
    reference.sLayout = {StandIn::findPixelFormat("Mono12"), 40, 30};
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

TEST(DefectList, RefusesWhatIsNoList) {
    for (const char* pText : {"1", "1,2,3", "1,2 x", "-1,2", "1.5,2", "1,2,0,1", "1e9,2", "{}", "[1]", "[{\"x\":1}]",
                              "{\"Bad pixels\":[{\"Pixel\":[1]}]}", "{\"Bad pixels\":[{\"Pixel\":[1,\"2\"]}]}",
                              "[{\"x\":1,\"y\":2,\"kind\":\"odd\"}]", "[{\"x\":1,\"y\":2}", "1,nan"}) {
        EXPECT_THROW(markedBy(pText), std::runtime_error) << pText;
    }
    EXPECT_THROW(readDefectList("/absent/list"), std::runtime_error);
}

TEST(DefectList, ReadsWhatItWrote) {
    const XAPEL2::Test::CTemporaryFolder folder;
    StandIn::ReferenceImage reference = light();
    reference.vecDefects.assign(40 * 30, 0);
    reference.vecDefects[77] = reference.vecDefects[500] = StandIn::eDefectByHand;
    for (const char* pName : {"list.csv", "list.json"}) {
        std::ofstream(folder / pName) << defectListText(folder / pName, reference);
        uint64_t nOutside = 0;
        EXPECT_EQ(defectMap(readDefectList(folder / pName), reference, nOutside), reference.vecDefects) << pName;
    }
}

TEST(DefectList, FindsInBothReferences) {
    StandIn::ReferenceImage bright = light(), dark = light();
    dark.eKind = StandIn::eReferenceDark;
    dark.vSamples.assign(1200, 50.0F);
    bright.vSamples.assign(1200, 2050.0F);
    dark.vSamples[100] = 400.0F;
    bright.vSamples[100] = 2400.0F;
    bright.vSamples[700] = 60.0F;
    bright.vSamples[900] = 3000.0F;
    const std::vector<uint8_t> vecMap = foundDefectMap(bright, &dark);
    EXPECT_EQ(vecMap[100], StandIn::eDefectHot);
    EXPECT_EQ(vecMap[700], StandIn::eDefectDead);
    EXPECT_EQ(vecMap[900], StandIn::eDefectUneven);
    EXPECT_EQ(countMarked(vecMap), 3U);
}

}  // namespace
}  // namespace Toolkit
}  // namespace XAPEL2
