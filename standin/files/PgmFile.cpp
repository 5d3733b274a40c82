// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads binary PGM and PPM files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "standin/files/ImageFile.h"
#include "standin/files/SampleBytes.h"
#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Comments included; no writer makes a header anywhere near the longest.
constexpr std::size_t HEADER_BYTES = 512, HEADER_BYTES_MAX = 65536;

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Walks through the text header of one file.
class CPgmHeader {
public:
    CPgmHeader(const std::string& strPath, const std::string& strText) : m_strPath(strPath), m_strText(strText) {}

    // The next number, after white space and comments; it must lie within 1 and uMax.
    uint32_t number(const char* pWhat, uint32_t uMax) {
        skipSpace();
        uint64_t uValue = 0;
        const std::size_t iStart = m_iPos;
        for (; m_iPos < m_strText.size() && m_strText[m_iPos] >= '0' && m_strText[m_iPos] <= '9'; ++m_iPos) {
            uValue = uValue * 10 + static_cast<uint64_t>(m_strText[m_iPos] - '0');
            if (uValue > uMax) {
                failImageFile(m_strPath, std::string("PGM ") + pWhat + " above " + std::to_string(uMax));
            }
        }
        if (m_iPos == iStart) {
            failImageFile(m_strPath, std::string("PGM header without a ") + pWhat);
        }
        if (uValue == 0) {
            failImageFile(m_strPath, std::string("PGM ") + pWhat + " is 0");
        }
        return static_cast<uint32_t>(uValue);
    }

    // One white space ends the header; the samples follow.
    std::size_t end() {
        if (m_iPos >= m_strText.size() || !isSpace(m_strText[m_iPos])) {
            failImageFile(m_strPath, "PGM header does not end with a white space");
        }
        return m_iPos + 1;
    }

private:
    void skipSpace() {
        const std::size_t iStart = m_iPos;
        while (m_iPos < m_strText.size() && (isSpace(m_strText[m_iPos]) || m_strText[m_iPos] == '#')) {
            if (m_strText[m_iPos] == '#') {
                m_iPos = std::min(m_strText.find('\n', m_iPos), m_strText.size());
            } else {
                ++m_iPos;
            }
        }
        if (m_iPos == iStart) {
            failImageFile(m_strPath, "PGM header is damaged");
        }
    }

    const std::string& m_strPath;
    const std::string& m_strText;
    std::size_t m_iPos = 2;
};

const PixelFormat* formatOfMaxval(uint32_t uMaxval) {
    for (const char* pName : {"Mono8", "Mono10", "Mono12", "Mono14"}) {
        const PixelFormat* pFormat = findPixelFormat(pName);
        if (uMaxval <= pFormat->fullScale()) {
            return pFormat;
        }
    }
    return findPixelFormat("Mono16");
}

// Opens the file and checks that exactly the samples follow the header. What is read comes from one open file, whatever
// takes its name meanwhile.
class CPgmInput {
public:
    explicit CPgmInput(const std::string& strPath);

    const ImageFileLayout& layout() const { return m_layout; }
    void read(void* pBytes, std::size_t nBytes);

private:
    static int openFile(const std::string& strPath);
    uint64_t sizeOfFile() const;

    const std::string& m_strPath;
    CFileDescriptor m_file;
    uint64_t m_uPosition = 0;
    ImageFileLayout m_layout;
};

int CPgmInput::openFile(const std::string& strPath) {
    // Without O_NONBLOCK opening a pipe would wait for a writer.
    const int iFile = open(strPath.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (iFile < 0) {
        failImageFile(strPath, "cannot be opened: " + systemError());
    }
    return iFile;
}

uint64_t CPgmInput::sizeOfFile() const {
    struct stat status = {};
    if (fstat(m_file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        failImageFile(m_strPath, "not a regular file");
    }
    return static_cast<uint64_t>(status.st_size);
}

void CPgmInput::read(void* pBytes, std::size_t nBytes) {
    for (std::size_t i = 0; i < nBytes;) {
        const ssize_t nRead =
            pread(m_file.get(), static_cast<char*>(pBytes) + i, nBytes - i, static_cast<off_t>(m_uPosition));
        if (nRead < 0 && errno == EINTR) {
            continue;
        }
        if (nRead <= 0) {
            failImageFile(m_strPath, nRead < 0 ? "cannot be read: " + systemError() : "became shorter");
        }
        i += static_cast<std::size_t>(nRead);
        m_uPosition += static_cast<uint64_t>(nRead);
    }
}

CPgmInput::CPgmInput(const std::string& strPath) : m_strPath(strPath), m_file(openFile(strPath)) {
    const uint64_t nFileBytes = sizeOfFile();
    // Most headers are short, and a long one is read again as a whole.
    std::string strText(static_cast<std::size_t>(std::min<uint64_t>(nFileBytes, HEADER_BYTES)), '\0');
    read(strText.data(), strText.size());
    const bool bColour = strText.compare(0, 2, "P6") == 0;
    if (!bColour && strText.compare(0, 2, "P5") != 0) {
        failImageFile(strPath, "not a binary PGM (P5) or PPM (P6)");
    }
    if (strText.find('#') != std::string::npos && nFileBytes > HEADER_BYTES) {
        m_uPosition = 0;
        strText.resize(static_cast<std::size_t>(std::min<uint64_t>(nFileBytes, HEADER_BYTES_MAX)));
        read(strText.data(), strText.size());
    }

    CPgmHeader header(strPath, strText);
    m_layout.nWidth = header.number("width", IMAGE_SIDE_MAX);
    m_layout.nHeight = header.number("height", IMAGE_SIDE_MAX);
    m_layout.uMaxval = header.number("maxval", 65535);
    m_layout.pFormat =
        bColour ? findPixelFormat(m_layout.uMaxval > 255 ? "RGB16" : "RGB8") : formatOfMaxval(m_layout.uMaxval);
    m_uPosition = header.end();
    const uint64_t nExpected = m_uPosition + imageBytes(*m_layout.pFormat, m_layout.nWidth, m_layout.nHeight);
    if (nFileBytes != nExpected) {
        failImageFile(strPath, std::string("PGM is ") + (nFileBytes < nExpected ? "truncated" : "too long") + ": " +
                                   std::to_string(nFileBytes) + " bytes instead of " + std::to_string(nExpected));
    }
}

}  // namespace

ImageFileLayout pgmLayout(const std::string& strPath) {
    return CPgmInput(strPath).layout();
}

void readPgm(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage) {
    CPgmInput input(strPath);
    const std::string strDifference = layoutDifference(rLayout, input.layout());
    if (!strDifference.empty()) {
        failImageFile(strPath, "changed since it was opened: " + strDifference);
    }
    const bool bTwoBytes = rLayout.pFormat->nWireBits == 16;
    const bool bLimited = rLayout.uMaxval < (bTwoBytes ? 65535U : 255U);
    const auto nSamples = static_cast<std::size_t>(rLayout.nWidth * rLayout.nHeight * rLayout.pFormat->nChannels);
    const std::size_t nSampleBytes = bTwoBytes ? 2 : 1;
    uint32_t uLargest = 0;
    // Block by block, while the caches have it.
    for (std::size_t i = 0; i < nSamples; i += SAMPLE_BLOCK) {
        const std::size_t nBlock = std::min(SAMPLE_BLOCK, nSamples - i);
        uint8_t* const pBlock = static_cast<uint8_t*>(pImage) + i * nSampleBytes;
        input.read(pBlock, nBlock * nSampleBytes);
        if (bTwoBytes) {
            // The file has the high byte first, an image in memory the low one.
            swapSamples(pBlock, nBlock, pBlock);
        }
        if (bLimited) {
            uLargest = std::max<uint32_t>(uLargest,
                                          bTwoBytes ? largestSample16(pBlock, nBlock) : largestSample(pBlock, nBlock));
        }
    }
    if (uLargest > rLayout.uMaxval) {
        failImageFile(strPath, "a sample is " + std::to_string(uLargest) + ", above the maxval of " +
                                   std::to_string(rLayout.uMaxval));
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
