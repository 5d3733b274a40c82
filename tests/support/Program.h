// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Running a program and catching what it prints.

#pragma once

#include <string>
#include <vector>

namespace XAPEL2 {
namespace Test {

struct ProgramResult {
    int iExit = -1;  ///< exit code; -1 when a signal ended the program
    std::string strOut, strErr;
};

/// Runs a program to its end; no shell is between. @throws std::runtime_error  it cannot be started.
ProgramResult runProgram(const std::string& strProgram, const std::vector<std::string>& rArguments);

}  // namespace Test
}  // namespace XAPEL2
