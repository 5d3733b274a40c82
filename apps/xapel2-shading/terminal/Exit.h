// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How a sub-command ends: exit codes, and the exceptions that stand for them.

#pragma once

#include "terminal/Toolkit.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace App {

/// Exit codes of the program. What Ctrl-C ends early ends by that signal, which shells and JSON show as 130.
enum eExit { eExitDone = 0, eExitRefused = 1, eExitUsage = 2, eExitFailure = 3, eExitInterrupted = 130 };

// main() prints the text of whatever leaves a sub-command on stderr: what is wrong, then what to do next. CUsageError
// stands for eExitUsage, CInterruptedError for eExitInterrupted, any other exception for eExitFailure.

}  // namespace App
}  // namespace XAPEL2
