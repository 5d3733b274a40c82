// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads binary PGM and PPM files.

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "standin/files/ImageFile.h"

namespace XAPEL2 {
namespace StandIn {

std::string layoutDifference(const ReplayLayout& rExpected, const ReplayLayout& rOther) {
    if (rOther.nWidth != rExpected.nWidth) {
        return "width " + std::to_string(rOther.nWidth) + " instead of " + std::to_string(rExpected.nWidth);
    }
    if (rOther.nHeight != rExpected.nHeight) {
        return "height " + std::to_string(rOther.nHeight) + " instead of " + std::to_string(rExpected.nHeight);
    }
    if (rOther.pFormat != rExpected.pFormat) {
        return std::string("format ") + rOther.pFormat->pName + " instead of " + rExpected.pFormat->pName;
    }
    return "";
}

void failReplay(const std::string& strPath, const std::string& strText) {
    throw std::runtime_error(strPath + ": " + strText);
}

namespace {

// Comments included; no writer makes a header anywhere near this.
constexpr std::size_t HEADER_BYTES_MAX = 65536;

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
                failReplay(m_strPath, std::string("PGM ") + pWhat + " above " + std::to_string(uMax));
            }
        }
        if (m_iPos == iStart) {
            failReplay(m_strPath, std::string("PGM header without a ") + pWhat);
        }
        if (uValue == 0) {
            failReplay(m_strPath, std::string("PGM ") + pWhat + " is 0");
        }
        return static_cast<uint32_t>(uValue);
    }

    // One white space ends the header; the samples follow.
    std::size_t end() {
        if (m_iPos >= m_strText.size() || !isSpace(m_strText[m_iPos])) {
            failReplay(m_strPath, "PGM header does not end with a white space");
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
            failReplay(m_strPath, "PGM header is damaged");
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

// Opens the file, leaves the stream at the first sample and checks that exactly the samples follow.
ReplayLayout openPgm(const std::string& strPath, std::ifstream& rFile) {
    rFile.open(strPath, std::ios::binary);
    if (!rFile) {
        failReplay(strPath, "cannot be opened");
    }
    rFile.seekg(0, std::ios::end);
    const auto nFileBytes = static_cast<uint64_t>(std::max<std::streamoff>(0, rFile.tellg()));
    rFile.seekg(0);
    std::string strText(static_cast<std::size_t>(std::min<uint64_t>(nFileBytes, HEADER_BYTES_MAX)), '\0');
    rFile.read(&strText[0], static_cast<std::streamsize>(strText.size()));
    if (!rFile) {
        failReplay(strPath, "cannot be read");
    }
    const bool bColour = strText.compare(0, 2, "P6") == 0;
    if (!bColour && strText.compare(0, 2, "P5") != 0) {
        failReplay(strPath, "not a binary PGM (P5) or PPM (P6)");
    }

    CPgmHeader header(strPath, strText);
    ReplayLayout layout;
    layout.nWidth = header.number("width", IMAGE_SIDE_MAX);
    layout.nHeight = header.number("height", IMAGE_SIDE_MAX);
    layout.uMaxval = header.number("maxval", 65535);
    layout.pFormat = bColour ? findPixelFormat("RGB8") : formatOfMaxval(layout.uMaxval);
    if (layout.uMaxval > layout.pFormat->fullScale()) {
        failReplay(strPath, "three channels of more than 8 bits");
    }
    const uint64_t nExpected = header.end() + imageBytes(*layout.pFormat, layout.nWidth, layout.nHeight);
    if (nFileBytes != nExpected) {
        failReplay(strPath, std::string("PGM is ") + (nFileBytes < nExpected ? "truncated" : "too long") + ": " +
                                std::to_string(nFileBytes) + " bytes instead of " + std::to_string(nExpected));
    }
    rFile.seekg(static_cast<std::streamoff>(header.end()));
    return layout;
}

}  // namespace

ReplayLayout pgmLayout(const std::string& strPath) {
    std::ifstream file;
    return openPgm(strPath, file);
}

void readPgm(const std::string& strPath, const ReplayLayout& rLayout, void* pImage) {
    std::ifstream file;
    const std::string strDifference = layoutDifference(rLayout, openPgm(strPath, file));
    if (!strDifference.empty()) {
        failReplay(strPath, "changed since it was opened: " + strDifference);
    }
    file.read(static_cast<char*>(pImage),
              static_cast<std::streamsize>(imageBytes(*rLayout.pFormat, rLayout.nWidth, rLayout.nHeight)));
    if (!file) {
        failReplay(strPath, "cannot be read");
    }

    auto* pBytes = static_cast<uint8_t*>(pImage);
    const auto nSamples = static_cast<std::size_t>(rLayout.nWidth * rLayout.nHeight * rLayout.pFormat->nChannels);
    uint32_t uLargest = 0;
    if (rLayout.pFormat->nWireBits == 8) {
        uLargest = *std::max_element(pBytes, pBytes + nSamples);
    } else {
        // The file has the high byte first, an image in memory the low one.
        for (std::size_t i = 0; i < nSamples; ++i) {
            std::swap(pBytes[2 * i], pBytes[2 * i + 1]);
            uLargest = std::max(uLargest, static_cast<uint32_t>(pBytes[2 * i] | pBytes[2 * i + 1] << 8));
        }
    }
    if (uLargest > rLayout.uMaxval) {
        failReplay(strPath, "a sample is " + std::to_string(uLargest) + ", above the maxval of " +
                                std::to_string(rLayout.uMaxval));
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
