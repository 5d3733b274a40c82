// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reference files: round trip, saves that fail, and files that lie.

#include "standin/files/TiffHandle.h"
#include "xapel2_standin/ReferenceFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tiffio.h>

#include <fstream>
#include <functional>
#include <limits>

#include "TemporaryFolder.h"
#include "TestImages.h"
#include "standin/processor/references/ReferenceDescription.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

ReferenceImage sampleReference(const ImageLayout& rLayout, eReferenceKind eKind) {
    ReferenceImage reference{eKind, rLayout, 64, 0.25, 100.5, 3.125, "", {}};
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        reference.vecSamples.push_back(static_cast<float>(i % 251) + 0.3F);
    }
    return reference;
}

std::string readError(const std::string& strFile) {
    try {
        readReferenceFile(strFile);
        return "";
    } catch (const CFileError& rError) {
        return rError.what();
    }
}

TEST(ReferenceFile, GivesBackWhatWasWritten) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    // The second is longer than one strip.
    for (const ImageLayout& rLayout :
         {layoutOf("RGB8", 7, 5), layoutOf("Mono16", 1000, 700), layoutOf("BayerGB12p", 6, 3)}) {
        ReferenceImage written = sampleReference(rLayout, eReferenceLight);
        written.strCamera = R"({"exposure":1000,"mirror":false,"roi":[0,{"w":8.5},[]],"name":"a \"b\"","last":null})";
        written.means = {10.25, 11.5, 9.0, 12.125};
        written.vecClassNoise.assign(rLayout.classes(), 2.5);
        written.vecClassNoise.back() = 3.5;
        written.uLargest = 250;
        written.dNeighbourNoise = 2.75;
        written.geometry = {{rLayout.nWidth * 4 + 20, 3, 2, eBinningSum, true},
                            {rLayout.nHeight * 8 + 33, 2, 4, eBinningUnknown, false}};
        writeReferenceFile(oFolder / "a.tif", written);
        const ReferenceImage read = readReferenceFile(oFolder / "a.tif");
        EXPECT_EQ(read.eKind, eReferenceLight);
        EXPECT_TRUE(read.layout == rLayout);
        EXPECT_EQ(read.nImages, 64U);
        EXPECT_EQ(read.dSaturatedShare, 0.25);
        EXPECT_EQ(read.dMean, 100.5);
        EXPECT_EQ(read.dTemporalNoise, 3.125);
        EXPECT_EQ(read.vecClassNoise, written.vecClassNoise);
        EXPECT_TRUE(read.means.dFirst == 10.25 && read.means.dLast == 11.5 && read.means.dLeast == 9.0 &&
                    read.means.dMost == 12.125);
        EXPECT_EQ(read.uLargest, 250U);
        EXPECT_EQ(read.dNeighbourNoise, 2.75);
        EXPECT_EQ(read.geometry, written.geometry);
        EXPECT_EQ(read.strCamera, written.strCamera);
        EXPECT_EQ(read.vecSamples, written.vecSamples);
        EXPECT_EQ(oFolder.names(), std::vector<std::string>{"a.tif"});
    }
}

TEST(ReferenceFile, CarriesWhatLeftTheOtherFrames) {
    const XAPEL2::Test::CTemporaryFolder folder;
    ReferenceImage written = sampleReference(layoutOf("Mono12", 40, 30), eReferenceDark);
    written.outliers = {2, 1, 101, 100, {}};
    written.outliers.vecPlaces = {{eOutlierBrightness, 7, 0, 0, 0, 0, 0, -200.5, true},
                                  {eOutlierShape, 9, 3, 4, 20, 10, 0, 11.25, false},
                                  {eOutlierSamples, 16, 30, 20, 10, 10, 100, 350.0, true}};
    // Behind a note as long as it may be there is room for the numbers alone.
    for (const std::size_t nNote : {20U, 63U << 10}) {
        written.strCamera = R"({"note":")" + std::string(nNote - 11, 'x') + R"("})";
        writeReferenceFile(folder / "a.tif", written);
        const RecordingOutliers read = readReferenceFile(folder / "a.tif").outliers;
        EXPECT_EQ(read.nFrames, 2U);
        EXPECT_EQ(read.nFramesLeftOut, 1U);
        EXPECT_EQ(read.nSamples, 101U);
        EXPECT_EQ(read.nSamplesLeftOut, 100U);
        ASSERT_EQ(read.vecPlaces.size(), nNote == 20 ? 3U : read.vecPlaces.size());
        for (std::size_t i = 0; i < read.vecPlaces.size(); ++i) {
            const FrameOutlier &rRead = read.vecPlaces[i], &rWritten = written.outliers.vecPlaces[i];
            EXPECT_EQ(rRead.eWhat, rWritten.eWhat);
            EXPECT_EQ(rRead.iFrame, rWritten.iFrame);
            EXPECT_EQ(rRead.nX, rWritten.nX);
            EXPECT_EQ(rRead.nY, rWritten.nY);
            EXPECT_EQ(rRead.nWidth, rWritten.nWidth);
            EXPECT_EQ(rRead.nHeight, rWritten.nHeight);
            EXPECT_EQ(rRead.nSamples, rWritten.nSamples);
            EXPECT_EQ(rRead.dDeviation, rWritten.dDeviation);
            EXPECT_EQ(rRead.bLeftOut, rWritten.bLeftOut);
        }
    }
    written.strCamera.clear();
    written.outliers.vecPlaces[2].nX = 31;
    EXPECT_THROW(writeReferenceFile(folder / "a.tif", written), CFileError) << "outside the image";
    written.outliers.vecPlaces.assign(17, {});
    EXPECT_THROW(writeReferenceFile(folder / "a.tif", written), CFileError) << "too many";
}

TEST(ReferenceFile, GeometryIsCheckedMemberByMember) {
    const std::string strBefore =
        R"({"kind":"dark","pixelFormat":"Mono8","images":1,"saturatedShare":0,"mean":1,"temporalNoise":0,"geometry":)";
    const std::string strGood =
        R"({"SensorWidth":20,"SensorHeight":20,"OffsetX":4,"OffsetY":0,"BinningHorizontal":1,"BinningVertical":2,)"
        R"("BinningVerticalMode":"Sum","ReverseX":false,"ReverseY":true})";
    const auto fnParse = [&](const std::string& strGeometry) {
        return parseDescription((strBefore + strGeometry + "}").c_str(), 8, 8).geometry;
    };
    EXPECT_EQ(fnParse(strGood), (ImageGeometry{{20, 4, 1, eBinningUnknown, false}, {20, 0, 2, eBinningSum, true}}));
    const std::pair<const char*, const char*> CASES[] = {
        {"\"OffsetX\":4", "\"OffsetX\":13"},
        {"\"OffsetX\":4", "\"OffsetX\":-1"},
        {"\"OffsetX\":4", "\"OffsetX\":0.5"},
        {"\"OffsetX\":4", "\"OffsetX\":18446744073709551615"},
        {"\"OffsetX\":4", "\"OffsetX\":\"4\""},
        {"\"OffsetX\":4", "\"OffsetX\":null"},
        {"\"OffsetX\":4", "\"OffsetX\":[4]"},
        {"\"OffsetX\":4", "\"OffsetX\":{}"},
        {"\"OffsetX\":4,", ""},
        {"\"SensorWidth\":20", "\"SensorWidth\":0"},
        {"\"SensorWidth\":20", "\"SensorWidth\":11"},
        {"\"SensorWidth\":20", "\"SensorWidth\":32769"},
        {"\"SensorHeight\":20", "\"SensorHeight\":15"},
        {"\"BinningHorizontal\":1", "\"BinningHorizontal\":0"},
        {"\"BinningHorizontal\":1", "\"BinningHorizontal\":65"},
        {"\"Sum\"", "\"Most\""},
        {"\"ReverseY\":true", "\"ReverseY\":2"},
        {"\"ReverseY\":true", "\"ReverseY\":\"true\""},
        {"\"BinningVerticalMode\":\"Sum\"", "\"BinningVerticalMode\":1"}};
    for (const auto& [pOld, pNew] : CASES) {
        std::string strBad = strGood;
        strBad.replace(strBad.find(pOld), std::string(pOld).size(), pNew);
        EXPECT_THROW(fnParse(strBad), CFileError) << strBad;
    }
    EXPECT_THROW(fnParse("[1]"), CFileError);
    EXPECT_THROW(fnParse("7"), CFileError);
}

TEST(ReferenceFile, CarriesOutputAndDefectsOfALightReference) {
    const XAPEL2::Test::CTemporaryFolder folder;
    for (const ReferenceOutput& rOutput :
         {ReferenceOutput{eTargetMax, 0.0, 0.0}, ReferenceOutput{eTargetValue, 127.25, 16.5},
          ReferenceOutput{eTargetMean, 0.0, 3.0}}) {
        for (const char* pFormat : {"RGB8", "Mono16"}) {
            // The second is longer than one strip.
            ReferenceImage written =
                sampleReference(layoutOf(pFormat, pFormat[0] == 'R' ? 17 : 1500, 800), eReferenceLight);
            written.output = rOutput;
            written.vecDefects.assign(written.layout.nWidth * 800, 0);
            written.vecDefects[5] = eDefectHot | eDefectByHand;
            written.vecDefects.back() = eDefectDead;
            writeReferenceFile(folder / "a.tif", written);
            const ReferenceImage read = readReferenceFile(folder / "a.tif");
            EXPECT_EQ(read.output.eTarget, rOutput.eTarget);
            EXPECT_EQ(read.output.dTarget, rOutput.dTarget);
            EXPECT_EQ(read.output.dPedestal, rOutput.dPedestal);
            EXPECT_EQ(read.vecDefects, written.vecDefects);
            EXPECT_EQ(read.vecSamples, written.vecSamples);
            written.vecDefects[6] = 16;
            EXPECT_THROW(writeReferenceFile(folder / "a.tif", written), CFileError) << "an unknown bit";
            written.vecDefects.assign(written.vecDefects.size(), eDefectHot);
            EXPECT_THROW(writeReferenceFile(folder / "a.tif", written), CFileError) << "too many";
            EXPECT_EQ(readReferenceFile(folder / "a.tif").vecDefects, read.vecDefects) << "the old file stays";
        }
    }
}

/// A light reference of 8 x 6 pixels, and behind it one page or several.
void writePages(const std::string& strFile, const std::vector<std::pair<uint32_t, uint32_t>>& rTags, uint8_t uMark,
                unsigned nPages, const char* pDescription) {
    writeReferenceFile(strFile, sampleReference(layoutOf("Mono12", 8, 6), eReferenceLight));
    TIFF* pTiff = TIFFOpen(strFile.c_str(), "r+");
    ASSERT_NE(pTiff, nullptr);
    TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, pDescription);
    TIFFRewriteDirectory(pTiff);
    TIFFClose(pTiff);
    pTiff = TIFFOpen(strFile.c_str(), "a");
    ASSERT_NE(pTiff, nullptr);
    for (unsigned i = 0; i < nPages; ++i) {
        std::vector<std::pair<uint32_t, uint32_t>> vecTags = {{TIFFTAG_IMAGEWIDTH, 8},
                                                              {TIFFTAG_IMAGELENGTH, 6},
                                                              {TIFFTAG_BITSPERSAMPLE, 8},
                                                              {TIFFTAG_SAMPLESPERPIXEL, 1},
                                                              {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK},
                                                              {TIFFTAG_ROWSPERSTRIP, 6}};
        vecTags.insert(vecTags.end(), rTags.begin(), rTags.end());
        for (const auto& [uTag, uValue] : vecTags) {
            TIFFSetField(pTiff, uTag, uValue);
        }
        std::vector<uint8_t> vecMap(8 * 6 * 4, 0);
        vecMap[3] = uMark;
        TIFFWriteEncodedStrip(pTiff, 0, vecMap.data(), static_cast<tmsize_t>(TIFFStripSize(pTiff)));
        TIFFWriteDirectory(pTiff);
    }
    TIFFClose(pTiff);
}

TEST(ReferenceFile, RefusesPagesAndOutputsThatLie) {
    struct Lie {
        const char* pReason;
        std::vector<std::pair<uint32_t, uint32_t>> vecTags;
        uint8_t uMark;
        unsigned nPages;
        std::string strDescription;
    };
    const auto output = [](const std::string& strOutput) {
        std::string strText =
            R"({"kind":"light","pixelFormat":"Mono12","images":2,"saturatedShare":0,"mean":5,"temporalNoise":1)";
        return strText + R"(,"output":)" + strOutput + "}";
    };
    const std::string strGood = output(R"({"target":"max","pedestal":16,"later":[{"target":1}]})");
    std::string strDark = strGood;
    strDark.replace(strDark.find("light"), 5, "dark");
    std::string strDarkAlone = strDark.substr(0, strDark.find(R"(,"output")")) + "}";
    const std::vector<Lie> vecLies = {
        {"", {}, 1, 1, strGood},
        {"", {}, 0, 0, output("{}")},
        {"another size", {{TIFFTAG_IMAGEWIDTH, 9}}, 1, 1, strGood},
        {"another size", {{TIFFTAG_IMAGELENGTH, 5}}, 1, 1, strGood},
        {"8 bits", {{TIFFTAG_BITSPERSAMPLE, 16}}, 1, 1, strGood},
        {"8 bits", {{TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT}}, 1, 1, strGood},
        {"8 bits", {{TIFFTAG_SAMPLESPERPIXEL, 3}, {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB}}, 1, 1, strGood},
        {"compressed", {{TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS}}, 1, 1, strGood},
        {"unknown bits", {}, 16, 1, strGood},
        {"more than two pages", {}, 1, 2, strGood},
        {"only a light reference", {}, 1, 0, strDark},
        {"only a light reference", {}, 1, 1, strDarkAlone},
        {"unknown target", {}, 1, 0, output(R"({"target":"median"})")},
        {"target of the output", {}, 1, 0, output(R"({"target":0})")},
        {"target of the output", {}, 1, 0, output(R"({"target":4095.5})")},
        {"pedestal of the output", {}, 1, 0, output(R"({"pedestal":-1})")},
        {"pedestal of the output", {}, 1, 0, output(R"({"pedestal":2048})")},
        {"wrong type", {}, 1, 0, output(R"({"pedestal":"16"})")},
        {"wrong type", {}, 1, 0, output(R"({"target":null})")},
        {"wrong type", {}, 1, 0, output(R"({"target":["max"]})")},
        {"no JSON object", {}, 1, 0, output("[]")},
        {"no JSON object", {}, 1, 0, output("16")},
    };
    const XAPEL2::Test::CTemporaryFolder folder;
    for (const Lie& rLie : vecLies) {
        writePages(folder / "a.tif", rLie.vecTags, rLie.uMark, rLie.nPages, rLie.strDescription.c_str());
        const std::string strError = readError(folder / "a.tif");
        EXPECT_EQ(strError.empty(), rLie.pReason[0] == '\0') << rLie.strDescription << strError;
        EXPECT_NE(strError.find(rLie.pReason), std::string::npos) << rLie.pReason << ": " << strError;
    }
}

TEST(ReferenceFile, BadCameraSettingsLeaveTheOldFileAndNothingElse) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    const ReferenceImage old = sampleReference(layoutOf("Mono8", 4, 4), eReferenceDark);
    writeReferenceFile(oFolder / "old.tif", old);
    ReferenceImage bad = old;
    for (const std::string& rCamera : {std::string("[[1]"), R"({"a":")" + std::string(70000, 'x') + R"("})"}) {
        bad.strCamera = rCamera;
        EXPECT_THROW(writeReferenceFile(oFolder / "old.tif", bad), CFileError);
    }
    EXPECT_EQ(oFolder.names(), std::vector<std::string>{"old.tif"});
    EXPECT_EQ(readReferenceFile(oFolder / "old.tif").vecSamples, old.vecSamples);
}

const char* const DESCRIPTION =
    R"({"kind":"light","pixelFormat":"Mono12","images":2,"saturatedShare":0,"mean":5,"temporalNoise":1})";

/// A sound file of 8 x 6 pixels with one thing changed.
struct Forgery {
    const char* pName;
    const char* pReason;  ///< part of the message
    std::function<void(TIFF*)> fnTags = [](TIFF*) {};
    std::string strDescription = DESCRIPTION;
    float fSample = 5.0F;
};

void write(const std::string& strFile, const Forgery& rForgery) {
    ReferenceImage reference = sampleReference(layoutOf("Mono12", 8, 6), eReferenceLight);
    reference.vecSamples[13] = rForgery.fSample;
    writeReferenceFile(strFile, reference);
    TIFF* pTiff = TIFFOpen(strFile.c_str(), "r+");
    ASSERT_NE(pTiff, nullptr);
    TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, rForgery.strDescription.c_str());
    rForgery.fnTags(pTiff);
    ASSERT_EQ(TIFFRewriteDirectory(pTiff), 1) << rForgery.pName;
    TIFFClose(pTiff);
}

std::function<void(TIFF*)> with(std::vector<std::pair<uint32_t, uint32_t>> vecTags) {
    return [=](TIFF* pTiff) {
        for (const auto& [uTag, uValue] : vecTags) {
            TIFFSetField(pTiff, uTag, uValue);
        }
    };
}

std::string replaced(const std::string& strOld, const std::string& strNew) {
    std::string strText = DESCRIPTION;
    return strText.replace(strText.find(strOld), strOld.size(), strNew);
}

TEST(ReferenceFile, RefusesFilesThatLie) {
    const auto fnNone = [](TIFF*) {};
    const std::vector<Forgery> vecForgeries = {
        {"deflated", "compressed", with({{TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE}})},
        {"integers", "floating point", with({{TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT}})},
        {"planes", "planes",
         with({{TIFFTAG_SAMPLESPERPIXEL, 3},
               {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB},
               {TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE}}),
         replaced("Mono12", "RGB8")},
        {"one sample of a colour format", "samples per pixel", fnNone, replaced("Mono12", "RGB8")},
        {"palette", "grey or RGB", with({{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE}})},
        {"turned", "top left", with({{TIFFTAG_ORIENTATION, ORIENTATION_BOTRIGHT}})},
        {"tiles", "tiles", with({{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILELENGTH, 16}})},
        {"strips too narrow", "strip", with({{TIFFTAG_IMAGEWIDTH, 7}})},
        {"no description", "no description", [](TIFF* p) { TIFFUnsetField(p, TIFFTAG_IMAGEDESCRIPTION); }},
        {"no object", "no JSON object", fnNone, "[1]"},
        {"not UTF-8", "cannot be read", fnNone, replaced("light", "li\xff\xfeght")},
        {"kind missing", "kind", fnNone, replaced(R"("kind":"light",)", "")},
        {"kind unknown", "kind", fnNone, replaced("light", "grey")},
        {"format unknown", "pixel format", fnNone, replaced("Mono12", "Mono13")},
        {"half an image more", "images", fnNone, replaced(R"("images":2)", R"("images":2.5)")},
        {"no image", "images", fnNone, replaced(R"("images":2)", R"("images":0)")},
        {"share above 1", "saturatedShare", fnNone, replaced(R"("saturatedShare":0)", R"("saturatedShare":2)")},
        {"frame mean above full scale", "firstMean", fnNone, replaced("}", R"(,"firstMean":4096})")},
        {"frame mean without the others", "lastMean", fnNone, replaced("}", R"(,"firstMean":5})")},
        {"mean above full scale", "mean", fnNone, replaced(R"("mean":5)", R"("mean":5000)")},
        {"noise a text", "temporalNoise", fnNone, replaced(R"("temporalNoise":1)", R"("temporalNoise":"1")")},
        {"camera a number", "camera", fnNone, replaced("}", R"(,"camera":1})")},
        {"no number", "a sample", fnNone, DESCRIPTION, std::numeric_limits<float>::quiet_NaN()},
        {"above full scale", "a sample", fnNone, DESCRIPTION, 4095.5F},
    };
    const XAPEL2::Test::CTemporaryFolder oFolder;
    const std::string strFile = oFolder / "a.tif";
    write(strFile, {"sound", ""});
    EXPECT_EQ(readError(strFile), "") << "the file that the others are made from";
    testing::internal::CaptureStderr();
    for (const Forgery& rForgery : vecForgeries) {
        TIFFErrorHandler fnBefore = TIFFSetErrorHandler(nullptr);  // for the forger, not for the reader
        write(strFile, rForgery);
        TIFFSetErrorHandler(fnBefore);
        const std::string strError = readError(strFile);
        EXPECT_NE(strError, "") << rForgery.pName;
        EXPECT_NE(strError.find(rForgery.pReason), std::string::npos) << rForgery.pName << ": " << strError;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a bad file is reported by an exception alone";
}

TEST(ReferenceFile, RefusesWhatIsNoTiff) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    ASSERT_EQ(mkfifo((oFolder / "pipe").c_str(), 0600), 0);
    std::ofstream(oFolder / "magic") << std::string("XX*\0\x08\0\0\0\1\0", 10) << std::string(40, '\0');
    // Tags that share their bytes: in memory they would take many times the size of the file.
    std::ofstream(oFolder / "shared") << std::string("II*\0\x08\0\0\0\2\0\0\xf0\1\0\x1e\0\0\0\x08\0\0\0", 22)
                                      << std::string("\1\xf0\1\0\x1e\0\0\0\x08\0\0\0\0\0\0\0", 16);
    testing::internal::CaptureStderr();
    EXPECT_NE(readError(oFolder / "magic").find("not a TIFF file"), std::string::npos);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(readError(oFolder / "shared").find("more values"), std::string::npos);
    for (const char* pName : {"pipe", "absent", ""}) {
        EXPECT_NE(readError(oFolder / pName), "") << pName;
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
