// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a sub-command tells: lines for people, or one JSON object.

#pragma once

#include <ostream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

namespace XAPEL2 {
namespace App {

/// How much is told besides errors and warnings: nothing, the result and how far a run is, notes too.
enum eVerbosity { eQuiet, eUsual, eVerbose };
/// For the whole process; to be chosen before anything is told.
void setVerbosity(eVerbosity eNow);
eVerbosity verbosity();

/// A text as a terminal may have it: control characters and bytes that are no UTF-8 become "\x1B". Names of files,
/// cameras and frames are anybody's.
/// @param[in] bLines  line feeds stay.
std::string shown(const std::string& strText, bool bLines = false);

/// As JSON can tell it: what is no number is null, bytes that are no UTF-8 are U+FFFD, and no zero has a sign.
nlohmann::ordered_json tellable(const nlohmann::ordered_json& rJson);

/// Standard output of one sub-command. With --json it carries one object and nothing else.
/// @threads one thread.
class COutput {
public:
    /// @param[in] pCommand  name of the sub-command, the object's first member.
    COutput(const char* pCommand, bool bJson);
    ~COutput();
    COutput(const COutput&) = delete;
    COutput& operator=(const COutput&) = delete;

    /// Where lines for people go: standard output, as shown() has them, or nowhere. Whatever goes to stderr comes after
    /// what stands here before it.
    std::ostream& text() { return m_text; }

    /// The object; printed by finish().
    nlohmann::ordered_json& json() { return m_json; }

    /// Prints the object when JSON is wanted, with iExit as its member "exit". The last call on this object.
    /// @return iExit.
    int finish(int iExit);

private:
    class CShownText : public std::stringbuf {
        int sync() override;
    };

    bool m_bJson;
    nlohmann::ordered_json m_json;
    CShownText m_buffer;
    std::ostream m_text;
    std::ostream* m_pTiedBefore;
};

/// Nothing that was printed may be lost in silence. @throws std::runtime_error  standard output does not take it; says
/// why.
void requireWritten();

/// Says something on stderr: "xapel2-shading: TEXT".
void complain(const std::string& strText);

}  // namespace App
}  // namespace XAPEL2
