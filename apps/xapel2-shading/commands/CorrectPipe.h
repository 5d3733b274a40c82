// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct in a pipe: raw frames from standard input.

#pragma once

#include <string>

#include "commands/Correct.h"

namespace XAPEL2 {
namespace App {

/// "-": standard input or output.
constexpr const char* PIPE = "-";

/// Corrects raw frames without anything between them, as they come from standard input, to standard output or into a
/// folder. Reading overlaps with correction and writing.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runCorrectPipe(const CorrectOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
