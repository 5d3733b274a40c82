// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Memory for what is as large as an image.

#include "standin/pixels/LargeMemory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace XAPEL2 {
namespace StandIn {

namespace {

// With pages of 4 KiB. Where pages have 16 or 64 KiB, huge ones have 32 or 512 MiB: then this is whole pages still, and
// only what is larger gets huge ones.
constexpr std::size_t HUGE_PAGE = std::size_t{1} << 21;

}  // namespace

void FreeMemory::operator()(uint8_t* pMemory) const {
    std::free(pMemory);
}

LargeMemory allocateLarge(std::size_t nBytes) {
    const bool bHuge = nBytes >= HUGE_PAGE;
    const std::size_t nUnit = bHuge ? HUGE_PAGE : 64;
    const std::size_t nWhole = nBytes / nUnit * nUnit + nUnit;
    LargeMemory pMemory(static_cast<uint8_t*>(std::aligned_alloc(nUnit, nWhole)));
    if (!pMemory) {
        throw std::bad_alloc();
    }
    if (bHuge) {
        madvise(pMemory.get(), nWhole, MADV_HUGEPAGE);  // refused: the same with small pages
    }
    return pMemory;
}

}  // namespace StandIn
}  // namespace XAPEL2
