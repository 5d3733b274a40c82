// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every form of operator new, counted and failing on request.

#include "Allocations.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> s_nLive{0};
thread_local uint64_t t_nDone = 0;
thread_local uint64_t t_nUntilFailure = UINT64_MAX;
thread_local uint64_t t_nFailed = 0;
thread_local bool t_bFromThen = false;
thread_local bool t_bArmed = true;

bool mustFail() {
    ++t_nDone;
    if (!t_bArmed || t_nUntilFailure == UINT64_MAX || t_nUntilFailure-- != 0) {
        return false;
    }
    t_nUntilFailure = t_bFromThen ? 0 : UINT64_MAX;
    ++t_nFailed;
    return true;
}

void* allocate(std::size_t nBytes, std::size_t nAlignment = 1) noexcept {
    if (mustFail()) {
        return nullptr;
    }
    nBytes = std::max<std::size_t>(nBytes, 1);
    s_nLive.fetch_add(1, std::memory_order_relaxed);
    // aligned_alloc wants whole units of the alignment.
    return nAlignment <= alignof(std::max_align_t)
               ? std::malloc(nBytes)
               : std::aligned_alloc(nAlignment, (nBytes + nAlignment - 1) / nAlignment * nAlignment);
}

void release(void* pMemory) noexcept {
    if (pMemory != nullptr) {
        s_nLive.fetch_sub(1, std::memory_order_relaxed);
    }
    std::free(pMemory);
}

void* orThrow(void* pMemory) {
    return pMemory != nullptr ? pMemory : throw std::bad_alloc();
}

}  // namespace

uint64_t Allocations::done() {
    return t_nDone;
}
int64_t Allocations::live() {
    return s_nLive.load(std::memory_order_relaxed);
}
void Allocations::failAfter(uint64_t nMore, bool bFromThen) {
    t_nUntilFailure = nMore;
    t_bFromThen = bFromThen;
    t_nFailed = 0;
}
uint64_t Allocations::failed() {
    return t_nFailed;
}
void Allocations::arm(bool bOn) {
    t_bArmed = bOn;
}

// clang-format off
void* operator new(std::size_t n) { return orThrow(allocate(n)); }
void* operator new[](std::size_t n) { return orThrow(allocate(n)); }
void* operator new(std::size_t n, std::align_val_t a) { return orThrow(allocate(n, static_cast<std::size_t>(a))); }
void* operator new[](std::size_t n, std::align_val_t a) { return orThrow(allocate(n, static_cast<std::size_t>(a))); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, static_cast<std::size_t>(a)); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, static_cast<std::size_t>(a)); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
// clang-format on
