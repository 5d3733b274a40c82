// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Memory on 2 MiB pages, where the system gives them.

#pragma once

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace XapelBench {

/// A block that starts at a cache line, written all over so that its pages are there. Blocks start at different offsets
/// into their pages: addresses that agree in their low bits get into each other's way in the caches.
class CHugeMemory {
public:
    /// @throws std::bad_alloc
    explicit CHugeMemory(std::size_t nBytes) {
        constexpr std::size_t PAGE = std::size_t{2} << 20;
        constexpr std::size_t STEP = 37 * 64;
        static std::size_t s_nOffset = 0;
        s_nOffset = (s_nOffset + STEP) % (PAGE / 4);
        const std::size_t nAll = (nBytes + s_nOffset + PAGE - 1) / PAGE * PAGE;
        m_pBlock.reset(std::aligned_alloc(PAGE, nAll));
        if (!m_pBlock) {
            throw std::bad_alloc();
        }
        madvise(m_pBlock.get(), nAll, MADV_HUGEPAGE);  // a wish: small pages do as well
        std::memset(m_pBlock.get(), 0x5a, nAll);
        m_pData = static_cast<uint8_t*>(m_pBlock.get()) + s_nOffset;
    }
    uint8_t* data() const { return m_pData; }

private:
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };
    std::unique_ptr<void, Free> m_pBlock;
    uint8_t* m_pData = nullptr;
};

}  // namespace XapelBench
