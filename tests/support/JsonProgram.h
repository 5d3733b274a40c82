// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Running the application for its one JSON object.

#pragma once

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Program.h"

namespace XAPEL2 {
namespace Test {

/// Runs a program with --json; what it prints must be one object that tells the exit code.
/// @param[in] strSaid  part of what it says on stderr.
inline nlohmann::json runJson(const std::string& strProgram, std::vector<std::string> vecWords, int iExit = 0,
                              const std::string& strSaid = "") {
    vecWords.push_back("--json");
    const ProgramResult result = runProgram(strProgram, vecWords);
    const std::string strAll = ::testing::PrintToString(vecWords) + "\n" + result.strErr;
    EXPECT_EQ(result.iExit, iExit) << strAll;
    EXPECT_THAT(result.strErr, ::testing::HasSubstr(strSaid)) << strAll;
    const nlohmann::json json = nlohmann::json::parse(result.strOut, nullptr, false);
    EXPECT_TRUE(json.is_object() && json.value("exit", -1) == iExit) << strAll << result.strOut;
    return json;
}

}  // namespace Test
}  // namespace XAPEL2
