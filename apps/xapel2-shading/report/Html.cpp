// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Small pieces of HTML: escaped text, rounded numbers, numbers out of the report's figures.

#include "report/Html.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "terminal/Toolkit.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

using nlohmann::ordered_json;

std::string escaped(const std::string& strText) {
    std::string strResult;
    for (const char c : strText) {
        switch (c) {
            case '&':
                strResult += "&amp;";
                break;
            case '<':
                strResult += "&lt;";
                break;
            case '>':
                strResult += "&gt;";
                break;
            case '"':
                strResult += "&quot;";
                break;
            case '\'':
                strResult += "&#39;";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
                    strResult += "\xEF\xBF\xBD";
                } else {
                    strResult += c;
                }
        }
    }
    return strResult;
}

std::string rounded(double dValue, int nDigits) {
    if (!std::isfinite(dValue)) {
        return "\xE2\x80\x93";
    }
    return fixed(dValue, nDigits);
}

std::string base64(const std::string& strBytes) {
    static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string strResult;
    strResult.reserve((strBytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < strBytes.size(); i += 3) {
        const std::size_t nBytes = std::min<std::size_t>(3, strBytes.size() - i);
        uint32_t uBits = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            uBits = uBits << 8 | (k < nBytes ? static_cast<unsigned char>(strBytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            strResult += k <= nBytes ? DIGITS[uBits >> (18 - 6 * k) & 63] : '=';
        }
    }
    return strResult;
}

const ordered_json& CFigures::at(const std::string& strPath) const {
    return m_json.at(ordered_json::json_pointer(strPath));
}

bool CFigures::has(const std::string& strPath) const {
    return m_json.contains(ordered_json::json_pointer(strPath)) && !at(strPath).is_null();
}

double CFigures::value(const std::string& strPath) const {
    const ordered_json& rValue = at(strPath);
    return rValue.is_null() ? std::numeric_limits<double>::quiet_NaN() : rValue.get<double>();
}

std::string CFigures::number(const std::string& strPath, int nDigits, double dFactor) const {
    return "<data value=\"" + at(strPath).dump() + "\" data-figure=\"" + escaped(strPath) + "\">" +
           rounded(dFactor * value(strPath), nDigits) + "</data>";
}

std::string CFigures::text(const std::string& strPath) const {
    return escaped(at(strPath).get<std::string>());
}

}  // namespace App
}  // namespace XAPEL2
