// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a sub-command tells: lines for people, or one JSON object.

#include "terminal/Output.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <system_error>

namespace XAPEL2 {
namespace App {

using nlohmann::ordered_json;

namespace {

eVerbosity g_eVerbosity = eUsual;

// Bytes of the UTF-8 character at strText[i] that may be shown; 0: none may.
std::size_t printableAt(const std::string& strText, std::size_t i) {
    const auto fnByte = [&](std::size_t k) { return k < strText.size() ? static_cast<unsigned char>(strText[k]) : 0U; };
    const unsigned uFirst = fnByte(i);
    if (uFirst < 0x80) {
        return uFirst >= 0x20 && uFirst != 0x7F ? 1 : 0;
    }
    const std::size_t nBytes = uFirst >= 0xF0 ? 4 : uFirst >= 0xE0 ? 3 : 2;
    unsigned uCode = uFirst & (0xFFU >> (nBytes + 1));
    for (std::size_t k = 1; k < nBytes; ++k) {
        if ((fnByte(i + k) & 0xC0U) != 0x80U) {
            return 0;
        }
        uCode = uCode << 6 | (fnByte(i + k) & 0x3FU);
    }
    // Below 0xA0 stand control characters, and longer forms of what is shorter.
    constexpr std::array<unsigned, 5> aLeast{0, 0, 0xA0, 0x800, 0x10000};
    return uFirst < 0xF8 && uCode >= aLeast[nBytes] && uCode <= 0x10FFFF ? nBytes : 0;
}

void unsignZeros(ordered_json& rJson) {
    if (rJson.is_structured()) {
        for (ordered_json& rMember : rJson) {
            unsignZeros(rMember);
        }
    } else if (rJson.is_number_float() && rJson == 0.0) {
        rJson = 0.0;
    }
}

}  // namespace

void setVerbosity(eVerbosity eNow) {
    g_eVerbosity = eNow;
}

eVerbosity verbosity() {
    return g_eVerbosity;
}

std::string shown(const std::string& strText, bool bLines) {
    std::string strShown;
    for (std::size_t i = 0; i < strText.size();) {
        const std::size_t nBytes = bLines && strText[i] == '\n' ? 1 : printableAt(strText, i);
        if (nBytes == 0) {
            std::array<char, 5> acByte{};
            std::snprintf(acByte.data(), acByte.size(), "\\x%02X", static_cast<unsigned char>(strText[i]));
            strShown += acByte.data();
        }
        strShown.append(strText, i, nBytes);
        i += nBytes == 0 ? 1 : nBytes;
    }
    return strShown;
}

ordered_json tellable(const ordered_json& rJson) {
    ordered_json result = ordered_json::parse(rJson.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
    unsignZeros(result);
    return result;
}

int COutput::CShownText::sync() {
    std::cout << shown(str(), true) << std::flush;
    str("");
    return std::cout ? 0 : -1;
}

COutput::COutput(const char* pCommand, bool bJson)
    : m_bJson(bJson),
      m_text(bJson || verbosity() == eQuiet ? nullptr : &m_buffer),
      m_pTiedBefore(std::cerr.tie(&m_text)) {
    m_json["command"] = pCommand;
}

COutput::~COutput() {
    m_text.flush();
    std::cerr.tie(m_pTiedBefore);
}

int COutput::finish(int iExit) {
    m_json["exit"] = iExit;
    m_text.flush();
    if (m_bJson) {
        std::cout << tellable(m_json).dump(2, ' ', true) << '\n';
    }
    requireWritten();
    return iExit;
}

void requireWritten() {
    std::cout.flush();
    const int iError = errno;
    if (!std::cout) {
        throw std::runtime_error("standard output cannot be written" +
                                 (iError == 0 ? "" : ": " + std::generic_category().message(iError)));
    }
}

void complain(const std::string& strText) {
    std::cerr << "xapel2-shading: " << shown(strText) << '\n';
}

}  // namespace App
}  // namespace XAPEL2
