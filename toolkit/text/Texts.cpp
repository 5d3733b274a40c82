// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How numbers, counts and image layouts read.

#include "toolkit/text/Texts.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr int DIGITS_MOST = 6;  // beyond them a value is what rounding has left of 0

std::string plain(double dValue, int nDigits) {
    std::array<char, 400> acText{};
    std::snprintf(acText.data(), acText.size(), "%.*f", nDigits, dValue);
    return acText.data();
}

bool isZero(const std::string& strText) {
    return strText.find_first_not_of("-0.") == std::string::npos;
}

}  // namespace

std::string fixed(double dValue, int nDigits) {
    if (std::isnan(dValue)) {
        return "unknown";
    }
    const std::string strText = plain(dValue, nDigits);
    if (!isZero(strText)) {
        return strText;
    }
    for (int nMore = nDigits; nDigits > 0 && nMore <= DIGITS_MOST; ++nMore) {
        const std::string strMore = plain(dValue, nMore);
        if (!isZero(strMore)) {
            return strMore;
        }
    }
    // What rounds to nothing has no sign.
    return strText[0] == '-' ? strText.substr(1) : strText;
}

std::string duration(double dMs) {
    constexpr double US_PER_MS = 1000.0, LEAST_MS = 0.1;
    return std::abs(dMs) < LEAST_MS ? fixed(dMs * US_PER_MS, 2) + " us" : withUnit(dMs, 3, "ms");
}

std::string withUnit(double dValue, int nDigits, const std::string& strUnit) {
    return std::isnan(dValue) ? "unknown" : fixed(dValue, nDigits) + " " + strUnit;
}

std::string counted(uint64_t nCount, const char* pThing) {
    return std::to_string(nCount) + " " + pThing + (nCount == 1 ? "" : "s");
}

std::string layoutText(const StandIn::ImageLayout& rLayout) {
    return std::string(rLayout.pFormat->pName) + ", " + std::to_string(rLayout.nWidth) + " x " +
           std::to_string(rLayout.nHeight);
}

std::string capital(std::string strText) {
    if (!strText.empty()) {
        strText[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(strText[0])));
    }
    return strText;
}

}  // namespace Toolkit
}  // namespace XAPEL2
