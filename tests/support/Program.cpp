// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Running a program and catching what it prints.

#include "Program.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryFolder.h"

namespace XAPEL2 {
namespace Test {

namespace {

std::string content(const std::filesystem::path& rFile) {
    std::ifstream In(rFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>()};
}

}  // namespace

ProgramResult runProgram(const std::string& strProgram, const std::vector<std::string>& rArguments) {
    const CTemporaryFolder Folder;
    const std::string strOut = Folder.path() / "out";
    const std::string strErr = Folder.path() / "err";
    std::vector<std::string> astrArguments = rArguments;
    std::vector<char*> apArguments = {const_cast<char*>(strProgram.c_str())};
    for (std::string& rArgument : astrArguments) {
        apArguments.push_back(rArgument.data());
    }
    apArguments.push_back(nullptr);

    posix_spawn_file_actions_t Actions;
    posix_spawn_file_actions_init(&Actions);
    const int iFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&Actions, STDOUT_FILENO, strOut.c_str(), iFlags, 0600);
    posix_spawn_file_actions_addopen(&Actions, STDERR_FILENO, strErr.c_str(), iFlags, 0600);
    pid_t iProcess = 0;
    const int iError = posix_spawn(&iProcess, strProgram.c_str(), &Actions, nullptr, apArguments.data(), environ);
    posix_spawn_file_actions_destroy(&Actions);
    int iStatus = 0;
    if (iError != 0 || waitpid(iProcess, &iStatus, 0) != iProcess) {
        throw std::runtime_error(strProgram + " cannot be run");
    }
    return {WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1, content(strOut), content(strErr)};
}

}  // namespace Test
}  // namespace XAPEL2
