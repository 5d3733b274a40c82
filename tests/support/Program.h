// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Running a program and catching what it prints.

#pragma once

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryFolder.h"

namespace XAPEL2 {
namespace Test {

struct ProgramResult {
    int iExit = -1;  ///< exit code; -1 when a signal ended the program
    std::string strOut, strErr;
};

inline std::string content(const std::string& strFile) {
    std::ifstream In(strFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>()};
}

/// Runs a program to its end; no shell is between. @throws std::runtime_error  it cannot be started.
inline ProgramResult runProgram(const std::string& strProgram, std::vector<std::string> astrArguments) {
    const CTemporaryFolder Folder;
    astrArguments.insert(astrArguments.begin(), strProgram);
    std::vector<char*> apArguments;
    for (std::string& rArgument : astrArguments) apArguments.push_back(rArgument.data());
    apArguments.push_back(nullptr);

    posix_spawn_file_actions_t Actions;
    posix_spawn_file_actions_init(&Actions);
    const int iFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&Actions, STDOUT_FILENO, (Folder / "out").c_str(), iFlags, 0600);
    posix_spawn_file_actions_addopen(&Actions, STDERR_FILENO, (Folder / "err").c_str(), iFlags, 0600);
    pid_t iProcess = 0;
    const int iError = posix_spawn(&iProcess, strProgram.c_str(), &Actions, nullptr, apArguments.data(), environ);
    posix_spawn_file_actions_destroy(&Actions);
    int iStatus = 0;
    if (iError != 0 || waitpid(iProcess, &iStatus, 0) != iProcess)
        throw std::runtime_error(strProgram + " cannot be run");
    return {WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1, content(Folder / "out"), content(Folder / "err")};
}

}  // namespace Test
}  // namespace XAPEL2
