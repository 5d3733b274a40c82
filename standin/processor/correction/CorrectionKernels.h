// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that correct whole blocks of an image: for each kind of vectors that the processor has, and without vectors.

#pragma once

#include <vector>

#include "standin/processor/correction/CorrectionChunks.h"

namespace XAPEL2 {
namespace StandIn {

/// Corrects all chunks of an image, at any alignment. Reads and writes their blocks and nothing beside them. Every
/// kernel gives what correctSample gives for the entries of the table.
using Kernel = void (*)(CChunks& rChunks);

struct KernelTarget {
    const char* pName;
    /// The target's kernel for a layout and images of so many samples, never null.
    Kernel (*fnKernel)(const TableLayout& rLayout, std::size_t nSamples);
};

/// What this processor can run, fastest first; the last is "scalar", the definition itself. The processor is asked once
/// in the life of the process. @threads any.
const std::vector<KernelTarget>& kernelTargets();

}  // namespace StandIn
}  // namespace XAPEL2
