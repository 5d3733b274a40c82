// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reference files: round trip, saves that fail, and files that lie.

#include "ReferenceFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
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
    } catch (const CReferenceFileError& rError) {
        return rError.what();
    }
}

TEST(ReferenceFile, GivesBackWhatWasWritten) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    // The second is longer than one strip.
    for (const ImageLayout& rLayout : {layout("RGB8", 7, 5), layout("Mono16", 1000, 700), layout("BayerGB12p", 6, 3)}) {
        ReferenceImage sWritten = sampleReference(rLayout, eReferenceLight);
        sWritten.strCamera = R"({"exposure":1000,"mirror":false,"roi":[0,{"w":8.5},[]],"name":"a \"b\"","last":null})";
        writeReferenceFile(oFolder / "a.tif", sWritten);
        const ReferenceImage sRead = readReferenceFile(oFolder / "a.tif");
        EXPECT_EQ(sRead.eKind, eReferenceLight);
        EXPECT_TRUE(sRead.sLayout == rLayout);
        EXPECT_EQ(sRead.nImages, 64U);
        EXPECT_EQ(sRead.dSaturatedShare, 0.25);
        EXPECT_EQ(sRead.dMean, 100.5);
        EXPECT_EQ(sRead.dTemporalNoise, 3.125);
        EXPECT_EQ(sRead.strCamera, sWritten.strCamera);
        EXPECT_EQ(sRead.vSamples, sWritten.vSamples);
        EXPECT_EQ(oFolder.names(), std::vector<std::string>{"a.tif"});
    }
}

TEST(ReferenceFile, FailedSaveLeavesTheOldFileAndNothingElse) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    const ReferenceImage sOld = sampleReference(layout("Mono8", 4, 4), eReferenceDark);
    writeReferenceFile(oFolder / "old.tif", sOld);
    ASSERT_EQ(mkdir((oFolder / "taken.tif").c_str(), 0700), 0);

    ReferenceImage sBadCamera = sOld;
    sBadCamera.strCamera = "[[1]";
    ReferenceImage sLongCamera = sOld;
    sLongCamera.strCamera = R"({"a":")" + std::string(70000, 'x') + R"("})";
    EXPECT_THROW(writeReferenceFile(oFolder / "old.tif", sBadCamera), CReferenceFileError);
    EXPECT_THROW(writeReferenceFile(oFolder / "old.tif", sLongCamera), CReferenceFileError);
    for (const std::string& rName : {oFolder / "taken.tif", oFolder / "none/a.tif", oFolder / "", std::string()})
        EXPECT_THROW(writeReferenceFile(rName, sOld), CReferenceFileError) << rName;
    EXPECT_EQ(oFolder.names().size(), 2U);
    EXPECT_EQ(readReferenceFile(oFolder / "old.tif").vSamples, sOld.vSamples);
}

const char* const DESCRIPTION =
    R"({"kind":"light","pixelFormat":"Mono12","images":2,"saturatedShare":0,"mean":5,"temporalNoise":1})";

/// A file as a sound one of 8 x 6 pixels in strips of 3 rows is, with one thing changed.
struct Forgery {
    const char* pName;
    const char* pReason;  ///< part of the message
    std::function<void(TIFF*)> fnTags = [](TIFF*) {};
    std::string strDescription = DESCRIPTION;
    float fSample = 5.0F;
    std::size_t nKeep = SIZE_MAX;  ///< bytes of the finished file that are kept
};

void write(const std::string& strFile, const Forgery& rForgery) {
    TIFF* pTiff = TIFFOpen(strFile.c_str(), "w");
    ASSERT_NE(pTiff, nullptr);
    TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, 8);
    TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, 6);
    TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, 32);
    TIFFSetField(pTiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, 3);
    if (!rForgery.strDescription.empty())
        TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, rForgery.strDescription.c_str());
    rForgery.fnTags(pTiff);
    for (uint32_t i = 0; i < 2; ++i) {
        std::vector<float> vStrip(24, 5.0F);
        vStrip[13] = rForgery.fSample;
        if (TIFFIsTiled(pTiff)) {
            vStrip.resize(256);
            TIFFWriteEncodedTile(pTiff, 0, vStrip.data(), 1024);
        } else {
            TIFFWriteEncodedStrip(pTiff, i, vStrip.data(), 96);
        }
    }
    TIFFClose(pTiff);
    struct stat sStatus = {};
    ASSERT_EQ(stat(strFile.c_str(), &sStatus), 0);
    const auto nKeep = std::min(rForgery.nKeep, static_cast<std::size_t>(sStatus.st_size));
    ASSERT_EQ(truncate(strFile.c_str(), static_cast<off_t>(nKeep)), 0);
}

std::function<void(TIFF*)> with(uint32_t uTag, uint32_t uValue) {
    return [=](TIFF* pTiff) { TIFFSetField(pTiff, uTag, uValue); };
}

std::string replaced(const std::string& strOld, const std::string& strNew) {
    std::string strText = DESCRIPTION;
    return strText.replace(strText.find(strOld), strOld.size(), strNew);
}

TEST(ReferenceFile, RefusesFilesThatLie) {
    const auto fnNone = [](TIFF*) {};
    const std::string strOpen(100000, '[');
    const std::vector<Forgery> vForgeries = {
        {"deflated", "compressed", with(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE)},
        {"runs", "compressed", with(TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS)},
        {"integers", "floating point", with(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT)},
        {"half floats", "floating point", with(TIFFTAG_BITSPERSAMPLE, 16)},
        {"doubles", "floating point", with(TIFFTAG_BITSPERSAMPLE, 64)},
        {"planes", "planes",
         [](TIFF* p) {
             with(TIFFTAG_SAMPLESPERPIXEL, 3)(p);
             with(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB)(p);
             with(TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE)(p);
         },
         replaced("Mono12", "RGB8")},
        {"three samples of a grey format", "samples per pixel", with(TIFFTAG_SAMPLESPERPIXEL, 3)},
        {"one sample of a colour format", "samples per pixel", fnNone, replaced("Mono12", "RGB8")},
        {"palette", "grey or RGB", with(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE)},
        {"turned", "top left", with(TIFFTAG_ORIENTATION, ORIENTATION_BOTRIGHT)},
        {"tiles", "tiles",
         [](TIFF* p) {
             with(TIFFTAG_TILEWIDTH, 16)(p);
             with(TIFFTAG_TILELENGTH, 16)(p);
         }},
        {"higher than its data", "", with(TIFFTAG_IMAGELENGTH, 30000)},
        {"wider than its data", "too short", with(TIFFTAG_IMAGEWIDTH, 32000)},
        {"huge", "impossible size",
         [](TIFF* p) {
             with(TIFFTAG_IMAGEWIDTH, 32768)(p);
             with(TIFFTAG_IMAGELENGTH, 32768)(p);
         }},
        {"side beyond the limit", "impossible size", with(TIFFTAG_IMAGEWIDTH, 32769)},
        {"other strips", "strip", with(TIFFTAG_ROWSPERSTRIP, 2)},
        {"strips too narrow", "strip", with(TIFFTAG_IMAGEWIDTH, 7)},
        {"no description", "no description", fnNone, ""},
        {"no JSON", "cannot be read", fnNone, "a picture of a wall"},
        {"no object", "no JSON object", fnNone, "[1]"},
        {"not UTF-8", "cannot be read", fnNone, replaced("light", "li\xff\xfeght")},
        {"long", "too long", fnNone, replaced("}", R"(,"x":")" + std::string(66000, 'x') + R"("})")},
        {"deep", "nested", fnNone, replaced("}", R"(,"x":)" + strOpen.substr(0, 60000) + "}")},
        {"kind missing", "kind", fnNone, replaced(R"("kind":"light",)", "")},
        {"kind unknown", "kind", fnNone, replaced("light", "grey")},
        {"kind a number", "kind", fnNone, replaced(R"("light")", "3")},
        {"format unknown", "pixel format", fnNone, replaced("Mono12", "Mono13")},
        {"no image", "images", fnNone, replaced(R"("images":2)", R"("images":0)")},
        {"negative images", "images", fnNone, replaced(R"("images":2)", R"("images":-2)")},
        {"half an image more", "images", fnNone, replaced(R"("images":2)", R"("images":2.5)")},
        {"share above 1", "saturatedShare", fnNone, replaced(R"("saturatedShare":0)", R"("saturatedShare":2)")},
        {"infinite mean", "cannot be read", fnNone, replaced(R"("mean":5)", R"("mean":1e999)")},
        {"mean above full scale", "mean", fnNone, replaced(R"("mean":5)", R"("mean":5000)")},
        {"noise a text", "temporalNoise", fnNone, replaced(R"("temporalNoise":1)", R"("temporalNoise":"1")")},
        {"camera a number", "camera", fnNone, replaced("}", R"(,"camera":1})")},
        {"no number", "a sample", fnNone, DESCRIPTION, std::numeric_limits<float>::quiet_NaN()},
        {"infinity", "a sample", fnNone, DESCRIPTION, std::numeric_limits<float>::infinity()},
        {"below 0", "a sample", fnNone, DESCRIPTION, -0.5F},
        {"above full scale", "a sample", fnNone, DESCRIPTION, 4095.5F},
        {"empty", "not a TIFF", fnNone, DESCRIPTION, 5.0F, 0},
        {"header alone", "", fnNone, DESCRIPTION, 5.0F, 8},
        {"cut in the samples", "", fnNone, DESCRIPTION, 5.0F, 100},
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
    std::ofstream(oFolder / "text") << "P5 640 480 65535 and more than sixteen bytes";
    // A directory of 65535 tags at the end of the header.
    std::ofstream(oFolder / "tags") << std::string("II*\0\x08\0\0\0\xff\xff", 10) << std::string(65535 * 12 + 4, '\1');
    std::ofstream(oFolder / "far") << std::string("II*\0\xf0\xff\xff\xff", 8) << std::string(100, '\1');
    std::ofstream(oFolder / "magic") << std::string("XX*\0\x08\0\0\0\1\0", 10) << std::string(40, '\0');
    // Tags that share their bytes: in memory they would take many times the size of the file.
    std::ofstream(oFolder / "shared") << std::string("II*\0\x08\0\0\0\2\0\0\xf0\1\0\x1e\0\0\0\x08\0\0\0", 22)
                                      << std::string("\1\xf0\1\0\x1e\0\0\0\x08\0\0\0\0\0\0\0", 16);
    testing::internal::CaptureStderr();
    EXPECT_NE(readError(oFolder / "magic").find("magic"), std::string::npos) << "the reason of the TIFF library";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (const char* pName : {"pipe", "text", "far", "absent", ""}) EXPECT_NE(readError(oFolder / pName), "") << pName;
    EXPECT_NE(readError(oFolder / "tags").find("too many tags"), std::string::npos);
    EXPECT_NE(readError(oFolder / "shared").find("more values"), std::string::npos);
}

// Every prefix and every single changed byte of a small file: refused or read, never more.
TEST(ReferenceFile, SurvivesAnyDamage) {
    const XAPEL2::Test::CTemporaryFolder oFolder;
    const std::string strFile = oFolder / "a.tif";
    writeReferenceFile(strFile, sampleReference(layout("Mono8", 3, 2), eReferenceDark));
    std::ifstream oIn(strFile, std::ios::binary);
    const std::string strGood((std::istreambuf_iterator<char>(oIn)), std::istreambuf_iterator<char>());
    std::size_t nRead = 0;
    for (std::size_t i = 0; i < strGood.size(); ++i) {
        for (const int iChange : {-1, 0x01, 0x80, 0xFF}) {
            std::string strBad = strGood;
            if (iChange < 0)
                strBad.resize(i);
            else
                strBad[i] = static_cast<char>(strBad[i] ^ iChange);
            std::ofstream(strFile, std::ios::binary) << strBad;
            try {
                const ReferenceImage sReference = readReferenceFile(strFile);
                ASSERT_EQ(sReference.vSamples.size(), sReference.sLayout.samples());
                ++nRead;
            } catch (const CReferenceFileError&) {
            }
        }
    }
    EXPECT_LT(nRead, strGood.size() * 2) << "many of these must not pass";
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
