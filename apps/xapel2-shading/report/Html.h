// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Small pieces of HTML: escaped text, rounded numbers, numbers out of the report's figures.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace XAPEL2 {
namespace App {

/// UTF-8 text so that it stands for itself between tags and in attribute values. Control characters become U+FFFD.
std::string escaped(const std::string& strText);

/// A number with nDigits decimals; an en dash when it is not finite.
std::string rounded(double dValue, int nDigits);

/// Bytes in base64 (RFC 4648).
std::string base64(const std::string& strBytes);

/// The figures of a report as HTML. A path is a JSON pointer ("/after/classes/0/dsnu/total"); an unknown one throws.
/// @threads any, as long as the JSON stays as it is.
class CFigures {
public:
    /// @param[in] rJson  borrowed.
    explicit CFigures(const nlohmann::ordered_json& rJson) : m_json(rJson) {}

    const nlohmann::ordered_json& at(const std::string& strPath) const;
    bool has(const std::string& strPath) const;
    double value(const std::string& strPath) const;  ///< NaN for null

    /// <data value="0.30712" data-figure="PATH">0.307</data>: rounded for people, in full for programs.
    /// @param[in] dFactor  what the shown number is multiplied by, such as 100 for a share in percent.
    std::string number(const std::string& strPath, int nDigits, double dFactor = 1.0) const;

    /// The text at the path, escaped.
    std::string text(const std::string& strPath) const;

private:
    const nlohmann::ordered_json& m_json;
};

}  // namespace App
}  // namespace XAPEL2
