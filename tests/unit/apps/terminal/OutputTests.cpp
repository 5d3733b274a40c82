// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What reaches a terminal.

#include <cmath>
#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "terminal/Output.h"
#include "terminal/Progress.h"

using namespace XAPEL2::App;

TEST(Output, TextsAreEscapedAndZerosHaveNoSign) {
    testing::internal::CaptureStdout();
    {
        COutput output("run", false);
        output.text() << "a\x1B[0m\nb\n";
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a\\x1B[0m\nb\n");
    EXPECT_EQ(tellable({{"a", -0.0}, {"b", {-0.0, 1.5, NAN}}}).dump(), R"({"a":0.0,"b":[0.0,1.5,null]})");
}

TEST(Output, TerminalThatCannotRewriteALineGetsNoProgress) {
    for (const char* pTerminal : {"dumb", "xterm"}) {
        const int iMaster = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        ASSERT_TRUE(iMaster >= 0 && grantpt(iMaster) == 0 && unlockpt(iMaster) == 0);
        const int iSlave = open(ptsname(iMaster), O_RDWR | O_NOCTTY), iBefore = dup(STDERR_FILENO);
        dup2(iSlave, STDERR_FILENO);
        setenv("TERM", pTerminal, 1);
        { CProgress().show("recording", 1, 2); }
        char acText[200];
        const ssize_t nRead = read(iMaster, acText, sizeof acText);
        dup2(iBefore, STDERR_FILENO);
        for (const int iFile : {iMaster, iSlave, iBefore}) {
            close(iFile);
        }
        EXPECT_EQ(nRead > 0, std::string(pTerminal) == "xterm");
    }
}
