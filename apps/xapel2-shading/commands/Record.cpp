// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command record: records a reference.

#include "commands/Record.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runRecord(const RecordOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
