// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the fuzz targets share: the input as a file, checks that hold in every build, and the limits of time and memory.

#pragma once

#include <fcntl.h>
#include <sanitizer/allocator_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace XAPEL2 {
namespace Fuzz {

/// Ends the process as a finding.
inline void require(bool bGood, const char* pRule) {
    if (bGood) {
        return;
    }
    std::fprintf(stderr, "broken: %s\n", pRule);
    std::abort();
}

/// A file in memory: readers take their ordinary road from the path on, and nothing is left behind by a crash.
class CInputFile {
public:
    /// @return path of a file with these bytes, which the next call replaces.
    const std::string& hold(const uint8_t* pData, std::size_t nBytes) {
        require(ftruncate(m_iFile, 0) == 0 && pwrite(m_iFile, pData, nBytes, 0) == static_cast<ssize_t>(nBytes),
                "the input can be written");
        return m_strPath;
    }

private:
    const int m_iFile = memfd_create("input", MFD_CLOEXEC);
    const std::string m_strPath = "/proc/self/fd/" + std::to_string(m_iFile);
};

/// While it lives: at most 64 MB more memory in all, 1 s of processor time, no descriptor left open. The fuzzer's own
/// time-out counts what other programs take too, and its limit of memory looks at single allocations.
class CBudget {
public:
    CBudget() {
        static const int s_iHooked = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
        require(s_iHooked != 0, "memory can be counted");
        s_nTaken = 0;
    }
    ~CBudget() {
        require(std::clock() - m_iStart < CLOCKS_PER_SEC, "an input takes less than 1 s");
        require(lowestFree() == m_iLowestFree, "every file is closed");
        s_nTaken = INT64_MIN / 2;  // what the fuzzer takes between inputs is not limited
    }
    CBudget(const CBudget&) = delete;
    CBudget& operator=(const CBudget&) = delete;

private:
    static void onMalloc(const volatile void*, std::size_t nBytes) {
        s_nTaken += static_cast<int64_t>(nBytes);
        require(s_nTaken <= 64 << 20, "an input takes 64 MB at most");
    }
    static void onFree(const volatile void* pMemory) {
        if (pMemory != nullptr) {
            s_nTaken -= static_cast<int64_t>(__sanitizer_get_allocated_size(const_cast<void*>(pMemory)));
        }
    }
    static int lowestFree() {
        const int iFile = dup(0);
        close(iFile);
        return iFile;
    }

    inline static thread_local int64_t s_nTaken = 0;  // since the input began
    const int m_iLowestFree = lowestFree();
    const std::clock_t m_iStart = std::clock();
};

}  // namespace Fuzz
}  // namespace XAPEL2
