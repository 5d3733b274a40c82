// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The limit: kernels that move the bytes of a correction and do nothing but XOR them.
//
// In place, a store needs no fetch of its line, so a correction moves the frame twice (read, written back) and its
// tables once. With a dark in the pixel's width and a 16-bit gain these are 5 bytes for an 8-bit pixel, 8 for one of 10
// to 16 bits, 7 for a packed 12-bit one. Which access pattern is fastest depends on machine and size: the limit is the
// best of all of them.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "HugeMemory.h"
#include "Rounds.h"

namespace XapelBench {

/// Bytes read and written in place, beside bytes only read.
enum eTraffic {
    eSamples8,   ///< 1 in place beside 3: 8-bit pixels
    eSamples16,  ///< 2 beside 4: pixels of 10 to 16 bits
    ePacked12,   ///< 3 beside 8: pairs of packed 12-bit pixels
    eSums,       ///< 2 beside 1: running sums of double width
};

/// The kernels for one image size with their table memory.
class CLimit {
public:
    /// @param[in] nBytes  bytes in place, a multiple of 192.
    /// @throws std::runtime_error  a kernel does not touch every byte.
    CLimit(eTraffic eKind, std::size_t nBytes);

    /// Adds every kernel that this machine can run. The memory of images and tables must outlive the rounds.
    /// @param[in] vInPlace  images that the kernels work through in turn, at cache lines.
    /// @param[in] vRead     what is read beside them, in turn; empty: tables of this object's own.
    /// @return the candidates.
    std::vector<std::size_t> addTo(CRounds& rRounds, std::vector<uint8_t*> vecInPlace,
                                   std::vector<const uint8_t*> vecRead = {}) const;

    /// Bytes moved for one image.
    double traffic() const;

private:
    struct Kernel {
        std::string strName;
        bool bTwoTables;
        void (*pfn)(uint8_t* pInPlace, const uint8_t* pFirst, const uint8_t* pSecond, std::size_t nBlocks);
    };
    template <unsigned IN_PLACE, unsigned FIRST, unsigned SECOND>
    void addKernels();
    void check() const;

    std::size_t m_nBytes;
    unsigned m_nInPlaceLines = 0;  // lines of a block
    unsigned m_nReadLines = 0;
    std::size_t m_nBlocks = 0;
    std::vector<Kernel> m_vecKernels;
    CHugeMemory m_interleaved;  // both tables in one stream
    CHugeMemory m_first;
    CHugeMemory m_second;
};

}  // namespace XapelBench
