// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrects an image with the table of its references.

#include "Correction.h"

#include <array>
#include <cstring>
#include <utility>

#include "CorrectionFormula.h"
#include "CorrectionKernels.h"
#include "CorrectionTable.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t CHUNK_BLOCKS = 32;  // worked on at once where there are exceptions

class CTableCorrection : public ICorrection {
public:
    CTableCorrection(const ImageLayout& rLayout, CorrectionTable sTable, const KernelTarget& rTarget)
        : m_sTable(std::move(sTable)),
          m_nSamples(rLayout.samples()),
          m_nBytes(rLayout.bytes()),
          m_rTarget(rTarget),
          m_fnKernel(rTarget.fnKernel(m_sTable.sLayout)) {}

    void correct(void* pImage) const noexcept override {
        auto* const pBytes = static_cast<uint8_t*>(pImage);
        const auto& rExceptions = m_sTable.vecExceptions;
        const std::size_t nBlocks = (m_nSamples + BLOCK - 1) / BLOCK;
        std::size_t iBlock = 0;
        for (std::size_t i = 0; i < rExceptions.size();) {
            const std::size_t iChunk = rExceptions[i].iSample / BLOCK / CHUNK_BLOCKS * CHUNK_BLOCKS;
            correctBlocks(pBytes, iBlock, iChunk);
            iBlock = std::min(iChunk + CHUNK_BLOCKS, nBlocks);
            i = correctChunk(pBytes, iChunk, iBlock, i);
        }
        correctBlocks(pBytes, iBlock, nBlocks);
    }

    std::string description() const override {
        return m_sTable.sLayout.description() + ", " + std::to_string(m_sTable.vecExceptions.size()) + " exceptions, " +
               m_rTarget.pName;
    }

private:
    /// Corrects a chunk with its exceptions, of which iException is the first. Their samples are read before the
    /// kernel overwrites them. Returns the first exception behind the chunk.
    std::size_t correctChunk(uint8_t* pBytes, std::size_t iFirst, std::size_t iEnd,
                             std::size_t iException) const noexcept {
        const TableException* const pFirst = m_sTable.vecExceptions.data() + iException;
        const TableException* const pAll = m_sTable.vecExceptions.data() + m_sTable.vecExceptions.size();
        const PixelFormat& rFormat = *m_sTable.sLayout.pFormat;
        std::array<uint16_t, CHUNK_BLOCKS * BLOCK> aResults;
        const TableException* pEnd = pFirst;
        for (; pEnd != pAll && pEnd->iSample < iEnd * BLOCK; ++pEnd) {
            uint16_t& rResult = aResults[static_cast<std::size_t>(pEnd - pFirst)];
            unpackSamples(rFormat, pBytes, pEnd->iSample, 1, &rResult);
            rResult = correctSample(rResult, pEnd->sEntry.uOffset, pEnd->sEntry.uGain, WIDE_POINT, rFormat.fullScale());
        }
        correctBlocks(pBytes, iFirst, iEnd);
        for (const TableException* p = pFirst; p != pEnd; ++p)
            packSamples(rFormat, &aResults[static_cast<std::size_t>(p - pFirst)], p->iSample, 1, pBytes);
        return iException + static_cast<std::size_t>(pEnd - pFirst);
    }

    void correctBlocks(uint8_t* pBytes, std::size_t iFirst, std::size_t iEnd) const noexcept {
        const TableLayout& rLayout = m_sTable.sLayout;
        const uint8_t* const pTable = m_sTable.pBlocks.get();
        const std::size_t nWhole = std::min(iEnd, m_nSamples / BLOCK);
        if (iFirst < nWhole)
            m_fnKernel(rLayout, pTable + iFirst * rLayout.blockBytes(), pBytes + iFirst * rLayout.imageBlockBytes(),
                       nWhole - iFirst);
        if (iFirst < iEnd && nWhole != iEnd)
            correctTail(pTable + nWhole * rLayout.blockBytes(), pBytes + nWhole * rLayout.imageBlockBytes());
    }

    /// Corrects the block that the image ends in.
    void correctTail(const uint8_t* pTable, uint8_t* pTail) const noexcept {
        const std::size_t nTail = static_cast<std::size_t>(m_nBytes % m_sTable.sLayout.imageBlockBytes());
        std::array<uint8_t, BLOCK* 2> aBlock = {};
        std::memcpy(aBlock.data(), pTail, nTail);
        m_fnKernel(m_sTable.sLayout, pTable, aBlock.data(), 1);
        // Bits of the last byte that belong to no sample stay as they are.
        const unsigned nUsed = static_cast<unsigned>(m_nSamples * m_sTable.sLayout.pFormat->nWireBits % 8);
        const unsigned uKept = nUsed != 0 ? 0xFFU << nUsed & 0xFFU : 0;
        aBlock[nTail - 1] = static_cast<uint8_t>((aBlock[nTail - 1] & ~uKept) | (pTail[nTail - 1] & uKept));
        std::memcpy(pTail, aBlock.data(), nTail);
    }

    const CorrectionTable m_sTable;
    const std::size_t m_nSamples;
    const std::size_t m_nBytes;
    const KernelTarget& m_rTarget;
    const Kernel m_fnKernel;
};

}  // namespace

std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget) {
    const std::vector<KernelTarget>& rTargets = kernelTargets();
    const KernelTarget* pChosen = &rTargets.front();
    for (const KernelTarget& rTarget : rTargets) {
        if (pTarget && std::strcmp(rTarget.pName, pTarget) == 0)
            pChosen = &rTarget;
    }
    return std::make_unique<CTableCorrection>(rLayout, makeTable(CFormula(rLayout, pDark, pLight)), *pChosen);
}

std::vector<const char*> correctionTargets() {
    std::vector<const char*> vecNames;
    for (const KernelTarget& rTarget : kernelTargets()) vecNames.push_back(rTarget.pName);
    return vecNames;
}

}  // namespace StandIn
}  // namespace XAPEL2
