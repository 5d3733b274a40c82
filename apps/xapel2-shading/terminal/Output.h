// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a sub-command tells: lines for people, or one JSON object.

#pragma once

#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

namespace XAPEL2 {
namespace App {

/// Standard output of one sub-command. With --json it carries one object and nothing else.
/// @threads one thread.
class COutput {
public:
    /// @param[in] pCommand  name of the sub-command, the object's first member.
    COutput(const char* pCommand, bool bJson);
    ~COutput();
    COutput(const COutput&) = delete;
    COutput& operator=(const COutput&) = delete;

    /// Where lines for people go: standard output, or nowhere with --json.
    std::ostream& text() { return *m_pText; }

    /// The object; printed by finish().
    nlohmann::ordered_json& json() { return m_Json; }

    /// Prints the object when JSON is wanted, with iExit as its member "exit". The last call on this object.
    /// @return iExit.
    int finish(int iExit);

private:
    bool m_bJson;
    nlohmann::ordered_json m_Json;
    std::ostream* m_pText;  // borrowed, or owned and without a buffer
};

/// Says something on stderr: "xapel2-shading: TEXT".
void complain(const std::string& strText);

}  // namespace App
}  // namespace XAPEL2
