// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The command line from outside: what is wrong is told in words of this program, and nothing raw reaches a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Program.h"
#include "TemporaryFolder.h"

using namespace XAPEL2::Test;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

using Words = std::vector<std::string>;

ProgramResult run(const Words& rWords) {
    return runProgram(XAPEL2_SHADING_PROGRAM, rWords);
}

}  // namespace

TEST(Line, WrongUseIsToldInOwnWords) {
    const CTemporaryFolder folder;
    const std::string strPng = folder / "x.png", strFile = folder / "x.tif";
    const std::pair<Words, const char*> aRows[] = {
        {{"recrod", "dark"}, "did you mean record?"},
        {{"-x"}, "'-x'"},
        {{"run", "--lihgt", "x"}, "did you mean --light?"},
        {{"check", "a", "b", "c"}, "'c' is one word too many"},
        {{"record", "dark", "-d", "sim"}, "--out is missing"},
        {{"record", "grey", "-d", "sim", "-o", strFile}, "takes dark or light, not 'grey'"},
        {{"record", "dark", "-d", "sim", "-o", strFile, "-n", "x"}, "1 to 1000000, not 'x'"},
        {{"record", "dark", "-d", "sim", "-o", ""}, "--out is given, but empty"},
        {{"record", "dark", "-d", "", "-o", strFile}, "--device is given, but empty"},
        {{"run", "-d", "sim", "--dark", ""}, "--dark is given, but empty"},
        {{"report", "-o", "", "-d", "sim"}, "--out is given, but empty"},
        {{"demo", "--frames", "", "-o", folder / "demo"}, "--frames is given, but empty"},
        {{"demo", "--camera", "", "-o", folder / "demo"}, "--camera is given, but empty"},
        {{"check", "", "x"}, "DARK is given, but empty"},
        {{"correct", "--light", "x", "-o", folder / "out", ""}, "FILES is given, but empty"},
        {{"run", "-d", "sim", "--light", "x", "-o", strPng}, "name of a folder"},
        {{"correct", "--light", "x", "-o", strPng, "y"}, "name of a folder"},
        {{"run", "-d", "sim", "--light", "x", "--raw"}, "-o"},
        {{"demo", "--camera", "sim", "--frames", "x"}, "two sources"},
    };
    for (const auto& [rWords, pSaid] : aRows) {
        const ProgramResult result = run(rWords);
        EXPECT_EQ(result.iExit, 2) << ::testing::PrintToString(rWords);
        EXPECT_THAT(result.strErr, AllOf(StartsWith("xapel2-shading: "), HasSubstr(pSaid)));
        EXPECT_EQ(result.strOut, "");
    }
    EXPECT_TRUE(folder.names().empty());
}

TEST(Line, HelpVersionAndQuietDoWhatPeopleExpect) {
    EXPECT_EQ(run({"help"}).strOut, run({"--help"}).strOut);
    EXPECT_THAT(run({"help"}).strOut, HasSubstr("Subcommands:"));
    EXPECT_EQ(run({"help", "record"}).strOut, run({"record", "--help"}).strOut);
    for (const char* pWord : {"version", "-v", "-V"}) {
        EXPECT_EQ(run({pWord}).strOut, run({"--version"}).strOut);
        EXPECT_EQ(run({pWord}).iExit, 0);
    }
    EXPECT_NE(run({"devices"}).strOut, "");
    EXPECT_EQ(run({"devices", "-q"}).strOut, "");
    EXPECT_EQ(run({"-q", "devices"}).strOut, "");
}

TEST(Line, NamesOfFilesReachNoTerminalRaw) {
    const CTemporaryFolder folder;
    const std::string strName = folder /
                                "\x1B[31mred\n\xC2\x9B"
                                "7m\xFF\xC3\xA9.tif";
    const ProgramResult recorded = run({"record", "dark", "-d", "sim:1?width=32&height=32", "-o", strName});
    EXPECT_EQ(recorded.iExit, 0) << recorded.strErr;
    const ProgramResult failed = run({"check", strName + "\x1B", strName});
    EXPECT_EQ(failed.iExit, 3);
    for (const std::string& rText : {recorded.strOut, failed.strErr}) {
        EXPECT_THAT(rText, HasSubstr("\\x1B[31mred\\x0A\\xC2\\x9B7m\\xFF\xC3\xA9.tif"));
        EXPECT_THAT(rText, Not(HasSubstr("\x1B")));
    }
    const ProgramResult json = run({"check", strName, strName, "--json"});
    EXPECT_THAT(json.strOut, Not(HasSubstr("\xC2")));
}

TEST(Line, NoTextOfALibraryReachesTheUser) {
    const CTemporaryFolder folder;
    const ProgramResult result =
        runProgram("/usr/bin/env", {"TMPDIR=/nonexistent", XAPEL2_SHADING_PROGRAM, "report", "-d",
                                    "sim:1?width=32&height=32", "-o", folder / "r.html"});
    EXPECT_EQ(result.iExit, 3);
    EXPECT_THAT(result.strErr, AllOf(HasSubstr("TMPDIR"), HasSubstr("No such file"), Not(HasSubstr("filesystem"))));
}
