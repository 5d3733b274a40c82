// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Entering and leaving the access gate, beside the standard locks.

#pragma once

#include "Options.h"

namespace XapelBench {

/// Times a shared guard of the gate with and without a flag, std::mutex and std::shared_mutex (shared), from one thread
/// and from two at once, and prints the figures.
void benchGate(const Options& rOptions);

}  // namespace XapelBench
