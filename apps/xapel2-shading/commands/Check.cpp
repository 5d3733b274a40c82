// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check: judges a dark and a light reference.

#include "commands/Check.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runCheck(const CheckOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
