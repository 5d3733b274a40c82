// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Files that are built into the program.

#pragma once

namespace XAPEL2 {
namespace App {

extern const char* const REPORT_CSS;  ///< report.css
extern const char* const REPORT_JS;   ///< report.js

}  // namespace App
}  // namespace XAPEL2
