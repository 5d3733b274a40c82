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

namespace XAPEL2 {
namespace StandIn {
namespace {

ReferenceImage sampleReference(const ImageLayout& rLayout, eReferenceKind eKind) {
    ReferenceImage sReference{eKind, rLayout, 64, 0.25, 100.5, 3.125, "", {}};
    for (std::size_t i = 0; i < rLayout.samples(); ++i)
        sReference.vSamples.push_back(static_cast<float>(i % 251) + 0.3F);
    return sReference;
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
    for (const ImageLayout& rLayout : {layout("RGB8", 7, 5), layout("Mono16", 1000, 700), layout("BayerGB12p", 6, 3)}) {
        ReferenceImage sWritten = sampleReference(rLayout, eReferenceLight);
        sWritten.strCamera = R"({"exposure":1000,"mirror":false,"roi":[0,{"w":8.5},[]],"name":"a \"b\"","last":null})";
        sWritten.sMeans = {10.25, 11.5, 9.0, 12.125};
        sWritten.vClassNoise.assign(rLayout.classes(), 2.5);
        sWritten.vClassNoise.back() = 3.5;
        sWritten.uLargest = 250;
        writeReferenceFile(oFolder / "a.tif", sWritten);
        const ReferenceImage sRead = readReferenceFile(oFolder / "a.tif");
        EXPECT_EQ(sRead.eKind, eReferenceLight);
        EXPECT_TRUE(sRead.sLayout == rLayout);
        EXPECT_EQ(sRead.nImages, 64U);
        EXPECT_EQ(sRead.dSaturatedShare, 0.25);
        EXPECT_EQ(sRead.dMean, 100.5);
        EXPECT_EQ(sRead.dTemporalNoise, 3.125);
        EXPECT_EQ(sRead.vClassNoise, sWritten.vClassNoise);
        EXPECT_TRUE(sRead.sMeans.dFirst == 10.25 && sRead.sMeans.dLast == 11.5 && sRead.sMeans.dLeast == 9.0 &&
                    sRead.sMeans.dMost == 12.125);
        EXPECT_EQ(sRead.uLargest, 250U);
        EXPECT_EQ(sRead.strCamera, sWritten.strCamera);
        EXPECT_EQ(sRead.vSamples, sWritten.vSamples);
        EXPECT_EQ(oFolder.names(), std::vector<std::string>{"a.tif"});
    }
}

TEST(ReferenceFile, BadCameraSettingsLeaveTheOldFileAndNothingElse) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    const ReferenceImage sOld = sampleReference(layout("Mono8", 4, 4), eReferenceDark);
    writeReferenceFile(oFolder / "old.tif", sOld);
    ReferenceImage sBad = sOld;
    for (const std::string& rCamera : {std::string("[[1]"), R"({"a":")" + std::string(70000, 'x') + R"("})"}) {
        sBad.strCamera = rCamera;
        EXPECT_THROW(writeReferenceFile(oFolder / "old.tif", sBad), CFileError);
    }
    EXPECT_EQ(oFolder.names(), std::vector<std::string>{"old.tif"});
    EXPECT_EQ(readReferenceFile(oFolder / "old.tif").vSamples, sOld.vSamples);
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
    ReferenceImage sReference = sampleReference(layout("Mono12", 8, 6), eReferenceLight);
    sReference.vSamples[13] = rForgery.fSample;
    writeReferenceFile(strFile, sReference);
    TIFF* pTiff = TIFFOpen(strFile.c_str(), "r+");
    ASSERT_NE(pTiff, nullptr);
    TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, rForgery.strDescription.c_str());
    rForgery.fnTags(pTiff);
    ASSERT_EQ(TIFFRewriteDirectory(pTiff), 1) << rForgery.pName;
    TIFFClose(pTiff);
}

std::function<void(TIFF*)> with(std::vector<std::pair<uint32_t, uint32_t>> vecTags) {
    return [=](TIFF* pTiff) {
        for (const auto& [uTag, uValue] : vecTags) TIFFSetField(pTiff, uTag, uValue);
    };
}

std::string replaced(const std::string& strOld, const std::string& strNew) {
    std::string strText = DESCRIPTION;
    return strText.replace(strText.find(strOld), strOld.size(), strNew);
}

TEST(ReferenceFile, RefusesFilesThatLie) {
    const auto fnNone = [](TIFF*) {};
    const std::vector<Forgery> vForgeries = {
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
    for (const Forgery& rForgery : vForgeries) {
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
    EXPECT_NE(readError(oFolder / "magic").find("magic"), std::string::npos) << "the reason of the TIFF library";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(readError(oFolder / "shared").find("more values"), std::string::npos);
    for (const char* pName : {"pipe", "absent", ""}) EXPECT_NE(readError(oFolder / pName), "") << pName;
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
