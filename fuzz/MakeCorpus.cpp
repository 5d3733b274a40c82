// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes the seeds of the fuzz targets: FOLDER/TARGET/* small and mostly sound, FOLDER/TARGET-limits/* large and
// hostile.

#include <tiffio.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "standin/files/PngOutput.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2::StandIn;

namespace {

std::string g_strFolder;

std::string path(const std::string& strTarget, const std::string& strName) {
    std::filesystem::create_directories(g_strFolder + "/" + strTarget);
    return g_strFolder + "/" + strTarget + "/" + strName;
}

void write(const std::string& strTarget, const std::string& strName, const std::string& strBytes) {
    std::ofstream(path(strTarget, strName), std::ios::binary) << strBytes;
}

std::string description(const std::string& strMore = "") {
    return R"({"kind":"light","pixelFormat":"Mono12","images":2,"saturatedShare":0.5,"mean":5,"temporalNoise":1e-3)" +
           strMore + "}";
}

struct Tag {
    uint64_t uTag, uType, nCount, uValue;
};

/// Writes a TIFF by hand: header, any bytes, and at the end the directory.
struct Forger {
    bool bBigEndian, bLarge;
    std::size_t nPlace = bLarge ? 8 : 4;  // bytes of an offset
    std::size_t nHead = 2 * nPlace;

    std::string number(uint64_t uValue, std::size_t nBytes) const {
        std::string strBytes;
        for (std::size_t i = 0; i < nBytes; ++i) {
            strBytes += static_cast<char>(uValue >> 8 * (bBigEndian ? nBytes - 1 - i : i));
        }
        return strBytes;
    }
    std::string file(const std::string& strBytes, const std::vector<Tag>& rTags) const {
        std::string strFile = (bBigEndian ? "MM" : "II") + number(bLarge ? 43 : 42, 2);
        strFile += (bLarge ? number(8, 2) + number(0, 2) : "") + number(nHead + strBytes.size(), nPlace) + strBytes;
        strFile += number(rTags.size(), bLarge ? 8 : 2);
        for (const Tag& r : rTags) {
            const std::string strShort = number(r.uValue, 2) + number(0, nPlace - 2);
            strFile += number(r.uTag, 2) + number(r.uType, 2) + number(r.nCount, nPlace) +
                       (r.uType == TIFF_SHORT && r.nCount == 1 ? strShort : number(r.uValue, nPlace));
        }
        return strFile + number(0, nPlace);
    }
    /// An image in strips of one row, which are all the same place of the file where bShared; of 32 bits: a reference.
    std::string image(uint64_t nWidth, uint64_t nHeight, uint64_t nBits, uint64_t nSamples, bool bShared = false,
                      const std::vector<Tag>& rMore = {}) const {
        const uint64_t nRow = nWidth * nSamples * nBits / 8;
        const uint64_t uArray = bLarge ? TIFF_LONG8 : TIFF_LONG;
        std::string strBytes;
        for (uint64_t i = 0; i < nHeight; ++i) {
            strBytes += number(nHead + 2 * nPlace * nHeight + (bShared ? 0 : i * nRow), nPlace);
        }
        for (uint64_t i = 0; i < nHeight; ++i) {
            strBytes += number(nRow, nPlace);
        }
        strBytes += std::string(nRow * (bShared ? 1 : nHeight), '\x3F');
        std::vector<Tag> vecTags = {{TIFFTAG_IMAGEWIDTH, TIFF_SHORT, 1, nWidth},
                                    {TIFFTAG_IMAGELENGTH, TIFF_SHORT, 1, nHeight},
                                    {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, 1, nBits},
                                    {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, 1, nSamples == 3 ? 2U : 1U},
                                    {TIFFTAG_STRIPOFFSETS, uArray, nHeight, nHead},
                                    {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, 1, nSamples},
                                    {TIFFTAG_ROWSPERSTRIP, TIFF_SHORT, 1, 1},
                                    {TIFFTAG_STRIPBYTECOUNTS, uArray, nHeight, nHead + nPlace * nHeight}};
        if (nBits == 32) {
            vecTags.insert(vecTags.begin() + 4,
                           {TIFFTAG_IMAGEDESCRIPTION, TIFF_ASCII, description().size() + 1, nHead + strBytes.size()});
            vecTags.push_back({TIFFTAG_SAMPLEFORMAT, TIFF_SHORT, 1, SAMPLEFORMAT_IEEEFP});
            strBytes += description() + '\0';
        }
        vecTags.insert(vecTags.end(), rMore.begin(), rMore.end());
        return file(strBytes, vecTags);
    }
};

void writeTiffs() {
    for (int i = 0; i < 4; ++i) {
        const Forger sForger = {i % 2 != 0, i / 2 != 0};
        const std::string strName = std::to_string(i);
        write("reference-file", strName, sForger.image(3, 2, 32, 1));
        write("replay-frame", strName + "-8", sForger.image(3, 2, 8, 1));
        write("replay-frame", strName + "-16", sForger.image(3, 2, 16, 1));
        write("replay-frame", strName + "-rgb", sForger.image(3, 2, 8, 3));
        // The size of such a file says nothing about its image, or about the memory that its tags take.
        write("reference-file-limits", strName + "-shared", sForger.image(10000, 10000, 32, 1, true));
        write("replay-frame-limits", strName + "-shared", sForger.image(30000, 20000, 8, 1, true));
        write("reference-file-limits", strName + "-wide", sForger.image(40000, 1, 32, 1));
        write("replay-frame-limits", strName + "-wide", sForger.image(40000, 1, 8, 1));
        for (const auto& [nTags, nBytes] : {std::pair(50U, 400000U), std::pair(4000U, 100U), std::pair(20000U, 1U)}) {
            std::vector<Tag> vecTags;
            for (unsigned iTag = 0; iTag < nTags; ++iTag) {
                vecTags.push_back({iTag + 400, TIFF_BYTE, nBytes, 16});
            }
            const std::string strTags = strName + "-" + std::to_string(nTags);
            write("reference-file-limits", strTags, sForger.image(10000, 10, 32, 1, false, vecTags));
            write("replay-frame-limits", strTags, sForger.image(10000, 40, 8, 1, false, vecTags));
        }
    }
    for (const char* pFormat : {"Mono8", "BayerRG12p", "Mono10Packed", "RGB8", "Mono16"}) {
        const ImageLayout layout = {findPixelFormat(pFormat), 5, 3};
        const std::string strCamera = layout.pFormat->isCfa() ? R"({"gain":[1,{"b":"x"}]})" : "";
        writeReferenceFile(path("reference-file", pFormat), {eReferenceDark, layout, 3, 0.25, 7.5, 0.5, strCamera,
                                                             std::vector<float>(layout.samples(), 77.3F)});
        ReferenceImage light{
            eReferenceLight, layout, 3, 0.25, 7.5, 0.5, strCamera, std::vector<float>(layout.samples(), 77.3F)};
        light.output = {eTargetValue, 100.0, 2.5};
        light.vecDefects = std::vector<uint8_t>(15, 0);
        light.vecDefects[7] = eDefectHot;
        writeReferenceFile(path("reference-file", std::string(pFormat) + "-defects"), light);
    }
}

/// Frames as the libraries write them: packed, in tiles, two to a file.
void writeFrames() {
    const std::vector<uint8_t> vecBytes(16 * 16 * 6, 77);
    for (const int iPacking : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS}) {
        for (const bool bTiled : {false, true}) {
            const std::string strName = "packed-" + std::to_string(iPacking) + (bTiled ? "-tiles" : "");
            TIFF* const pTiff = TIFFOpen(path("replay-frame", strName).c_str(), "w");
            for (int iPage = 0; iPage < 2; ++iPage) {
                TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, 11U);
                TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, 7U);
                TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, bTiled ? 8 : 16);
                TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, bTiled ? 3 : 1);
                TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, bTiled ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
                TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
                TIFFSetField(pTiff, TIFFTAG_COMPRESSION, iPacking);
                auto* const pBytes = const_cast<uint8_t*>(vecBytes.data());
                if (bTiled) {
                    TIFFSetField(pTiff, TIFFTAG_TILEWIDTH, 16U);
                    TIFFSetField(pTiff, TIFFTAG_TILELENGTH, 16U);
                    TIFFWriteTile(pTiff, pBytes, 0, 0, 0, 0);
                } else {
                    TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, 7U);
                    TIFFWriteEncodedStrip(pTiff, 0, pBytes, 11 * 7 * 2);
                }
                TIFFWriteDirectory(pTiff);
            }
            TIFFClose(pTiff);
        }
    }
    for (const unsigned nChannels : {1U, 3U}) {
        for (const unsigned nBits : {8U, 16U}) {
            const std::string strFile =
                path("replay-frame", "png-" + std::to_string(nChannels) + "-" + std::to_string(nBits));
            std::FILE* const pFile = std::fopen(strFile.c_str(), "wb");
            writePng(fileno(pFile), {11, 7, nChannels, nBits, vecBytes.data(), "description"});
            std::fclose(pFile);
        }
    }
}

void writeTexts() {
    write("replay-frame", "8.pgm", "P5\n# text\n3 2\n250\nabcdef");
    write("replay-frame", "12.pgm", "P5 2 1 4095 \x0F\xFF\x01\x02");
    write("replay-frame", "8.ppm", "P6 2 1 200\nabcdef");
    write("replay-frame-limits", "short.pgm", "P5\n32768 32768\n65535\n");
    write("replay-frame-limits", "comment.pgm", "P5\n#" + std::string(900000, '#') + "\n1 1 255 a");

    const auto camera = [](const std::string& strJson) { return description(R"(,"camera":)" + strJson); };
    write("reference-description", "plain", description());
    write("reference-description", "full", camera(R"({"a":[1,-2,0.5,true,null],"\u00e9\n":{"b":"\\\""}})"));
    write("reference-description", "deepest", camera(R"({"a":[{"a":[{"a":[[ ]]}]}]})"));
    write("reference-description", "too-deep", camera(R"({"a":[{"a":[{"a":[[[]]]}]}]})"));
    write("reference-description", "output", description(R"(,"output":{"target":"max","pedestal":16})"));
    write("reference-description", "output-number", description(R"(,"output":{"target":300.5,"pedestal":0})"));
    const std::string strAxis = R"("OffsetX":0,"OffsetY":1,"BinningHorizontal":2,"BinningVertical":1,)";
    const std::string strSensor = R"("SensorWidth":12,"SensorHeight":5,)";
    write("reference-description", "geometry",
          description(R"(,"geometry":{)" + strSensor + strAxis +
                      R"("BinningHorizontalMode":"Sum","ReverseX":true,"ReverseY":false})"));
    write("reference-description", "geometry-outside",
          description(R"(,"geometry":{"SensorWidth":12,"SensorHeight":4,)" + strAxis + R"("ReverseX":1})"));
    write("reference-description", "negative", description(R"(,"mean":-1)"));
    write("reference-description-limits", "deep", camera(std::string(900000, '[')));
    write("reference-description-limits", "deep-short", camera(R"({"a":)" + std::string(60000, '[')));
    write("reference-description-limits", "long", camera(R"({"a":")" + std::string(900000, 'x') + R"("})"));
}

/// Two recordings, saved, applied with filters, loaded again. The steps are those of the processor's target.
void writeSequences() {
    using Steps = std::basic_string<char>;
    for (const char cFormat : Steps{0, 2, 5, 6, 13, 24, 31}) {
        for (const char cSide : Steps{3, 47}) {
            const Steps strSize = {0, cFormat, 1, 0, cSide, 2, 0, 23};
            const Steps strDark = {6, 7, 3, 0, 20, 6, 2, 3, 8, 9, 6, 2, 4, 0, 6, 9};
            const Steps strLight = {6, 8, 3, 4, 60, 6, 2, 3,
                                    1, 0, 6, 2, 4,  1, 6, 9};  // with an image that is too small
            const Steps strCorrect = {6, 3, 3, 2, 7, 6, 2, 5, 1, 3, 5, 3, 2, 6, 3, 3, 10, 5, 6, 2};
            const Steps strLoad = {6, 4, 4, 0, 6, 5, 4, 1, 6, 6, 6, 3, 3, 0, 9, 6, 2};
            write("processor", std::to_string(cFormat) + "-" + std::to_string(cSide),
                  strSize + strDark + strLight + strCorrect + strLoad);
        }
    }
    // Windows at two places and a binned, mirrored image, taken before the first is corrected; the steps are those of
    // the target of places.
    for (const char cFormat : Steps{0, 1, 2, 3}) {
        write("places", std::to_string(cFormat),
              Steps{0, cFormat, 0, 1} + Steps{1, 5, 3, 5, 2, 3, 0, 9, 7, 20} + Steps{1, 5, 4, 5, 5, 3, 1, 7, 9, 30} +
                  Steps{1, 84, 0, 84, 0, 3, 2, 5, 3, 40} + Steps{5, 0, 5, 1, 5, 2, 1, 5, 9, 5, 9, 5, 0});
    }
    // Writes without a command, each of which the nodes refuse.
    Steps strRefused;
    while (strRefused.size() < 900000) {
        strRefused += Steps{5, 0, '\xF3', 1, 0, '\xF4'};
    }
    write("processor-limits", "refused", strRefused);
}

}  // namespace

int main(int, char** pArguments) {
    g_strFolder = pArguments[1];
    writeTiffs();
    writeFrames();
    writeTexts();
    writeSequences();
    return 0;
}
