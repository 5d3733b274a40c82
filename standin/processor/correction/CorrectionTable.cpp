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
//
// A pedestal P is part of the offset, as (in - D) G + P = (in - (D - P / G)) G, and costs nothing, where the layout's
// darks reach it. (1) then holds for D - P / G in place of D; where it is negative and D' is not, d is above 0, and
// x' <= F in x' g - d G gives (1) again. Layouts with a lift L have offsets from -L on, at the price of a fraction bit:
// there x, x' <= F + L, which takes the place of the first F in (1). Wide tables and exceptions keep D and add P to the
// product: P has 38 fraction bits there, and with x down to -F (1) holds as P <= F.
//
// The other layouts are tried from the smallest on. (1) is computed for each sample; the few for which it fails, hot
// and dead pixels mostly, become exceptions. The first layout with few enough of them is taken.

#include "standin/processor/correction/CorrectionTable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t EXCEPTION_SHARE = 1000;  // of so many samples, one may be an exception

double power(int iExponent) {
    return std::ldexp(1.0, iExponent);
}

/// How darks and gains of a reference are distributed, from some of its blocks. Only guides the choice of layouts to
/// try, so it need not be complete.
class CSurvey {
public:
    /// @param[in] dLift  is added to all offsets, DN.
    explicit CSurvey(const CFormula& rFormula, double dLift = 0.0) : m_vecDarks(BINS), m_vecBelow(BINS) {
        const ImageLayout& rLayout = rFormula.layout();
        const std::size_t nBlocks = (rLayout.samples() + BLOCK - 1) / BLOCK;
        const std::size_t nStride = nBlocks > 4096 ? 17 : 1;
        const double dToBin = power(12 - static_cast<int>(rLayout.pFormat->nBits));
        FormulaBlock block;
        for (std::size_t iBlock = 0; iBlock < nBlocks; iBlock += nStride) {
            rFormula.block(iBlock * BLOCK, block);
            rFormula.foldPedestal(block);
            const std::size_t nUsed = std::min(BLOCK, rLayout.samples() - iBlock * BLOCK);
            for (std::size_t i = 0; i < nUsed; ++i) {
                // Infinite where a pedestal meets a gain of 0.
                const double dOffset = (block.aOffsets[i] + dLift) * dToBin;
                ++m_vecDarks[static_cast<std::size_t>(std::clamp(dOffset, 0.0, BINS - 1.0))];
                m_vecBelow[static_cast<std::size_t>(std::clamp(std::ceil(-dOffset), 0.0, BINS - 1.0))] += dOffset < 0.0;
                for (unsigned k = 0; k < m_aGains.size(); ++k) {
                    m_aGains[k] += block.aGains[i] >= (2 << k);
                }
            }
            m_nSamples += nUsed;
        }
    }

    /// Smallest k for which nearly all gains are below 2^(k+1); 3 at most.
    unsigned gainExponent() const {
        unsigned k = 0;
        while (k < m_aGains.size() && m_aGains[k] > m_nSamples / EXCEPTION_SHARE) {
            ++k;
        }
        return k;
    }

    /// Bins below 0 that nearly all offsets stay above.
    std::size_t lift() const {
        std::size_t nBelow = 0;
        std::size_t iBin = BINS - 1;
        for (; iBin != 0; --iBin) {
            nBelow += m_vecBelow[iBin];
            if (nBelow > m_nSamples / (EXCEPTION_SHARE * 8)) {
                break;
            }
        }
        return iBin;
    }

    /// First bin of the window of nBins bins that holds the most darks, the middle one of several; how many it lacks
    /// goes to rMissing.
    std::size_t window(std::size_t nBins, std::size_t& rMissing) const {
        std::size_t nInside = 0;
        std::size_t nMost = 0;
        std::size_t iBest = 0;
        std::size_t iBestLast = 0;
        for (std::size_t iEnd = 1; iEnd <= BINS; ++iEnd) {
            nInside += m_vecDarks[iEnd - 1];
            if (iEnd > nBins) {
                nInside -= m_vecDarks[iEnd - 1 - nBins];
            }
            const std::size_t iFirst = iEnd > nBins ? iEnd - nBins : 0;
            if (nInside > nMost) {
                iBest = iFirst;
            }
            if (nInside >= nMost) {
                nMost = nInside;
                iBestLast = iFirst;
            }
        }
        rMissing = m_nSamples - nMost;
        return iBest + (iBestLast - iBest) / 2;
    }
    std::size_t above(std::size_t iBin) const {
        std::size_t nAbove = 0;
        for (std::size_t i = iBin; i < BINS; ++i) {
            nAbove += m_vecDarks[i];
        }
        return nAbove;
    }
    std::size_t samples() const { return m_nSamples; }

    static constexpr std::size_t BINS = 4096;  // a bin is 2^(bits - 12) DN wide, or 16 units of a 16-bit offset

private:
    std::vector<std::size_t> m_vecDarks;
    std::vector<std::size_t> m_vecBelow;       // offsets below 0, by their distance from it
    std::array<std::size_t, 3> m_aGains = {};  // gains from 2, 4 and 8 on
    std::size_t m_nSamples = 0;
};

/// Gives the layout the base and shift of its darks; the smallest shift whose range holds nearly all.
bool placeDarks(const CSurvey& rSurvey, TableLayout& rLayout) {
    const unsigned nBits = rLayout.pFormat->nBits;
    const std::size_t nUnits = std::size_t{1} << (rLayout.point.nOffsetBits + nBits - 12);  // of a bin
    const unsigned nMost = nBits <= 12 ? rLayout.point.nOffsetBits - 1 : rLayout.point.nOffsetBits;
    for (const std::size_t nShare : {EXCEPTION_SHARE * 8, EXCEPTION_SHARE}) {
        for (unsigned nShift = 0; nShift <= nMost; ++nShift) {
            const std::size_t nRange = std::size_t{1} << (rLayout.nDarkBits + nShift);
            if (nRange > 0x10000) {
                break;
            }
            std::size_t nMissing = 0;
            std::size_t iFirst = 0;
            if (nBits == 8) {  // these kernels have no base
                nMissing = rSurvey.above(nRange / nUnits);
            } else {
                iFirst = rSurvey.window(nRange / nUnits, nMissing);
            }
            if (nMissing > rSurvey.samples() / nShare) {
                continue;
            }
            rLayout.nDarkShift = nShift;
            rLayout.uDarkBase = static_cast<uint32_t>(std::min(iFirst * nUnits, 0x10000 - nRange));
            return true;
        }
    }
    return false;
}

/// Adds the small layouts to try, smallest first. @param[in] uLift  DN; needs a format below 16 bits.
void addCandidates(const CFormula& rFormula, const CSurvey& rSurvey, uint32_t uLift,
                   std::vector<TableLayout>& rLayouts) {
    const PixelFormat& rFormat = *rFormula.layout().pFormat;
    const unsigned nExponent = rSurvey.gainExponent();
    TableLayout layout;
    layout.pFormat = &rFormat;
    layout.point = {16 - rFormat.nBits - (uLift != 0 ? 1 : 0), 16};
    layout.uLift = uLift << layout.point.nOffsetBits;
    for (const unsigned nBytes : {1U, 2U}) {
        layout.nFieldBytes = nBytes;
        for (unsigned k = nExponent; k < 4; ++k) {
            layout.nDarkBits = nBytes * 8;
            if (rFormat.nBits == 16) {
                layout.nDarkBits -= k + 1;  // the gain's whole part goes there
            } else {
                layout.point.nGainBits = 15 - k;
            }
            const bool bKernel = layout.productBits() >= 16 && layout.nDarkBits >= 6;
            layout.nDarkShift = 0;
            layout.uDarkBase = 0;
            if (bKernel && ((nBytes == 2 && rFormat.nBits != 16) || placeDarks(rSurvey, layout))) {
                rLayouts.push_back(layout);
            }
        }
    }
}

/// Layouts to try, smallest first.
std::vector<TableLayout> candidates(const CFormula& rFormula) {
    const PixelFormat& rFormat = *rFormula.layout().pFormat;
    std::vector<TableLayout> vecLayouts;
    const CSurvey survey(rFormula);
    const std::size_t nLift = survey.lift();
    if (nLift == 0 || rFormat.nBits > 14) {
        addCandidates(rFormula, survey, 0, vecLayouts);
    } else {
        // A bin is a part of a DN, or some: the lift is in whole ones.
        const double dLift = std::ceil(static_cast<double>(nLift) * power(static_cast<int>(rFormat.nBits) - 12));
        const auto uLift = std::min(static_cast<uint32_t>(dLift), rFormat.fullScale());
        addCandidates(rFormula, CSurvey(rFormula, uLift), uLift, vecLayouts);
    }
    TableLayout layout;
    layout.pFormat = &rFormat;
    vecLayouts.push_back(layout);
    return vecLayouts;
}

EncodeRule encodeRule(const TableLayout& rLayout) {
    constexpr double MARGIN = 1e-6;  // far above the rounding of the check itself
    const int nOffsetBits = static_cast<int>(rLayout.point.nOffsetBits);
    EncodeRule rule;
    rule.dBase = rLayout.lowest();
    rule.dPerUnit = power(static_cast<int>(rLayout.nDarkShift) - nOffsetBits);
    rule.dDarkLast = power(std::min(static_cast<int>(rLayout.nDarkBits), 31)) - 1;
    rule.dPerGain = power(-static_cast<int>(rLayout.point.nGainBits));
    rule.dGainLast =
        std::min(power(static_cast<int>(rLayout.gainBytes() * 8 + rLayout.wholeBits())), GAIN_LIMIT / rule.dPerGain) -
        1;
    rule.dFull = rLayout.pFormat->fullScale() + rLayout.uLift * power(-nOffsetBits);
    rule.dBound = 0.5 - MARGIN;
    rule.dBoundPerGain = rLayout.pFormat->nBits > 12 ? 0.5 : 0.0;
    return rule;
}

template <typename T, typename F>
void place(uint8_t* pTo, F fnOfSample) {
    std::array<T, BLOCK> aPlaced;
    for (std::size_t i = 0; i < BLOCK; ++i) {
        aPlaced[i] = static_cast<T>(fnOfSample(i));
    }
    std::memcpy(pTo, aPlaced.data(), sizeof(aPlaced));
}

/// Writes the codes of a block to the table.
void store(const TableLayout& rLayout, const EncodedBlock& rCodes, uint8_t* pBlock) {
    uint8_t* const pGains = pBlock + BLOCK * rLayout.nFieldBytes;
    if (rLayout.isWide()) {
        std::memcpy(pBlock, rCodes.aDarks.data(), sizeof(rCodes.aDarks));
        std::memcpy(pGains, rCodes.aGains.data(), sizeof(rCodes.aGains));
        return;
    }
    const auto field = [&, nDarkBits = rLayout.nDarkBits](std::size_t i) {
        return rCodes.aDarks[i] | rCodes.aGains[i] >> 16 << nDarkBits;
    };
    const auto word = [&](std::size_t i) { return rCodes.aGains[i]; };
    // Sample at a place: the inverse of fieldPlace and gainPlace.
    const auto evenThenOdd = [](std::size_t i) { return i % 32 * 2 + i / 32; };
    const auto halvesInTurn = [](std::size_t i) { return i % 2 * 32 + i / 2; };
    if (rLayout.pFormat->nWireBits == 8) {
        place<uint16_t>(pGains, [&](std::size_t i) { return word(evenThenOdd(i)); });
        if (rLayout.nFieldBytes == 1) {
            place<uint8_t>(pBlock, field);
        } else {
            place<uint16_t>(pBlock, [&](std::size_t i) { return field(evenThenOdd(i)); });
        }
    } else {
        place<uint16_t>(pGains, word);
        if (rLayout.nFieldBytes == 1) {
            place<uint8_t>(pBlock, [&](std::size_t i) { return field(halvesInTurn(i)); });
        } else {
            place<uint16_t>(pBlock, field);
        }
    }
}

/// False where the layout has too many exceptions.
bool build(const CFormula& rFormula, CorrectionTable& rTable) {
    const std::size_t nSamples = rFormula.layout().samples();
    const std::size_t nBlocks = (nSamples + BLOCK - 1) / BLOCK;
    rTable.vecExceptions.clear();
    const EncodeRule rule = encodeRule(rTable.layout);
    TableLayout wide;
    wide.pFormat = rTable.layout.pFormat;
    const EncodeRule wideRule = encodeRule(wide);
    rTable.pBlocks.reset();  // before the next is made
    rTable.pBlocks = allocateLarge(nBlocks * rTable.layout.blockBytes());
    FormulaBlock block;
    EncodedBlock codes;
    for (std::size_t iBlock = 0; iBlock < nBlocks; ++iBlock) {
        rFormula.block(iBlock * BLOCK, block);
        if (!rTable.layout.isWide()) {
            rFormula.foldPedestal(block);
        }
        encodeBlock(rule, block, codes);
        store(rTable.layout, codes, rTable.pBlocks.get() + iBlock * rTable.layout.blockBytes());
        const uint64_t uMisfits = codes.uMisfits & ~rFormula.defectsOf(iBlock * BLOCK);
        if (uMisfits == 0 || rTable.layout.isWide()) {
            continue;
        }
        if (rFormula.pedestal() != 0.0) {
            rFormula.block(iBlock * BLOCK, block);
        }
        encodeBlock(wideRule, block, codes);
        for (std::size_t i = 0; i < BLOCK && iBlock * BLOCK + i < nSamples; ++i) {
            if ((uMisfits >> i & 1) != 0) {
                rTable.vecExceptions.push_back(
                    {iBlock * BLOCK + i, {static_cast<int32_t>(codes.aDarks[i]), codes.aGains[i]}});
            }
        }
        if (rTable.vecExceptions.size() > nSamples / EXCEPTION_SHARE) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string TableLayout::description() const {
    const unsigned nUnit = point.nOffsetBits - nDarkShift;
    std::array<char, 128> aText;
    std::snprintf(aText.data(), aText.size(), "%u bit, dark u%u.%u%+.5g, gain u%u.%u, %zu B/sample", pFormat->nBits,
                  nDarkBits - nUnit, nUnit, lowest(),
                  static_cast<unsigned>(gainBytes() * 8) + wholeBits() - point.nGainBits, point.nGainBits,
                  nFieldBytes + gainBytes());
    return aText.data();
}

CorrectionTable makeTable(const CFormula& rFormula) {
    CorrectionTable table;
    table.uPedestal = static_cast<uint64_t>(
        std::llround(rFormula.pedestal() * power(static_cast<int>(WIDE_POINT.nOffsetBits + WIDE_POINT.nGainBits))));
    if (const std::vector<uint8_t>* const pDefects = rFormula.defects()) {
        table.oDefects = CDefectRepair(rFormula.layout(), *pDefects);
    }
    for (const TableLayout& rLayout : candidates(rFormula)) {
        table.layout = rLayout;
        if (build(rFormula, table)) {
            break;  // at the latest the wide one, which has no exceptions
        }
    }
    return table;
}

}  // namespace StandIn
}  // namespace XAPEL2
