// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts that an image is corrected in: around exceptions, and where its last block is not whole.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "standin/processor/correction/CorrectionTable.h"

namespace XAPEL2 {
namespace StandIn {

/// Hands an image to a kernel chunk by chunk, so that the kernel makes its constants once. The exceptions of a chunk
/// are read before the kernel overwrites them, and their results written when it asks for the next chunk.
class CChunks {
public:
    /// @param[in,out] pImage  nSamples samples of the table's format; borrowed, as the table is.
    /// @param[in] nAhead      see ahead().
    CChunks(const CorrectionTable& rTable, uint8_t* pImage, std::size_t nSamples, std::size_t nAhead)
        : m_rTable(rTable),
          m_pBlocks(rTable.pBlocks.get()),
          m_pImage(pImage),
          m_nSamples(nSamples),
          m_nAhead(nAhead),
          m_pException(rTable.vecExceptions.data()) {}
    /// So many whole blocks with the part of the table that begins at block iFirst; no exceptions, no defects.
    CChunks(const CorrectionTable& rTable, std::size_t iFirst, uint8_t* pBlocks, std::size_t nBlocks,
            std::size_t nAhead)
        : m_rTable(rTable),
          m_pBlocks(rTable.pBlocks.get() + iFirst * rTable.layout.blockBytes()),
          m_pImage(pBlocks),
          m_nSamples(nBlocks * BLOCK),
          m_nAhead(nAhead),
          m_pException(rTable.vecExceptions.data() + rTable.vecExceptions.size()),
          m_iDefect(rTable.oDefects.size()) {}

    const TableLayout& layout() const { return m_rTable.layout; }
    /// Blocks ahead of the arithmetic that a kernel asks for memory at, if it is one of those that do; past the ends of
    /// image and table, too, where that asks for nothing.
    std::size_t ahead() const { return m_nAhead; }
    /// What is added to the product by the kernel itself; other than 0 for wide tables alone.
    uint64_t pedestal() const { return layout().isWide() ? m_rTable.uPedestal : 0; }

    /// Goes on to the next chunk; false when the image is done.
    bool next() noexcept;

    // The chunk: blocks of the table, and as many whole blocks of samples that belong to them.
    const uint8_t* table() const { return m_pBlocks + m_iFirst * layout().blockBytes(); }
    uint8_t* image() noexcept { return isTail() ? m_aTail.data() : place(m_iFirst); }
    std::size_t blocks() const { return m_iEnd - m_iFirst; }

private:
    static constexpr std::size_t CHUNK_BLOCKS = 32;  // worked on at once where there are exceptions
    // Where there are defects an image is corrected in parts, behind each of which they are replaced: in one for so
    // many of them, but no more than so many, nor of fewer blocks. What replaces them reads elsewhere, after which the
    // processor takes up to a microsecond to read ahead in its streams again.
    static constexpr std::size_t PART_DEFECTS = 40;
    static constexpr std::size_t PARTS_MOST = 12;
    static constexpr std::size_t PART_BLOCKS = 2048;

    bool isTail() const { return m_iFirst == m_nSamples / BLOCK; }
    std::size_t tailBytes() const { return (m_nSamples % BLOCK * layout().pFormat->nWireBits + 7) / 8; }
    uint8_t* place(std::size_t iBlock) const { return m_pImage + iBlock * layout().imageBlockBytes(); }
    std::size_t chunkEnd() const noexcept;
    void readExceptions() noexcept;
    void finish() noexcept;

    const CorrectionTable& m_rTable;
    const uint8_t* const m_pBlocks;
    uint8_t* const m_pImage;
    const std::size_t m_nSamples;
    const std::size_t m_nAhead;
    std::size_t m_iFirst = 0;  // block
    std::size_t m_iEnd = 0;    // first block behind the chunk
    const TableException* m_pException;
    std::size_t m_iDefect = 0;   // the next to replace
    std::size_t m_nResults = 0;  // exceptions of the chunk, the first of them m_pException
    std::array<uint16_t, CHUNK_BLOCKS * BLOCK> m_aResults;
    std::array<uint8_t, BLOCK * 2> m_aTail;
};

}  // namespace StandIn
}  // namespace XAPEL2
