// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists of defective pixels.

#include "toolkit/judgement/DefectList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

StandIn::ReferenceImage placed(const char* pFormat, const StandIn::GeometryAxis& rX, uint64_t nWidth,
                               const StandIn::GeometryAxis& rY, uint64_t nHeight) {
    StandIn::ReferenceImage reference = light();
    reference.layout = {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
    reference.geometry = {rX, rY};
    reference.vecDefects.assign(static_cast<std::size_t>(nWidth * nHeight), 0);
    return reference;
}

TEST(DefectList, TellsPixelsOfTheSensor) {
    const StandIn::eBinningMode eSum = StandIn::eBinningSum;
    const StandIn::GeometryAxis x{400, 0, 1, eSum, false}, y{300, 0, 1, eSum, false};
    const StandIn::GeometryAxis mirroredX{400, 8, 1, eSum, true}, binnedX{400, 4, 2, eSum, false};
    const StandIn::GeometryAxis mirroredY{300, 0, 3, eSum, true}, tooShort{30, 0, 1, eSum, false};
    const struct {
        const char* pFormat;
        StandIn::GeometryAxis x, y;
        const char* pCsv;
    } aRows[] = {
        {"Mono12", x, y, "x,y\n5,7\n"},
        {"Mono12", mirroredX, y, "x,y\n386,7\n"},
        {"Mono12", binnedX, mirroredY, "x,y,width,height\n18,276,2,3\n"},
        {"BayerRG12", x, y, "x,y\n5,7\n"},
        // Pixel 9 of the binned sensor is made of 17 and 19; 100 - 1 - 7 of the other direction of 276, 278, 280.
        {"BayerRG12", binnedX, mirroredY, "x,y\n17,276\n19,276\n17,278\n19,278\n17,280\n19,280\n"},
        // Not on that sensor, and nothing known: by the camera settings.
        {"Mono12", tooShort, y, "x,y\n105,15\n"},
        {"Mono12", {}, {}, "x,y\n105,15\n"},
    };
    for (const auto& rRow : aRows) {
        StandIn::ReferenceImage reference = placed(rRow.pFormat, rRow.x, 60, rRow.y, 50);
        reference.vecDefects[7 * 60 + 5] = StandIn::eDefectDead;
        EXPECT_EQ(defectListText("list.csv", reference), rRow.pCsv);
    }
    StandIn::ReferenceImage reference = placed("Mono12", mirroredX, 60, y, 50);
    reference.vecDefects[0] = reference.vecDefects[1] = reference.vecDefects[61] = StandIn::eDefectHot;
    EXPECT_EQ(defectListText("list.csv", reference), "x,y\n390,0\n391,0\n390,1\n") << "line by line of the sensor";
    reference = placed("Mono12", binnedX, 60, y, 50);
    reference.vecDefects[0] = StandIn::eDefectHot;
    EXPECT_EQ(defectListText("list.json", reference),
              "{\"Bad pixels\": [\n  {\"Pixel\": [8, 0], \"Median\": [2, 2]},\n"
              "  {\"Pixel\": [9, 0], \"Median\": [2, 2]}\n]}\n");
}

// Pixels of the sensor that make each pixel of an image: binned, then mirrored, then cut.
std::vector<std::vector<uint64_t>> partsOf(const StandIn::GeometryAxis& r, uint64_t nSize, bool bCfa) {
    std::vector<std::vector<uint64_t>> vecParts(static_cast<std::size_t>(r.binned(bCfa)));
    const uint64_t nStep = bCfa ? 2 : 1, nGroup = nStep * r.nBinning;
    for (uint64_t i = 0; i < r.nSensor; ++i) {
        const std::size_t u = static_cast<std::size_t>(i / nGroup * nStep + i % nStep);
        if (u < vecParts.size()) {
            vecParts[u].push_back(i);
        }
    }
    if (r.bReverse) {
        std::reverse(vecParts.begin(), vecParts.end());
    }
    const auto iFirst = vecParts.begin() + static_cast<std::ptrdiff_t>(r.nOffset);
    return {iFirst, iFirst + static_cast<std::ptrdiff_t>(nSize)};
}

// Each pixel of the sensor by itself.
void expectEachSensorPixel(const StandIn::ReferenceImage& rPlaced) {
    const bool bCfa = rPlaced.layout.pFormat->isCfa();
    const auto vecX = partsOf(rPlaced.geometry.x, rPlaced.layout.nWidth, bCfa);
    const auto vecY = partsOf(rPlaced.geometry.y, rPlaced.layout.nHeight, bCfa);
    const auto fnFind = [](const std::vector<std::vector<uint64_t>>& rParts, uint64_t i) {
        const auto fnHas = [i](const std::vector<uint64_t>& r) { return std::count(r.begin(), r.end(), i) != 0; };
        return static_cast<std::size_t>(std::find_if(rParts.begin(), rParts.end(), fnHas) - rParts.begin());
    };
    for (uint64_t y = 0; y < rPlaced.geometry.y.nSensor; ++y) {
        for (uint64_t x = 0; x < rPlaced.geometry.x.nSensor; ++x) {
            std::vector<uint8_t> vecMap = rPlaced.vecDefects;
            const std::size_t iX = fnFind(vecX, x), iY = fnFind(vecY, y);
            const bool bInside = iX < vecX.size() && iY < vecY.size();
            if (bInside) {
                vecMap[iY * vecX.size() + iX] = StandIn::eDefectByHand;
            }
            uint64_t nOutside = 0;
            ASSERT_EQ(defectMap({{x, y}}, rPlaced, nOutside), vecMap) << x << ' ' << y;
            ASSERT_EQ(nOutside, bInside ? 0U : 1U) << x << ' ' << y;
        }
    }
}

// A map with gaps, by way of both kinds of files.
void expectSameAfterExport(StandIn::ReferenceImage reference) {
    for (std::size_t i = 0; i < reference.vecDefects.size(); i += 3) {
        reference.vecDefects[i] = StandIn::eDefectByHand;
    }
    const uint64_t nParts = reference.geometry.x.nBinning * reference.geometry.y.nBinning;
    const XAPEL2::Test::CTemporaryFolder folder;
    for (const char* pName : {"list.csv", "list.json"}) {
        std::ofstream(folder / pName) << defectListText(folder / pName, reference);
        const std::vector<DefectArea> vecAreas = readDefectList(folder / pName);
        uint64_t nPixels = 0, nOutside = 0;
        for (const DefectArea& rArea : vecAreas) {
            nPixels += rArea.nWidth * rArea.nHeight;
        }
        EXPECT_EQ(nPixels, nParts * countMarked(reference.vecDefects)) << pName;
        EXPECT_EQ(defectMap(vecAreas, reference, nOutside), reference.vecDefects) << pName;
        EXPECT_EQ(nOutside, 0U) << pName;
    }
}

TEST(DefectList, SensorPixelsMarkWhatIsMadeOfThem) {
    const StandIn::eBinningMode eSum = StandIn::eBinningSum;
    for (const char* pFormat : {"Mono12", "BayerRG12"}) {
        for (const uint64_t nBinning : {1U, 2U, 3U}) {
            for (const bool bReverse : {false, true}) {
                SCOPED_TRACE(std::string(pFormat) + ", " + std::to_string(nBinning) + (bReverse ? ", mirrored" : ""));
                const StandIn::ReferenceImage reference =
                    placed(pFormat, {21, 1, nBinning, eSum, bReverse}, 4, {14, 0, 2, eSum, !bReverse}, 5);
                expectEachSensorPixel(reference);
                expectSameAfterExport(reference);
            }
        }
    }
}

TEST(DefectList, CountsWhatOfAnAreaIsOutside) {
    const StandIn::ReferenceImage reference =
        placed("Mono12", {40, 1, 2, StandIn::eBinningSum, true}, 8, {30, 0, 1, StandIn::eBinningSum, false}, 6);
    // The image lies at 22 to 37 and 0 to 5.
    const struct {
        DefectArea area;
        uint64_t nMarked, nOutside;
    } aRows[] = {
        {{0, 0, 40, 30}, 48, 40 * 30 - 16 * 6},
        {{23, 0, 2, 1}, 2, 0},
        {{21, 5, 2, 2}, 1, 3},
        {{37, 0, 3, 1}, 1, 2},
        {{38, 0, 1, 1}, 0, 1},
        {{900, 900, 1000, 1000}, 0, 1000000},
    };
    for (const auto& rRow : aRows) {
        uint64_t nOutside = 0;
        EXPECT_EQ(countMarked(defectMap({rRow.area}, reference, nOutside)), rRow.nMarked) << rRow.area.nX;
        EXPECT_EQ(nOutside, rRow.nOutside) << rRow.area.nX;
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
