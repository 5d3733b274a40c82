// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Finds out by measurement which variant of a kernel serves on this machine.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <tuple>

#include "standin/processor/correction/CorrectionKernels.h"

namespace XAPEL2 {
namespace StandIn {

struct ChosenKernel {
    KernelVariant variant;
    std::string strWhy;  ///< in words
};

/// The choice is made once for each kind of kernel (vectors, width of samples and table) and each size class, the
/// powers of two of the image's blocks, and kept. Price: BUDGET_NS once, inside the making of a correction; more, and
/// nothing measured, where the system takes longer to hand out the scratch memory.
class CKernelChoice {
public:
    /// A measurement takes so long at most, and a sample more where that is slower than those before it.
    static constexpr uint64_t BUDGET_NS = 3000000;
    /// And at most so many rounds, whatever the clock says.
    static constexpr std::size_t ROUNDS_MAX = 24;
    /// Of table and image that a sample goes through: at half of it the beginnings of the streams decide.
    static constexpr std::size_t SAMPLE_BYTES = std::size_t{1} << 20;

    /// @param[in] fnNow  nanoseconds from any start on. A clock that stands still or jumps makes the choice worse, and
    ///                   the measurement no longer than ROUNDS_MAX rounds.
    explicit CKernelChoice(std::function<uint64_t()> fnNow) : m_fnNow(std::move(fnNow)) {}

    /// @param[in] rTable  that is to be corrected with; only read.
    /// @throws std::bad_alloc  nothing is chosen then.
    /// @threads any; who wants the same choice at the same time waits for it.
    ChosenKernel choose(const KernelTarget& rTarget, const CorrectionTable& rTable, std::size_t nSamples);

    /// The one that corrections ask, with the clock of the thread's own time on a processor.
    static CKernelChoice& ofProcess();

private:
    using Key = std::tuple<Kernel, unsigned>;  // the first variant tells the kind

    const std::function<uint64_t()> m_fnNow;
    std::mutex m_mtx;                         // held while it is measured; nothing else is locked meanwhile
    std::map<Key, ChosenKernel> m_mapChosen;  // guarded by m_mtx
};

}  // namespace StandIn
}  // namespace XAPEL2
