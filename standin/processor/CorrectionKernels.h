// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that correct whole blocks of an image: for each kind of vectors that the processor has, and without vectors.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "CorrectionTable.h"

namespace XAPEL2 {
namespace StandIn {

/// Corrects nBlocks blocks at pImage, at any alignment, with the blocks of a table at pTable. Reads and writes these
/// blocks and nothing beside them. Every kernel gives what correctSample gives for the entries of the table.
using Kernel = void (*)(const TableLayout& rLayout, const uint8_t* pTable, uint8_t* pImage, std::size_t nBlocks);

struct KernelTarget {
    const char* pName;
    Kernel (*fnKernel)(const TableLayout& rLayout);  ///< the target's kernel for a layout, never null
};

/// What this processor can run, fastest first; the last is "scalar", the definition itself. The processor is asked once
/// in the life of the process. @threads any.
const std::vector<KernelTarget>& kernelTargets();

}  // namespace StandIn
}  // namespace XAPEL2
