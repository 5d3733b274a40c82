// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command run: corrects a live stream.

#include "commands/Run.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runRun(const RunOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
