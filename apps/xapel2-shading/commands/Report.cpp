// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command report: writes an HTML report on a pair of references.

#include "commands/Report.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runReport(const ReportOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
