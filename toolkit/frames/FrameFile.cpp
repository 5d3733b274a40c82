// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing frames as portable pixmaps (Netpbm PGM and PPM, binary) or TIFF.

#include "toolkit/frames/FrameFile.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "standin/files/PngOutput.h"
#include "standin/files/SafeFile.h"
#include "standin/files/SampleBytes.h"
#include "standin/files/TiffOutput.h"

namespace XAPEL2 {
namespace Toolkit {

namespace fs = std::filesystem;

namespace {

bool takesTwoBytes(const StandIn::PixelFormat& rFormat) {
    return rFormat.fullScale() > 255;
}

/// The samples of an image as a file has them: 8 or 16 bits, red first.
class CFileSamples {
public:
    /// @param[in] bHighFirst  the high byte of 16 bits comes first.
    CFileSamples(const StandIn::ImageLayout& rLayout, const void* pImage, bool bHighFirst)
        : m_rFormat(*rLayout.pFormat),
          m_pImage(static_cast<const uint8_t*>(pImage)),
          m_nSampleBytes(takesTwoBytes(m_rFormat) ? 2 : 1),
          m_bHighFirst(bHighFirst && m_nSampleBytes == 2),
          m_bBlueFirst(std::strncmp(m_rFormat.pName, "BGR", 3) == 0) {}

    std::size_t sampleBytes() const { return m_nSampleBytes; }

    /// True where the image itself looks like this.
    bool isImage() const { return isStraight() && !m_bHighFirst; }

    /// The bytes of nSamples samples, SAMPLE_BLOCK at most, from a multiple of it on; valid until the next call.
    const uint8_t* block(std::size_t iFirst, std::size_t nSamples) {
        if (isImage()) {
            return m_pImage + iFirst * m_nSampleBytes;
        }
        m_vecBytes.resize(StandIn::SAMPLE_BLOCK * m_nSampleBytes);
        if (isStraight()) {
            StandIn::swapSamples(m_pImage + iFirst * 2, nSamples, m_vecBytes.data());
            return m_vecBytes.data();
        }
        m_vecSamples.resize(StandIn::SAMPLE_BLOCK);
        StandIn::unpackSamples(m_rFormat, m_pImage, iFirst, nSamples, m_vecSamples.data());
        if (m_bBlueFirst) {
            StandIn::exchangeRedAndBlue(m_vecSamples.data(), nSamples);
        }
        if (m_bHighFirst) {
            StandIn::swapSamples(m_vecSamples.data(), nSamples, m_vecBytes.data());
        } else if (m_nSampleBytes == 2) {
            std::memcpy(m_vecBytes.data(), m_vecSamples.data(), nSamples * 2);
        } else {
            std::transform(m_vecSamples.begin(), m_vecSamples.begin() + static_cast<std::ptrdiff_t>(nSamples),
                           m_vecBytes.begin(), [](uint16_t u) { return static_cast<uint8_t>(u); });
        }
        return m_vecBytes.data();
    }

private:
    bool isStraight() const { return m_rFormat.nWireBits == 8 * m_nSampleBytes && !m_bBlueFirst; }

    const StandIn::PixelFormat& m_rFormat;
    const uint8_t* m_pImage;
    std::size_t m_nSampleBytes;
    bool m_bHighFirst, m_bBlueFirst;
    std::vector<uint8_t> m_vecBytes;
    std::vector<uint16_t> m_vecSamples;
};

/// Calls with each block of bytes, a whole image at once where it need not be changed.
template <typename Use>
void forEachBlock(CFileSamples& rSamples, std::size_t nSamples, Use fnUse) {
    const std::size_t nBlock = rSamples.isImage() ? nSamples : StandIn::SAMPLE_BLOCK;
    for (std::size_t i = 0; i < nSamples; i += nBlock) {
        const std::size_t nNow = std::min(nBlock, nSamples - i);
        fnUse(rSamples.block(i, nNow), nNow * rSamples.sampleBytes());
    }
}

void writePixmap(const StandIn::CSafeFile& rOut, const StandIn::ImageLayout& rLayout, const void* pImage,
                 const std::string& strDescription) {
    CFileSamples samples(rLayout, pImage, true);
    rOut.write((rLayout.pFormat->nChannels == 3 ? "P6\n" : "P5\n") +
               (strDescription.empty() ? "" : "# " + strDescription + "\n") + std::to_string(rLayout.nWidth) + ' ' +
               std::to_string(rLayout.nHeight) + '\n' + std::to_string(rLayout.pFormat->fullScale()) + '\n');
    forEachBlock(samples, rLayout.samples(),
                 [&](const uint8_t* pBytes, std::size_t nBytes) { rOut.write(pBytes, nBytes); });
}

/// All of it, where it does not look like that in memory.
std::vector<uint8_t> allBytes(CFileSamples& rSamples, const StandIn::ImageLayout& rLayout) {
    std::vector<uint8_t> vecBytes;
    vecBytes.reserve(rLayout.samples() * rSamples.sampleBytes());
    forEachBlock(rSamples, rLayout.samples(), [&](const uint8_t* pBytes, std::size_t nBytes) {
        vecBytes.insert(vecBytes.end(), pBytes, pBytes + nBytes);
    });
    return vecBytes;
}

void writePng(const StandIn::CSafeFile& rOut, const StandIn::ImageLayout& rLayout, const void* pImage,
              const std::string& strDescription) {
    CFileSamples samples(rLayout, pImage, true);
    const std::vector<uint8_t> vecBytes = samples.isImage() ? std::vector<uint8_t>() : allBytes(samples, rLayout);
    StandIn::writePng(rOut.get(), {rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->nChannels,
                                   static_cast<unsigned>(8 * samples.sampleBytes()),
                                   samples.isImage() ? static_cast<const uint8_t*>(pImage) : vecBytes.data(),
                                   strDescription.empty() ? nullptr : strDescription.c_str()});
}

void writeTiff(const StandIn::CSafeFile& rOut, const StandIn::ImageLayout& rLayout, const void* pImage,
               const std::string& strDescription) {
    StandIn::TiffImage image;
    image.nWidth = rLayout.nWidth;
    image.nHeight = rLayout.nHeight;
    image.nChannels = static_cast<uint16_t>(rLayout.pFormat->nChannels);
    image.nBits = takesTwoBytes(*rLayout.pFormat) ? 16 : 8;
    image.uLargest = static_cast<uint16_t>(rLayout.pFormat->fullScale());
    image.pDescription = strDescription.empty() ? nullptr : strDescription.c_str();
    CFileSamples samples(rLayout, pImage, false);
    if (samples.isImage()) {
        return StandIn::writeTiff(rOut.get(), {{image, pImage}});
    }
    StandIn::writeTiff(rOut.get(), {{image, allBytes(samples, rLayout).data()}});
}

}  // namespace

fs::path frameFile(const fs::path& rFolder, const std::string& strName, const StandIn::PixelFormat& rFormat,
                   eFrameFile eKind) {
    return rFolder / (strName + (eKind == eTiff           ? ".tif"
                                 : eKind == ePng          ? ".png"
                                 : rFormat.nChannels == 3 ? ".ppm"
                                                          : ".pgm"));
}

void writeImage(const fs::path& rFile, const StandIn::ImageLayout& rLayout, const void* pImage, eFrameFile eKind,
                const std::string& strDescription) {
    try {
        StandIn::CSafeFile out(rFile, StandIn::eSaveQuick);
        (eKind == eTiff ? writeTiff : eKind == ePng ? writePng : writePixmap)(out, rLayout, pImage, strDescription);
        out.finish();
    } catch (const StandIn::CFileError& rError) {
        throw std::runtime_error(rFile.string() + " cannot be written: " + rError.what());
    }
}

fs::path writeFrame(const fs::path& rFolder, const Frame& rFrame, eFrameFile eKind) {
    fs::path file = frameFile(rFolder, rFrame.strName, *rFrame.pFormat, eKind);
    StandIn::PixelFormat spread = *rFrame.pFormat;
    spread.nWireBits = 16;  // as a frame has all its samples
    writeImage(file, {&spread, rFrame.nWidth, rFrame.nHeight}, rFrame.vecSamples.data(), eKind);
    return file;
}

}  // namespace Toolkit
}  // namespace XAPEL2
