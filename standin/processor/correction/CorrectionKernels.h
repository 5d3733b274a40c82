// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that correct whole blocks of an image: for each kind of vectors that the processor has, and without vectors.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "standin/processor/correction/CorrectionChunks.h"

namespace XAPEL2 {
namespace StandIn {

/// Corrects all chunks of an image, at any alignment. Reads and writes their blocks and nothing beside them. Every
/// kernel gives what correctSample gives for the entries of the table.
using Kernel = void (*)(CChunks& rChunks);

/// Ways through an image, which differ in speed alone. Which is the fastest depends on the machine's memory.
enum eAhead { eAheadNone, eAheadNear, eAheadFar };
struct KernelWay {
    std::size_t nStepBytes = 0;  ///< that vectors have
    eAhead eDistance =
        eAheadNone;  ///< how far ahead memory is asked for; not at all where the processor does best alone

    /// The same in blocks of a layout.
    std::size_t blocksAhead(const TableLayout& rLayout) const;
};

struct KernelVariant {
    KernelWay way;
    Kernel fnKernel = nullptr;
};

struct KernelTarget {
    const char* pName;
    /// The target's kernel for a layout with vectors of at most so many bytes, as far as the layout allows: the step
    /// that it has is told. Never null.
    KernelVariant (*fnVariant)(const TableLayout& rLayout, const KernelWay& rWay);

    /// All that differ for a layout; the first has the widest vectors and asks for nothing ahead.
    /// @throws std::bad_alloc
    std::vector<KernelVariant> variants(const TableLayout& rLayout) const;
    std::string name(const KernelWay& rWay) const;
};

/// What this processor can run, fastest first; the last is "scalar", the definition itself. The processor is asked once
/// in the life of the process. @threads any.
const std::vector<KernelTarget>& kernelTargets();

}  // namespace StandIn
}  // namespace XAPEL2
