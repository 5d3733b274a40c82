// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How a sub-command ends: exit codes, and the exceptions that stand for them.

#pragma once

#include <stdexcept>
#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace App {

/// Exit codes of the program. What Ctrl-C ends early ends by that signal, which shells and JSON show as 130.
enum eExit { eExitDone = 0, eExitRefused = 1, eExitUsage = 2, eExitFailure = 3, eExitInterrupted = 130 };

// main() prints the text of whatever leaves a sub-command on stderr: what is wrong, then what to do next. A host
// exception or any other std::exception than those below stands for eExitFailure.

/// Judgement refuses: eExitRefused. CUsageError stands for eExitUsage.
class CRefusedError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace App
}  // namespace XAPEL2
