// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Counts the allocations of a thread by operator new, and lets one of them fail.

#include "Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t t_nDone = 0;
thread_local uint64_t t_nUntilFailure = UINT64_MAX;

}  // namespace

uint64_t Allocations::done() {
    return t_nDone;
}
void Allocations::failAfter(uint64_t nMore) {
    t_nUntilFailure = nMore;
}

void* operator new(std::size_t nBytes) {
    ++t_nDone;
    if (t_nUntilFailure != UINT64_MAX && t_nUntilFailure-- == 0) {
        t_nUntilFailure = UINT64_MAX;
        throw std::bad_alloc();
    }
    if (void* pMemory = std::malloc(nBytes != 0 ? nBytes : 1))
        return pMemory;
    throw std::bad_alloc();
}
void operator delete(void* pMemory) noexcept {
    std::free(pMemory);
}
void operator delete(void* pMemory, std::size_t) noexcept {
    std::free(pMemory);
}
