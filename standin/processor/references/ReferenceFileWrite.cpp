// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writing reference files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "standin/files/TiffHandle.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t STRIP_BYTES = 1 << 20;
constexpr std::size_t CLASSIC_BYTES_MAX = 4'000'000'000;  // a classic TIFF has 32-bit offsets

[[noreturn]] void failWithSystemError(const char* strWhat) {
    throw CFileError(std::string(strWhat) + ": " + systemError());
}

void setTags(const CTiffHandle& rTiff, const ReferenceImage& rReference, std::size_t nRowsPerStrip) {
    TIFF* pTiff = rTiff.get();
    const bool bColour = rReference.sLayout.pFormat->nChannels == 3;
    const bool bGood = TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(rReference.sLayout.nWidth)) &&
                       TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(rReference.sLayout.nHeight)) &&
                       TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, bColour ? 3 : 1) &&
                       TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, 32) &&
                       TIFFSetField(pTiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP) &&
                       TIFFSetField(pTiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
                       TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, bColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
                       TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                       TIFFSetField(pTiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                       TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(nRowsPerStrip)) &&
                       TIFFSetField(pTiff, TIFFTAG_IMAGEDESCRIPTION, makeDescription(rReference).c_str());
    rTiff.check(bGood, "the TIFF library refuses a tag");
}

/// Ends the first page and writes the map as the second one.
void writeDefects(const CTiffHandle& rTiff, const ReferenceImage& rReference) {
    TIFF* pTiff = rTiff.get();
    const ImageLayout& rLayout = rReference.sLayout;
    const auto nWidth = static_cast<std::size_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    const std::size_t nRowsPerStrip = std::max<std::size_t>(1, STRIP_BYTES / nWidth);
    rTiff.check(TIFFWriteDirectory(pTiff) == 1, "cannot write the directory");
    const bool bGood = TIFFSetField(pTiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(nWidth)) &&
                       TIFFSetField(pTiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(nHeight)) &&
                       TIFFSetField(pTiff, TIFFTAG_SAMPLESPERPIXEL, 1) &&
                       TIFFSetField(pTiff, TIFFTAG_BITSPERSAMPLE, 8) &&
                       TIFFSetField(pTiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
                       TIFFSetField(pTiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
                       TIFFSetField(pTiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) &&
                       TIFFSetField(pTiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                       TIFFSetField(pTiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                       TIFFSetField(pTiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(nRowsPerStrip)) &&
                       TIFFSetField(pTiff, TIFFTAG_PAGENAME, "defects");
    rTiff.check(bGood, "the TIFF library refuses a tag");
    uint32_t iStrip = 0;
    for (std::size_t iY = 0; iY < nHeight; iY += nRowsPerStrip, ++iStrip) {
        auto* pRows = const_cast<uint8_t*>(&rReference.vecDefects[iY * nWidth]);  // as above
        const auto nBytes = static_cast<tmsize_t>(std::min(nRowsPerStrip, nHeight - iY) * nWidth);
        rTiff.check(TIFFWriteEncodedStrip(pTiff, iStrip, pRows, nBytes) == nBytes, "cannot write the defect map");
    }
}

/// A map is one that readReferenceFile takes.
void checkDefects(const ReferenceImage& rReference) {
    const ImageLayout& rLayout = rReference.sLayout;
    const std::vector<uint8_t>& rMap = rReference.vecDefects;
    if (rMap.empty()) {
        return;
    }
    const bool bGood = rReference.eKind == eReferenceLight && rMap.size() == rLayout.nWidth * rLayout.nHeight &&
                       std::all_of(rMap.begin(), rMap.end(), [](uint8_t u) { return (u & ~eDefectBits) == 0; });
    const auto nGood = static_cast<uint64_t>(std::count(rMap.begin(), rMap.end(), 0));
    if (!bGood || rMap.size() - nGood > ReferenceImage::defectsMax(rLayout)) {
        throw CFileError("the defect map is none that a light reference of this size can carry");
    }
}

void writeTiff(int iFile, const ReferenceImage& rReference) {
    checkDefects(rReference);
    const std::size_t nRow = rReference.sLayout.samplesPerRow();
    const auto nHeight = static_cast<std::size_t>(rReference.sLayout.nHeight);
    const std::size_t nRowsPerStrip = std::max<std::size_t>(1, STRIP_BYTES / (nRow * sizeof(float)));
    const bool bLarge = rReference.vSamples.size() * sizeof(float) + rReference.vecDefects.size() > CLASSIC_BYTES_MAX;
    const CTiffHandle sTiff(iFile, bLarge ? "w8" : "w", 0);
    setTags(sTiff, rReference, nRowsPerStrip);
    uint32_t iStrip = 0;
    for (std::size_t iY = 0; iY < nHeight; iY += nRowsPerStrip, ++iStrip) {
        // The library takes a pointer to non-const, but changes the samples only to swap the order of their bytes.
        auto* pSamples = const_cast<float*>(&rReference.vSamples[iY * nRow]);
        const auto nBytes = static_cast<tmsize_t>(std::min(nRowsPerStrip, nHeight - iY) * nRow * sizeof(float));
        sTiff.check(TIFFWriteEncodedStrip(sTiff.get(), iStrip, pSamples, nBytes) == nBytes, "cannot write the samples");
    }
    if (!rReference.vecDefects.empty()) {
        writeDefects(sTiff, rReference);
    }
    // Closing would flush too, but reports nothing.
    sTiff.check(TIFFFlush(sTiff.get()) == 1, "cannot write the directory");
}

/// A file under a name of its own in an open folder; removed unless renamed.
class CTemporaryFile {
public:
    explicit CTemporaryFile(int iFolder) : m_iFolder(iFolder), m_strName(create(iFolder)) {}
    ~CTemporaryFile() {
        if (!m_strName.empty())
            unlinkat(m_iFolder, m_strName.c_str(), 0);
    }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    int get() const { return m_sFile.get(); }

    /// Flushes the file to disk and gives it its name, in place of another file of that name.
    void finish(const std::string& strName) {
        if (fsync(m_sFile.get()) != 0)
            failWithSystemError("cannot flush");
        if (!m_sFile.close())
            failWithSystemError("cannot close");
        if (renameat(m_iFolder, m_strName.c_str(), m_iFolder, strName.c_str()) != 0)
            failWithSystemError("cannot rename");
        m_strName.clear();
    }

private:
    std::string create(int iFolder) {
        for (int i = 0; i < 100; ++i) {
            // The time as well, since a process number comes again and the file of a killed process stays behind.
            const auto iNow = std::chrono::system_clock::now().time_since_epoch().count();
            std::string strName = ".reference-" + std::to_string(getpid()) + "-" + std::to_string(iNow) + ".tmp";
            m_iFile = openat(iFolder, strName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (m_iFile >= 0)
                return strName;
            if (errno != EEXIST)
                break;
        }
        failWithSystemError("cannot create a file in the folder");
    }

    int m_iFolder;
    int m_iFile = -1;
    std::string m_strName;
    CFileDescriptor m_sFile{m_iFile};
};

}  // namespace

void writeReferenceFile(const std::string& strFile, const ReferenceImage& rReference) {
    const std::size_t iSlash = strFile.rfind('/');
    const std::string strName = iSlash == std::string::npos ? strFile : strFile.substr(iSlash + 1);
    const std::string strFolder = iSlash == std::string::npos ? "." : strFile.substr(0, iSlash + 1);
    if (strName.empty() || strFile.find('\0') != std::string::npos)
        throw CFileError("no file name");

    CFileDescriptor sFolder(open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (sFolder.get() < 0)
        failWithSystemError("cannot open the folder");
    CTemporaryFile sTemporary(sFolder.get());
    writeTiff(sTemporary.get(), rReference);
    sTemporary.finish(strName);
    // Without this the new name may be lost when the power fails. Some file systems cannot: EINVAL.
    if (fsync(sFolder.get()) != 0 && errno != EINVAL)
        failWithSystemError("cannot flush the folder");
}

}  // namespace StandIn
}  // namespace XAPEL2
