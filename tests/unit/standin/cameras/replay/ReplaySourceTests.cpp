// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replay of folders: what comes back, in which order, and what is said about files that cannot be used.

#include "standin/cameras/replay/ReplaySource.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <gtest/gtest.h>

#include "TemporaryFolder.h"
#include "standin/cameras/DeviceId.h"
#include "standin/files/PngOutput.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

typedef std::vector<uint16_t> Samples;

// A folder of its own for each test.
class ReplaySource : public ::testing::Test {
protected:
    std::string path(const std::string& strName) const { return m_folder / strName; }

    void write(const std::string& strName, const std::string& strBytes) const {
        std::ofstream(path(strName), std::ios::binary) << strBytes;
    }

    // What opening the folder and reading the frames of a scene says; empty when it works.
    std::string complaint(eScene eWhat = eSceneLight) const {
        try {
            CReplaySource source(m_strFolder);
            for (uint64_t i = 0; i < std::max<uint64_t>(1, source.frameCount(eWhat)); ++i) {
                frame(source, eWhat, i);
            }
        } catch (const std::runtime_error& rError) {
            return rError.what();
        }
        return "";
    }

    static Samples frame(IFrameSource& rSource, eScene eWhat, uint64_t iFrame) {
        const CameraSettings settings = rSource.defaultSettings();
        const PixelFormat& rFormat = *settings.pFormat;
        std::vector<uint8_t> vecBytes(imageBytes(rFormat, settings.nWidth, settings.nHeight));
        rSource.fill(settings, eWhat, iFrame, vecBytes.data());
        Samples vecSamples(static_cast<std::size_t>(settings.nWidth * settings.nHeight * rFormat.nChannels));
        unpackSamples(rFormat, vecBytes.data(), 0, vecSamples.size(), vecSamples.data());
        return vecSamples;
    }

    const XAPEL2::Test::CTemporaryFolder m_folder;
    const std::string m_strFolder = m_folder.path().string();
};

std::string pgm(unsigned nWidth, unsigned nHeight, unsigned uMaxval, const Samples& vecSamples,
                const std::string& strComment = "") {
    std::string strBytes = "P5\n" + strComment + std::to_string(nWidth) + " " + std::to_string(nHeight) + "\n" +
                           std::to_string(uMaxval) + "\n";
    for (const uint16_t u : vecSamples) {
        if (uMaxval > 255) {
            strBytes += static_cast<char>(u >> 8);
        }
        strBytes += static_cast<char>(u & 0xFF);
    }
    return strBytes;
}

struct TiffShape {
    uint32_t nWidth = 3, nHeight = 2;
    uint16_t uBits = 16, uSamples = 1, uCompression = COMPRESSION_NONE, uPhotometric = PHOTOMETRIC_MINISBLACK;
    uint16_t uFormat = SAMPLEFORMAT_UINT;
    const char* pMode = "wl";
    unsigned nImages = 1;
};

void writeTiff(const std::string& strPath, const TiffShape& r, const Samples& vecSamples) {
    TIFF* pTiff = TIFFOpen(strPath.c_str(), r.pMode);
    ASSERT_NE(pTiff, nullptr);
    for (unsigned iImage = 0; iImage < r.nImages; ++iImage) {
        TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, r.nWidth);
        TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, r.nHeight);
        TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, r.uBits);
        TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, r.uSamples);
        TIFFSetField(pTiff, TIFFTAG_COMPRESSION, r.uCompression);
        TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, r.uPhotometric);
        TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(pTiff, TIFFTAG_SAMPLEFORMAT, r.uFormat);
        TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, 1U);
        const std::size_t nLine = r.nWidth * r.uSamples;
        for (uint32_t iRow = 0; iRow < r.nHeight; ++iRow) {
            std::vector<uint8_t> vecLine(4 * nLine);
            for (std::size_t i = 0; i < nLine; ++i) {
                const uint16_t u = vecSamples[(iRow * nLine + i) % vecSamples.size()];
                std::memcpy(&vecLine[i * r.uBits / 8], &u, r.uBits == 8 ? 1 : 2);
            }
            ASSERT_EQ(TIFFWriteScanline(pTiff, vecLine.data(), iRow), 1);
        }
        ASSERT_EQ(TIFFWriteDirectory(pTiff), 1);
    }
    TIFFClose(pTiff);
}

TEST_F(ReplaySource, PgmComesBackInTheFormatOfItsMaxval) {
    const std::pair<unsigned, const char*> CASES[] = {
        {1, "Mono8"},     {255, "Mono8"},   {256, "Mono10"},   {1023, "Mono10"},  {1024, "Mono12"},
        {4095, "Mono12"}, {4096, "Mono14"}, {16383, "Mono14"}, {16384, "Mono16"}, {65535, "Mono16"}};
    for (const auto& [uMaxval, pFormat] : CASES) {
        const auto uMax = static_cast<uint16_t>(uMaxval);
        const Samples vecSamples = {0, 1, uMax, static_cast<uint16_t>(uMax / 2), static_cast<uint16_t>(uMax / 3), 1};
        write("light_1.pgm", pgm(3, 2, uMaxval, vecSamples, "# written\t by\n#\n"));
        CReplaySource source(m_strFolder);
        EXPECT_STREQ(source.defaultSettings().pFormat->pName, pFormat);
        EXPECT_EQ(frame(source, eSceneLight, 0), vecSamples) << uMaxval;
    }
}

TEST_F(ReplaySource, TiffComesBackFromEitherByteOrder) {
    for (const char* pMode : {"wl", "wb", "wb8"}) {
        for (const char* pFormat : {"Mono8", "Mono16", "RGB8"}) {
            TiffShape shape;
            shape.pMode = pMode;
            shape.uBits = std::string(pFormat) == "Mono16" ? 16 : 8;
            shape.uSamples = std::string(pFormat) == "RGB8" ? 3 : 1;
            shape.uPhotometric = shape.uSamples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
            Samples vecSamples;
            for (unsigned i = 0; i < 6U * shape.uSamples; ++i) {
                vecSamples.push_back(static_cast<uint16_t>((i * 9973 + 300) & (shape.uBits == 8 ? 0xFFU : 0xFFFFU)));
            }
            writeTiff(path("scene_7.tiff"), shape, vecSamples);
            CReplaySource source(m_strFolder);
            EXPECT_STREQ(source.defaultSettings().pFormat->pName, pFormat);
            EXPECT_EQ(frame(source, eSceneObjects, 0), vecSamples) << pMode << pFormat;
        }
    }
}

TEST_F(ReplaySource, ScenesFollowThePrefixAndFramesTheNames) {
    write("LICENSE.txt", "text");
    write("light.pgm", "no image");
    write("flat_1.pgm", "no image");
    write("light_1.pgm.bak", "no image");
    write("dark_2.pgm", pgm(1, 1, 65535, {102}));
    write("light_10.pgm", pgm(1, 1, 65535, {210}));
    write("light_1.x.pgm", pgm(1, 1, 65000, {201}));
    write("light_09.pgm", pgm(1, 1, 65535, {209}));
    TiffShape shape;
    shape.nWidth = shape.nHeight = 1;
    writeTiff(path("light_05.tif"), shape, {205});
    write("scene_a.pgm", pgm(1, 1, 65535, {300}));
    CReplaySource source(m_strFolder);
    const struct {
        eScene eWhat;
        uint64_t iFrame;
        const char* pName;
        uint16_t uValue;
    } CASES[] = {{eSceneDark, 0, "dark_2", 102},     {eSceneDark, 1, "dark_2", 102},
                 {eSceneLight, 0, "light_05", 205},  {eSceneLight, 1, "light_09", 209},
                 {eSceneLight, 2, "light_1.x", 201}, {eSceneLight, 3, "light_10", 210},
                 {eSceneLight, 7, "light_10", 210},  {eSceneObjects, 5, "scene_a", 300}};
    for (const auto& rCase : CASES) {
        EXPECT_EQ(source.frameName(rCase.eWhat, rCase.iFrame), rCase.pName);
        EXPECT_EQ(frame(source, rCase.eWhat, rCase.iFrame), Samples{rCase.uValue}) << rCase.pName;
    }
    EXPECT_EQ(source.frameCount(eSceneLight), 4U);
    EXPECT_FALSE(source.canResize());

    CameraSettings settings = source.defaultSettings();
    uint8_t aImage[8];
    settings.pFormat = findPixelFormat("Mono8");
    EXPECT_THROW(source.fill(settings, eSceneDark, 0, aImage), std::runtime_error);
}

TEST_F(ReplaySource, FilesThatCannotBeUsedAreNamed) {
    const Samples vecSix = {1, 2, 3, 4, 5, 6};
    const std::string strGood = pgm(3, 2, 4095, vecSix);
    const std::pair<const char*, std::string> CASES[] = {
        {"not a binary PGM", "P2\n3 2\n4095\n1 2 3 4 5 6"},
        {"format RGB16 instead of Mono12", "P6\n3 2\n256\n" + std::string(36, 0)},
        {"format RGB8 instead of Mono12", "P6\n3 2\n255\n123456789012345678"},
        {"header is damaged", "P53 2 255 123456"},
        {"without a width", "P5\n# 3 2 255"},
        {"without a height", "P5\n3 x"},
        {"width is 0", "P5\n0 2\n255\n"},
        {"maxval above 65535", "P5\n3 2\n65536\n123456"},
        {"height above 32768", "P5\n1 99999999999999999999999\n255\n"},
        {"does not end with a white space", "P5\n3 2\n255#\n123456"},
        {"truncated: 21 bytes instead of 2147483669", "P5\n32768 32768\n65535\n"},
        {"too long", strGood + "\n"},
        {"a sample is 4001, above the maxval of 4000", pgm(3, 2, 4000, {1, 2, 4001, 4, 5, 6})},
        {"width 6 instead of 3", pgm(6, 1, 4095, vecSix)},
        {"height 1 instead of 2", pgm(3, 1, 4095, {1, 2, 3})},
        {"format Mono10 instead of Mono12", pgm(3, 2, 1023, vecSix)},
        {"without a width", "P5\n#" + std::string(70000, 'x') + "\n3 2\n255\n123456"},
    };
    write("dark_0.pgm", strGood);
    for (const auto& [pSaid, strBytes] : CASES) {
        write("light_bad.pgm", strBytes);
        EXPECT_NE(complaint().find(path("light_bad.pgm") + ": "), std::string::npos) << complaint();
        EXPECT_NE(complaint().find(pSaid), std::string::npos) << pSaid << "\n" << complaint();
    }
}

TEST_F(ReplaySource, TiffsThatCannotBeUsedAreNamed) {
    const std::pair<const char*, std::function<void(TiffShape&)>> CASES[] = {
        {"samples per pixel: 1, bits: 32", [](TiffShape& r) { r.uBits = 32; }},
        {"samples per pixel: 2, bits: 8", [](TiffShape& r) { r.uBits = 8, r.uSamples = 2; }},
        {"not unsigned integers", [](TiffShape& r) { r.uFormat = SAMPLEFORMAT_INT; }},
        {"not grey with black as 0", [](TiffShape& r) { r.uPhotometric = PHOTOMETRIC_MINISWHITE; }},
        {"three channels that are not RGB",
         [](TiffShape& r) { r.uBits = 8, r.uSamples = 3, r.uPhotometric = PHOTOMETRIC_YCBCR; }},
        {"packed by another way", [](TiffShape& r) { r.uCompression = COMPRESSION_LZMA; }},
        {"32769 x 2", [](TiffShape& r) { r.nWidth = 32769; }},
    };
    for (const auto& [pSaid, fnSpoil] : CASES) {
        TiffShape shape;
        fnSpoil(shape);
        writeTiff(path("light_bad.tif"), shape, Samples(7, 3));
        EXPECT_EQ(complaint().rfind(path("light_bad.tif") + ": ", 0), 0U) << complaint();
        EXPECT_NE(complaint().find(pSaid), std::string::npos) << pSaid << "\n" << complaint();
    }
}

TEST_F(ReplaySource, FoldersThatCannotBeUsedAreNamed) {
    EXPECT_NE(complaint().find(m_strFolder + ": the folder has no image"), std::string::npos);
    write("light_1.pgm", pgm(1, 1, 255, {1}));
    EXPECT_EQ(complaint(), "");
    EXPECT_NE(complaint(eSceneDark).find("no image dark_*"), std::string::npos);
    EXPECT_NE(complaint(eSceneObjects).find("no image scene_*"), std::string::npos);
    EXPECT_EQ(CReplaySource(m_strFolder).frameName(eSceneDark, 3), "");

    TiffShape shape;
    shape.nWidth = shape.nHeight = 1;
    shape.uBits = 8;
    write("light_1.a.pgm", pgm(1, 1, 255, {1}));
    writeTiff(path("light_1.tif"), shape, {1});
    EXPECT_NE(complaint().find("light_1.tif: has the name of"), std::string::npos) << complaint();

    std::filesystem::create_directory(path("dark_1.pgm"));
    EXPECT_NE(complaint().find("dark_1.pgm: not a regular file"), std::string::npos) << complaint();
    std::filesystem::remove(path("dark_1.pgm"));
    std::filesystem::create_symlink("nowhere", path("dark_1.pgm"));
    EXPECT_NE(complaint().find("dark_1.pgm: No such file"), std::string::npos) << complaint();
    std::filesystem::remove(path("dark_1.pgm"));
    std::filesystem::create_symlink("dark_1.pgm", path("dark_1.pgm"));
    EXPECT_NE(complaint().find("dark_1.pgm: Too many levels"), std::string::npos) << complaint();
    EXPECT_THROW(makeFrameSource("replay:" + path("missing")), std::runtime_error);
}

TEST_F(ReplaySource, ListedFilesAreTheSceneInTheirOrderAndFormat) {
    std::filesystem::create_directory(path("sub"));
    write("b.pgm", pgm(2, 1, 65535, {4095, 1}));
    write("sub/b.pgm", pgm(2, 1, 1023, {2, 3}));
    writeTiff(path("a.image"), {2, 1}, {4, 4096});
    writeTiff(path("rgb.tif"), {2, 1, 8, 3, COMPRESSION_NONE, PHOTOMETRIC_RGB}, {1});
    write("small.pgm", pgm(1, 1, 65535, {4}));
    write("byte.pgm", pgm(2, 1, 255, {4, 5}));
    const auto fnOpen = [&](const std::vector<std::string>& vecNames, const char* pFormat) {
        std::vector<std::string> vecFiles;
        for (const std::string& strName : vecNames) {
            vecFiles.push_back(path(strName));
        }
        return makeFileSource(vecFiles, pFormat);
    };
    for (const char* pFormat : {"BayerRG12p", "BayerRG12Packed", "BayerRG12"}) {
        const auto pSource = fnOpen({"sub/b.pgm", "b.pgm", "a.image"}, pFormat);
        EXPECT_STREQ(pSource->defaultSettings().pFormat->pName, "BayerRG12");
        EXPECT_EQ(pSource->frameCount(eSceneObjects), 3U);
        EXPECT_EQ(pSource->frameCount(eSceneLight), 0U);
        EXPECT_EQ(frame(*pSource, eSceneObjects, 0), (Samples{2, 3}));
        EXPECT_EQ(frame(*pSource, eSceneObjects, 1), (Samples{4095, 1}));
        EXPECT_THROW(frame(*pSource, eSceneObjects, 2), std::runtime_error) << "4096 is no 12-bit sample";
    }
    EXPECT_EQ(frame(*fnOpen({"a.image"}, ""), eSceneObjects, 0), (Samples{4, 4096}));
    const struct {
        std::vector<std::string> vecNames;
        const char *pFormat, *pSaid;
    } REFUSED[] = {
        {{}, "", "no image files"},
        {{"b.pgm"}, "Mono9", "unknown format 'Mono9'"},
        {{"b.pgm"}, "BayerRG8", "stored as Mono16, which cannot be read as BayerRG8"},
        {{"b.pgm"}, "RGB8", "cannot be read as RGB8"},
        {{"rgb.tif"}, "Mono8", "stored as RGB8"},
        {{"b.pgm", "sub/b.pgm"}, "", "b.pgm is 2 x 1 Mono16)"},
        {{"b.pgm", "small.pgm"}, "Mono16", "small.pgm: differs from the files before it: width 1 instead of 2"},
        {{"b.pgm", "byte.pgm"}, "Mono12", "byte.pgm: its samples are stored as Mono8"}};
    for (const auto& rCase : REFUSED) {
        try {
            fnOpen(rCase.vecNames, rCase.pFormat);
            ADD_FAILURE() << rCase.pSaid;
        } catch (const std::exception& rError) {
            EXPECT_NE(std::string(rError.what()).find(rCase.pSaid), std::string::npos) << rError.what();
        }
    }
    write("light_1.pgm", pgm(2, 1, 255, {1, 2}));
    EXPECT_STREQ(makeFrameSource("replay:" + m_strFolder + "?format=BayerGB8")->defaultSettings().pFormat->pName,
                 "BayerGB8");
}

struct Layout {
    uint32_t nWidth, nHeight;
    const PixelFormat& rFormat;
    std::size_t samples() const { return std::size_t{nWidth} * nHeight * rFormat.nChannels; }
};

Samples someSamples(const Layout& rLayout, unsigned uSeed) {
    Samples vecSamples(rLayout.samples());
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        vecSamples[i] = static_cast<uint16_t>((i * 7919 + uSeed * 31 + i / 7) & rLayout.rFormat.fullScale());
    }
    return vecSamples;
}

std::vector<uint8_t> asBytes(const Layout& rLayout, const Samples& vecSamples) {
    std::vector<uint8_t> vecBytes(vecSamples.size() * rLayout.rFormat.nWireBits / 8);
    packSamples(rLayout.rFormat, vecSamples.data(), 0, vecSamples.size(), vecBytes.data());
    return vecBytes;
}

// One page, in strips of some rows or in tiles of 16 x 32 pixels.
void writePage(TIFF* pTiff, const Layout& rLayout, unsigned uPacking, bool bTiled, const Samples& vecSamples) {
    const unsigned nChannels = rLayout.rFormat.nChannels, nBits = rLayout.rFormat.nBits;
    TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, rLayout.nWidth);
    TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, rLayout.nHeight);
    TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, nBits);
    TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, nChannels);
    TIFFSetField(pTiff, TIFFTAG_COMPRESSION, uPacking);
    TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, nChannels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (uPacking == COMPRESSION_LZW || uPacking == COMPRESSION_ADOBE_DEFLATE) {
        TIFFSetField(pTiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    }
    std::vector<uint8_t> vecBytes = asBytes(rLayout, vecSamples);
    const std::size_t nPixel = nChannels * nBits / 8, nRow = rLayout.nWidth * nPixel;
    if (!bTiled) {
        TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, 5U);
        for (uint32_t iY = 0; iY < rLayout.nHeight; ++iY) {
            ASSERT_EQ(TIFFWriteScanline(pTiff, &vecBytes[iY * nRow], iY), 1);
        }
        return;
    }
    constexpr uint32_t TILE_WIDTH = 16, TILE_HEIGHT = 32;
    TIFFSetField(pTiff, TIFFTAG_TILEWIDTH, TILE_WIDTH);
    TIFFSetField(pTiff, TIFFTAG_TILELENGTH, TILE_HEIGHT);
    for (uint32_t iY = 0; iY < rLayout.nHeight; iY += TILE_HEIGHT) {
        for (uint32_t iX = 0; iX < rLayout.nWidth; iX += TILE_WIDTH) {
            std::vector<uint8_t> vecTile(TILE_WIDTH * TILE_HEIGHT * nPixel, 0xEE);  // filled up with nonsense
            for (uint32_t i = 0; i < TILE_HEIGHT && iY + i < rLayout.nHeight; ++i) {
                std::copy_n(&vecBytes[(iY + i) * nRow + iX * nPixel],
                            std::min(TILE_WIDTH, rLayout.nWidth - iX) * nPixel, &vecTile[i * TILE_WIDTH * nPixel]);
            }
            ASSERT_GT(TIFFWriteTile(pTiff, vecTile.data(), iX, iY, 0, 0), 0);
        }
    }
}

TEST_F(ReplaySource, PackedTiledAndManyPagesComeBack) {
    for (const char* pFormat : {"Mono8", "Mono16", "RGB8", "RGB16"}) {
        for (const unsigned uPacking :
             {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS}) {
            for (const bool bTiled : {false, true}) {
                SCOPED_TRACE(std::string(pFormat) + " " + std::to_string(uPacking) + (bTiled ? " tiled" : ""));
                const Layout layout{37, 41, *findPixelFormat(pFormat)};
                TIFF* pTiff = TIFFOpen(path("SCENE.TIF").c_str(), bTiled ? "wb" : "wl8");
                for (unsigned iPage = 0; iPage < 3; ++iPage) {
                    writePage(pTiff, layout, uPacking, bTiled, someSamples(layout, iPage));
                    ASSERT_EQ(TIFFWriteDirectory(pTiff), 1);
                }
                // A small picture of them, which is no frame.
                TIFFSetField(pTiff, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
                writePage(pTiff, {2, 2, layout.rFormat}, COMPRESSION_NONE, false,
                          someSamples({2, 2, layout.rFormat}, 0));
                TIFFClose(pTiff);
                CReplaySource source(std::vector<std::string>{path("SCENE.TIF")});
                ASSERT_EQ(source.frameCount(eSceneObjects), 3U);
                EXPECT_EQ(source.frameName(eSceneObjects, 2), "SCENE_0002");
                for (const unsigned iFrame : {2U, 0U, 1U}) {
                    EXPECT_TRUE(frame(source, eSceneObjects, iFrame) == someSamples(layout, iFrame)) << iFrame;
                }
            }
        }
    }
}

TEST_F(ReplaySource, SmallFilesDoNotBecomeHugeImages) {
    const Layout layout{8192, 6000, *findPixelFormat("Mono8")};
    for (const bool bPng : {false, true}) {
        const Samples vecBlack(layout.samples());
        const std::vector<uint8_t> vecBytes(vecBlack.size());
        if (bPng) {
            std::FILE* const pFile = std::fopen(path("a.png").c_str(), "wb");
            writePng(fileno(pFile), {layout.nWidth, layout.nHeight, 1, 8, vecBytes.data(), nullptr});
            std::fclose(pFile);
        } else {
            TIFF* pTiff = TIFFOpen(path("a.tif").c_str(), "w");
            writePage(pTiff, layout, COMPRESSION_ADOBE_DEFLATE, false, vecBlack);
            TIFFClose(pTiff);
        }
        try {
            imageLayout(path(bPng ? "a.png" : "a.tif"));
            ADD_FAILURE() << bPng;
        } catch (const std::runtime_error& rError) {
            EXPECT_NE(std::string(rError.what()).find("too large for such a small file"), std::string::npos)
                << rError.what();
        }
    }
}

TEST_F(ReplaySource, PngComesBackAndDamageIsTold) {
    for (const char* pFormat : {"Mono8", "Mono16", "RGB8", "RGB16"}) {
        const Layout layout{37, 41, *findPixelFormat(pFormat)};
        const Samples vecSamples = someSamples(layout, 5);
        std::vector<uint8_t> vecBytes = asBytes(layout, vecSamples);
        if (layout.rFormat.nWireBits == 16) {
            for (std::size_t i = 0; i < vecBytes.size(); i += 2) {
                std::swap(vecBytes[i], vecBytes[i + 1]);  // the high byte first
            }
        }
        std::FILE* const pFile = std::fopen(path("light_1.PNG").c_str(), "wb");
        writePng(fileno(pFile), {layout.nWidth, layout.nHeight, layout.rFormat.nChannels, layout.rFormat.nBits,
                                 vecBytes.data(), "who and what"});
        std::fclose(pFile);
        {
            CReplaySource source(m_strFolder);
            EXPECT_STREQ(source.defaultSettings().pFormat->pName, pFormat);
            EXPECT_TRUE(frame(source, eSceneLight, 0) == vecSamples) << pFormat;
        }
        EXPECT_EQ(pngDescription(path("light_1.PNG")), "who and what");
    }
    std::ifstream file(path("light_1.PNG"), std::ios::binary);
    const std::string strGood((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto fnSpoilt = [&](std::size_t iAt, char c) {
        std::string strBytes = strGood;
        strBytes[iAt] = c;
        return strBytes;
    };
    const std::pair<const char*, std::string> aCases[] = {{"ends too early", strGood.substr(0, strGood.size() / 2)},
                                                          {"begin", strGood.substr(0, 20)},
                                                          {"palette", fnSpoilt(25, 3)},
                                                          {"transparency", fnSpoilt(25, 6)},
                                                          {"16 bits", fnSpoilt(24, 4)},
                                                          {"0 x 41", fnSpoilt(19, 0)},
                                                          {"PNG cannot be used", fnSpoilt(strGood.size() / 2, 'x')},
                                                          {"PNG cannot be used", fnSpoilt(19, 36)}};
    for (const auto& [pSaid, strBytes] : aCases) {
        write("light_1.PNG", strBytes);
        EXPECT_EQ(complaint().rfind(path("light_1.PNG") + ": ", 0), 0U) << complaint();
        EXPECT_NE(complaint().find(pSaid), std::string::npos) << pSaid << "\n" << complaint();
    }
}

TEST_F(ReplaySource, AFileThatChangedAfterOpeningIsRefused) {
    write("light_1.pgm", pgm(2, 1, 255, {1, 2}));
    CReplaySource source(m_strFolder);
    write("light_1.pgm", pgm(2, 100, 255, Samples(200, 1)));
    EXPECT_THROW(frame(source, eSceneLight, 0), std::runtime_error);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
