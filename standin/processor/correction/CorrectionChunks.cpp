// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts that an image is corrected in.

#include "standin/processor/correction/CorrectionChunks.h"

#include <algorithm>
#include <cstring>

namespace XAPEL2 {
namespace StandIn {

bool CChunks::next() noexcept {
    finish();
    m_iFirst = m_iEnd;
    if (m_iFirst * BLOCK >= m_nSamples) {
        return false;
    }
    m_iEnd = chunkEnd();
    if (m_iDefect != m_rTable.oDefects.size()) {
        m_rTable.oDefects.fetchPlaces(m_iDefect);
    }
    readExceptions();
    if (isTail()) {
        m_aTail.fill(0);
        std::memcpy(m_aTail.data(), place(m_iFirst), tailBytes());
    }
    return true;
}

/// The chunk that begins at m_iFirst ends before the next exception, or has a limited length, or ends with the last
/// whole block. The tail is a chunk of its own. With defects to come it ends where the next of them can be replaced, or
/// is long enough to be worth it, so that they meet their neighbours in the cache.
std::size_t CChunks::chunkEnd() const noexcept {
    if (isTail()) {
        return m_iFirst + 1;
    }
    std::size_t nWhole = m_nSamples / BLOCK;
    const CDefectRepair& rDefects = m_rTable.oDefects;
    if (m_iDefect != rDefects.size()) {
        const std::size_t nParts = std::clamp(rDefects.size() / PART_DEFECTS, std::size_t{1}, PARTS_MOST);
        const std::size_t nPart = std::max(PART_BLOCKS, nWhole / nParts);
        nWhole = std::min(nWhole, std::max(m_iFirst + nPart, (rDefects.need(m_iDefect) - 1) / BLOCK + 1));
    }
    if (m_pException == m_rTable.vecExceptions.data() + m_rTable.vecExceptions.size()) {
        return nWhole;
    }
    const std::size_t iException = m_pException->iSample / BLOCK;
    return std::min(nWhole, iException < m_iFirst + CHUNK_BLOCKS ? m_iFirst + CHUNK_BLOCKS : iException);
}

void CChunks::readExceptions() noexcept {
    const TableException* const pAll = m_rTable.vecExceptions.data() + m_rTable.vecExceptions.size();
    const PixelFormat& rFormat = *layout().pFormat;
    for (const TableException* p = m_pException; p != pAll && p->iSample < m_iEnd * BLOCK; ++p) {
        uint16_t& rResult = m_aResults[m_nResults++];
        unpackSamples(rFormat, m_pImage, p->iSample, 1, &rResult);
        rResult = correctSample(rResult, p->entry.iOffset, p->entry.uGain, WIDE_POINT, rFormat.fullScale(),
                                m_rTable.uPedestal);
    }
}

void CChunks::finish() noexcept {
    const PixelFormat& rFormat = *layout().pFormat;
    if (isTail() && m_iEnd != m_iFirst) {
        // Bits of the last byte that belong to no sample stay as they are.
        const std::size_t iLast = tailBytes() - 1;
        const unsigned nUsed = static_cast<unsigned>(m_nSamples * rFormat.nWireBits % 8);
        const unsigned uKept = nUsed != 0 ? 0xFFU << nUsed & 0xFFU : 0;
        m_aTail[iLast] = static_cast<uint8_t>((m_aTail[iLast] & ~uKept) | (place(m_iFirst)[iLast] & uKept));
        std::memcpy(place(m_iFirst), m_aTail.data(), iLast + 1);
    }
    for (std::size_t i = 0; i < m_nResults; ++i, ++m_pException) {
        packSamples(rFormat, &m_aResults[i], m_pException->iSample, 1, m_pImage);
    }
    m_nResults = 0;
    if (m_iDefect != m_rTable.oDefects.size()) {
        m_iDefect = m_rTable.oDefects.repair(m_pImage, m_iDefect, std::min(m_iEnd * BLOCK, m_nSamples));
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
