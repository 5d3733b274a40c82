// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct: corrects image files.

#include "commands/Correct.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runCorrect(const CorrectOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
