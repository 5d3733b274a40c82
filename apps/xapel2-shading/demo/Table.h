// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The table that ends a demonstration.

#pragma once

#include <filesystem>
#include <iosfwd>

#include "demo/Figures.h"

namespace XAPEL2 {
namespace App {

/// Prints what was done, the unevenness before and after, what correction costs in time, and where the files are.
void printTable(std::ostream& rOut, const DemoFigures& rFigures, const std::filesystem::path& rFolder);

}  // namespace App
}  // namespace XAPEL2
