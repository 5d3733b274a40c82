// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Running a program and catching what it prints.

#pragma once

#include <algorithm>
#include <csignal>
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
    int iExit = -1;   ///< exit code; -1 when a signal ended the program
    int iSignal = 0;  ///< that signal
    std::string strOut, strErr;
};

inline std::string content(const std::string& strFile) {
    std::ifstream in(strFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// A program that runs; no shell is between. It reads nothing, and is killed when the object goes before it ends.
class CProgram {
public:
    /// @throws std::runtime_error  it cannot be started.
    CProgram(const std::string& strProgram, std::vector<std::string> vecArguments) {
        vecArguments.insert(vecArguments.begin(), strProgram);
#ifdef XAPEL2_EMULATOR
        // Ours, by itself or behind a command of the system.
        const auto itOurs = std::find_if(vecArguments.begin(), vecArguments.end(), [](const std::string& rWord) {
            return rWord.rfind(XAPEL2_EMULATED_FOLDER, 0) == 0;
        });
        if (itOurs != vecArguments.end()) {
            vecArguments.insert(itOurs, XAPEL2_EMULATOR);
        }
#endif
        std::vector<char*> vecApArguments;
        for (std::string& rArgument : vecArguments) {
            vecApArguments.push_back(rArgument.data());
        }
        vecApArguments.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const int iFlags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (m_folder / "out").c_str(), iFlags, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (m_folder / "err").c_str(), iFlags, 0600);
        const int iError =
            posix_spawn(&m_iProcess, vecApArguments[0], &actions, nullptr, vecApArguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (iError != 0) {
            throw std::runtime_error(strProgram + " cannot be run");
        }
    }
    ~CProgram() {
        if (m_iProcess != 0) {
            kill(m_iProcess, SIGKILL);
            waitpid(m_iProcess, nullptr, 0);
        }
    }
    CProgram(const CProgram&) = delete;
    CProgram& operator=(const CProgram&) = delete;

    void signal(int iSignal) const {
        kill(m_iProcess, iSignal);
    }
    /// What it has printed so far.
    std::string out() const {
        return content(m_folder / "out");
    }

    /// Waits for its end. Only once.
    ProgramResult wait() {
        int iStatus = 0;
        const pid_t iEnded = waitpid(m_iProcess, &iStatus, 0);
        if (iEnded != m_iProcess) {
            throw std::runtime_error("a program cannot be waited for");
        }
        m_iProcess = 0;
        return {WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1, WIFSIGNALED(iStatus) ? WTERMSIG(iStatus) : 0, out(),
                content(m_folder / "err")};
    }

private:
    const CTemporaryFolder m_folder;
    pid_t m_iProcess = 0;
};

/// Runs a program to its end. @throws std::runtime_error  it cannot be started.
inline ProgramResult runProgram(const std::string& strProgram, const std::vector<std::string>& rArguments) {
    return CProgram(strProgram, rArguments).wait();
}

}  // namespace Test
}  // namespace XAPEL2
