// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A plot of one row of a frame before and after correction.

#pragma once

#include <filesystem>

#include "images/Frame.h"

namespace XAPEL2 {
namespace App {

/// Has gnuplot draw row iRow of both frames into a PNG file. Single values and a
/// running mean are drawn; of a format with several colour classes the first class of the row.
/// @return true when the plot is there; false when gnuplot is not installed or failed: nothing else is lost then.
bool plotRow(const std::filesystem::path& rFile, const Frame& rBefore, const Frame& rAfter, uint64_t iRow);

}  // namespace App
}  // namespace XAPEL2
