// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Correction tables in memory: their layouts, and how the layout for a reference is chosen.
//
// How far a fixed-point result can be from the formula. A table holds D' = D + d and G' = G + g. With x = in - D and
// x' = in - D' the unrounded results differ by x' G' - x G = x' g - d G = x g - d G'. Both are clamped to the full
// scale F, so a signal above F / min(G, G') adds nothing, and x, x' <= F anyway:
//
//     |difference| <= min(F, F / min(G, G')) |g| + max(G, G') |d|                                              (1)
//
// Clamping at 0 and F only brings two values closer, and rounding adds at most 1/2. So a table keeps the promise of
// makeCorrection where (1) is at most 1/2 up to 12 bits, and 1/2 + G/2 at 14 and 16 bits.
//
// Wide tables (32 bit; 12 fraction bits of offset, 26 of gain) keep it for every reference: |d| <= 2^-13,
// |g| <= 2^-26 (at the limit of 16; else 2^-27), F < 2^16 and G < 16 make (1) less than 2^-10 + 2^-9 < 0.003.
// The other layouts are tried from the smallest on. (1) is computed for each sample; the few for which it fails, hot
// and dead pixels mostly, become exceptions. The first layout with few enough of them is taken.

#include "CorrectionTable.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t EXCEPTION_SHARE = 1000;  // of so many samples, one may be an exception
constexpr std::size_t HUGE_PAGE = std::size_t{1} << 21;

TableMemory allocate(std::size_t nBytes) {
    const bool bHuge = nBytes >= HUGE_PAGE;
    const std::size_t nUnit = bHuge ? HUGE_PAGE : 64;
    const std::size_t nWhole = (nBytes + nUnit - 1) / nUnit * nUnit;
    TableMemory pMemory(static_cast<uint8_t*>(std::aligned_alloc(nUnit, nWhole)));
    if (!pMemory)
        throw std::bad_alloc();
    if (bHuge)
        madvise(pMemory.get(), nWhole, MADV_HUGEPAGE);  // refused: the same with small pages
    return pMemory;
}

double power(int iExponent) {
    return std::ldexp(1.0, iExponent);
}

/// How darks and gains of a reference are distributed, from some of its blocks. Only guides the choice of layouts to
/// try, so it need not be complete.
class CSurvey {
public:
    explicit CSurvey(const CFormula& rFormula) : m_vecDarks(BINS) {
        const ImageLayout& rLayout = rFormula.layout();
        const std::size_t nBlocks = (rLayout.samples() + BLOCK - 1) / BLOCK;
        const std::size_t nStride = nBlocks > 4096 ? 17 : 1;
        const double dToBin = power(12 - static_cast<int>(rLayout.pFormat->nBits));
        CFormula::Block sBlock;
        for (std::size_t iBlock = 0; iBlock < nBlocks; iBlock += nStride) {
            rFormula.block(iBlock * BLOCK, sBlock);
            const std::size_t nUsed = std::min(BLOCK, rLayout.samples() - iBlock * BLOCK);
            for (std::size_t i = 0; i < nUsed; ++i) {
                ++m_vecDarks[static_cast<std::size_t>(sBlock.aOffsets[i] * dToBin)];
                for (unsigned k = 0; k < m_aGains.size(); ++k) m_aGains[k] += sBlock.aGains[i] >= (2 << k);
            }
            m_nSamples += nUsed;
        }
    }

    /// Smallest k for which nearly all gains are below 2^(k+1); 3 at most.
    unsigned gainExponent() const {
        unsigned k = 0;
        while (k < m_aGains.size() && m_aGains[k] > m_nSamples / (EXCEPTION_SHARE * 2)) ++k;
        return k;
    }

    /// First bin of the window of nBins bins that holds the most darks; how many it lacks goes to rMissing.
    std::size_t window(std::size_t nBins, std::size_t& rMissing) const {
        std::size_t nInside = 0;
        std::size_t nMost = 0;
        std::size_t iBest = 0;
        for (std::size_t i = 0; i < BINS; ++i) {
            nInside += m_vecDarks[i];
            if (i >= nBins)
                nInside -= m_vecDarks[i - nBins];
            if (nInside > nMost) {
                nMost = nInside;
                iBest = i + 1 > nBins ? i + 1 - nBins : 0;
            }
        }
        rMissing = m_nSamples - nMost;
        return iBest;
    }
    std::size_t above(std::size_t iBin) const {
        std::size_t nAbove = 0;
        for (std::size_t i = iBin; i < BINS; ++i) nAbove += m_vecDarks[i];
        return nAbove;
    }
    std::size_t samples() const { return m_nSamples; }

    static constexpr std::size_t BINS = 4096;  // a bin is 2^(bits - 12) DN wide, or 16 units of a 16-bit offset

private:
    std::vector<std::size_t> m_vecDarks;
    std::array<std::size_t, 3> m_aGains = {};  // gains from 2, 4 and 8 on
    std::size_t m_nSamples = 0;
};

/// Gives the layout the base and shift of its darks; the smallest shift whose range holds nearly all.
bool placeDarks(const CSurvey& rSurvey, TableLayout& rLayout) {
    const unsigned nBits = rLayout.pFormat->nBits;
    const unsigned nMost = nBits <= 12 ? rLayout.sPoint.nOffsetBits - 1 : rLayout.sPoint.nOffsetBits;
    for (const std::size_t nShare : {EXCEPTION_SHARE * 8, EXCEPTION_SHARE * 2}) {
        for (unsigned nShift = 0; nShift <= nMost; ++nShift) {
            const std::size_t nRange = std::size_t{1} << (rLayout.nDarkBits + nShift);
            if (nRange > 0x10000)
                break;
            std::size_t nMissing = 0;
            std::size_t iFirst = 0;
            if (nBits == 8)  // these kernels have no base
                nMissing = rSurvey.above(nRange / 16);
            else
                iFirst = rSurvey.window(nRange / 16, nMissing);
            if (nMissing > rSurvey.samples() / nShare)
                continue;
            rLayout.nDarkShift = nShift;
            rLayout.uDarkBase = static_cast<uint32_t>(std::min(iFirst * 16, 0x10000 - nRange));
            return true;
        }
    }
    return false;
}

/// Layouts to try, smallest first.
std::vector<TableLayout> candidates(const CFormula& rFormula) {
    const PixelFormat& rFormat = *rFormula.layout().pFormat;
    const CSurvey oSurvey(rFormula);
    const unsigned nExponent = oSurvey.gainExponent();
    std::vector<TableLayout> vecLayouts;
    TableLayout sLayout;
    sLayout.pFormat = &rFormat;
    sLayout.sPoint = {16 - rFormat.nBits, 16};
    for (const unsigned nBytes : {1U, 2U}) {
        sLayout.nFieldBytes = nBytes;
        for (unsigned k = nExponent; k < 4; ++k) {
            sLayout.nDarkBits = nBytes * 8;
            if (rFormat.nBits == 16)
                sLayout.nDarkBits -= k + 1;  // the gain's whole part goes there
            else
                sLayout.sPoint.nGainBits = 15 - k;
            const bool bKernel = sLayout.productBits() >= 16 && sLayout.nDarkBits >= 6;
            sLayout.nDarkShift = 0;
            sLayout.uDarkBase = 0;
            if (bKernel && ((nBytes == 2 && rFormat.nBits != 16) || placeDarks(oSurvey, sLayout)))
                vecLayouts.push_back(sLayout);
        }
    }
    sLayout = {};
    sLayout.pFormat = &rFormat;
    vecLayouts.push_back(sLayout);
    return vecLayouts;
}

/// Writes the tables of one layout.
class CBuilder {
public:
    explicit CBuilder(const TableLayout& rLayout) : m_rLayout(rLayout) {
        const unsigned nBits = rLayout.pFormat->nBits;
        m_dFull = rLayout.pFormat->fullScale();
        m_dSlack = nBits > 12 ? 0.5 : 0.0;
        m_dPerUnit = power(static_cast<int>(rLayout.nDarkShift) - static_cast<int>(rLayout.sPoint.nOffsetBits));
        m_dBase = rLayout.uDarkBase * power(-static_cast<int>(rLayout.sPoint.nOffsetBits));
        m_dDarkLast = rLayout.isWide() ? 0x7FFFFFFF : power(static_cast<int>(rLayout.nDarkBits)) - 1;
        m_dPerGain = power(-static_cast<int>(rLayout.sPoint.nGainBits));
        const double dGains = power(static_cast<int>(rLayout.gainBytes() * 8 + rLayout.wholeBits()));
        m_dGainLast = std::min(dGains, GAIN_LIMIT / m_dPerGain) - 1;
    }

    /// Finds the codes of a block. Returns how many samples they do not hold closely enough; these are marked.
    unsigned encode(const CFormula::Block& rBlock) {
        constexpr double MARGIN = 1e-6;  // far above the rounding of this computation itself
        const double dToUnits = 1 / m_dPerUnit;
        const double dToGain = 1 / m_dPerGain;
        for (std::size_t i = 0; i < BLOCK; ++i) {
            const double dGain = rBlock.aGains[i];
            const double dUnits = (rBlock.aOffsets[i] - m_dBase) * dToUnits + 0.5;
            const double dPositive = dUnits > 0.0 ? dUnits : 0.0;
            m_aDarks[i] = static_cast<int32_t>(dPositive < m_dDarkLast ? dPositive : m_dDarkLast);
            const double dScaled = dGain * dToGain + 0.5;
            m_aGains[i] = static_cast<int32_t>(dScaled < m_dGainLast ? dScaled : m_dGainLast);
            const double dTableGain = m_aGains[i] * m_dPerGain;
            const double dOffset = m_aDarks[i] * m_dPerUnit + m_dBase - rBlock.aOffsets[i];
            const double dGainError = dTableGain - dGain;
            const double dMost = dTableGain > dGain ? dTableGain : dGain;
            const double dLeast = dTableGain < dGain ? dTableGain : dGain;
            // (1), multiplied by max(1, min(G, G')).
            const double dRest = 0.5 - MARGIN + m_dSlack * dGain - dMost * (dOffset < 0 ? -dOffset : dOffset);
            const double dLimit = dRest * (dLeast > 1.0 ? dLeast : 1.0);
            m_aMisfits[i] = m_dFull * (dGainError < 0 ? -dGainError : dGainError) > dLimit ? 1 : 0;
        }
        int32_t nMisfits = 0;
        for (std::size_t i = 0; i < BLOCK; ++i) nMisfits += m_aMisfits[i];
        return m_rLayout.isWide() ? 0 : static_cast<unsigned>(nMisfits);
    }
    bool isMisfit(std::size_t i) const { return m_aMisfits[i] != 0; }
    TableEntry entry(std::size_t i) const {
        return {static_cast<uint32_t>(m_aDarks[i]), static_cast<uint32_t>(m_aGains[i])};
    }

    /// Writes the codes of a block to the table.
    void store(uint8_t* pBlock) const {
        uint8_t* pGains = pBlock + BLOCK * m_rLayout.nFieldBytes;
        if (m_rLayout.isWide()) {
            std::memcpy(pBlock, m_aDarks.data(), sizeof(m_aDarks));
            std::memcpy(pGains, m_aGains.data(), sizeof(m_aGains));
            return;
        }
        std::array<uint16_t, BLOCK> aWords;
        std::array<uint16_t, BLOCK> aFields;
        const unsigned nDarkBits = m_rLayout.nDarkBits;
        for (std::size_t i = 0; i < BLOCK; ++i) {
            aWords[i] = static_cast<uint16_t>(m_aGains[i]);
            aFields[i] = static_cast<uint16_t>(m_aDarks[i] | m_aGains[i] >> 16 << nDarkBits);
        }
        const bool bSplit = m_rLayout.pFormat->nWireBits == 8;
        place(aWords, bSplit, pGains);
        if (m_rLayout.nFieldBytes == 2)
            place(aFields, bSplit, pBlock);
        else if (bSplit)
            for (std::size_t i = 0; i < BLOCK; ++i) pBlock[i] = static_cast<uint8_t>(aFields[i]);
        else
            for (std::size_t i = 0; i < BLOCK / 2; ++i) {
                pBlock[2 * i] = static_cast<uint8_t>(aFields[i]);
                pBlock[2 * i + 1] = static_cast<uint8_t>(aFields[BLOCK / 2 + i]);
            }
    }

private:
    static void place(const std::array<uint16_t, BLOCK>& rWords, bool bSplit, uint8_t* pWords) {
        std::array<uint16_t, BLOCK> aSplit;
        if (bSplit) {
            for (std::size_t i = 0; i < BLOCK / 2; ++i) {
                aSplit[i] = rWords[2 * i];
                aSplit[BLOCK / 2 + i] = rWords[2 * i + 1];
            }
        }
        std::memcpy(pWords, bSplit ? aSplit.data() : rWords.data(), sizeof(rWords));
    }

    const TableLayout& m_rLayout;
    double m_dFull, m_dSlack, m_dPerUnit, m_dBase, m_dDarkLast, m_dPerGain, m_dGainLast;
    alignas(64) std::array<int32_t, BLOCK> m_aDarks = {};
    alignas(64) std::array<int32_t, BLOCK> m_aGains = {};
    alignas(64) std::array<int32_t, BLOCK> m_aMisfits = {};
};

/// False where the layout has too many exceptions.
bool build(const CFormula& rFormula, CorrectionTable& rTable) {
    const std::size_t nSamples = rFormula.layout().samples();
    const std::size_t nBlocks = (nSamples + BLOCK - 1) / BLOCK;
    rTable.vecExceptions.clear();
    CBuilder oBuilder(rTable.sLayout);
    TableLayout sWide;
    sWide.pFormat = rTable.sLayout.pFormat;
    CBuilder oWide(sWide);
    rTable.pBlocks.reset();  // before the next is made
    rTable.pBlocks = allocate(nBlocks * rTable.sLayout.blockBytes());
    CFormula::Block sBlock;
    for (std::size_t iBlock = 0; iBlock < nBlocks; ++iBlock) {
        rFormula.block(iBlock * BLOCK, sBlock);
        const unsigned nMisfits = oBuilder.encode(sBlock);
        oBuilder.store(rTable.pBlocks.get() + iBlock * rTable.sLayout.blockBytes());
        if (nMisfits == 0)
            continue;
        oWide.encode(sBlock);
        for (std::size_t i = 0; i < BLOCK && iBlock * BLOCK + i < nSamples; ++i) {
            if (oBuilder.isMisfit(i))
                rTable.vecExceptions.push_back({iBlock * BLOCK + i, oWide.entry(i)});
        }
        if (rTable.vecExceptions.size() > nSamples / EXCEPTION_SHARE)
            return false;
    }
    return true;
}

}  // namespace

void FreeMemory::operator()(uint8_t* pMemory) const {
    std::free(pMemory);
}

std::string TableLayout::description() const {
    const unsigned nUnit = sPoint.nOffsetBits - nDarkShift;
    std::array<char, 128> aText;
    std::snprintf(aText.data(), aText.size(), "%u bit, dark u%u.%u+%.5g, gain u%u.%u, %zu B/sample", pFormat->nBits,
                  nDarkBits - nUnit, nUnit, std::ldexp(uDarkBase, -static_cast<int>(sPoint.nOffsetBits)),
                  static_cast<unsigned>(gainBytes() * 8) + wholeBits() - sPoint.nGainBits, sPoint.nGainBits,
                  nFieldBytes + gainBytes());
    return aText.data();
}

CorrectionTable makeTable(const CFormula& rFormula) {
    CorrectionTable sTable;
    for (const TableLayout& rLayout : candidates(rFormula)) {
        sTable.sLayout = rLayout;
        if (build(rFormula, sTable))
            break;  // at the latest the wide one, which has no exceptions
    }
    return sTable;
}

}  // namespace StandIn
}  // namespace XAPEL2
