// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Memory for what is as large as an image: aligned for vectors, on huge pages where the system gives them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace XAPEL2 {
namespace StandIn {

struct FreeMemory {
    void operator()(uint8_t* pMemory) const;
};
using LargeMemory = std::unique_ptr<uint8_t[], FreeMemory>;

/// Memory at an address of which 64, or where it is long 2 MiB, is a divisor. @throws std::bad_alloc  @threads any.
LargeMemory allocateLarge(std::size_t nBytes);

/// The same for a container.
template <class T>
struct LargeAllocator {
    using value_type = T;

    LargeAllocator() = default;
    template <class U>
    LargeAllocator(const LargeAllocator<U>&) {}
    T* allocate(std::size_t n) { return reinterpret_cast<T*>(allocateLarge(n * sizeof(T)).release()); }
    void deallocate(T* p, std::size_t) { FreeMemory()(reinterpret_cast<uint8_t*>(p)); }
    bool operator==(const LargeAllocator&) const { return true; }
    bool operator!=(const LargeAllocator&) const { return false; }
};

}  // namespace StandIn
}  // namespace XAPEL2
