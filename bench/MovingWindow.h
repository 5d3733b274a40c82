// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Group move: what a window that moves costs, and what other ways to correct it cost in error.

#pragma once

#include "Rounds.h"

namespace XapelBench {

/// Measures the first frame after a move beside an apply and beside later frames, at 5 MP, in 8 and 12 bits; and prints
/// for one and the same frame the errors of ours, of a reference that is cropped and averaged anew, and of one that is
/// resized. @throws std::runtime_error  a result is wrong.
void benchMove(const Options& rOptions);

}  // namespace XapelBench
