// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Correction tables in memory: their layouts, and how the layout for a reference is chosen.

#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "standin/pixels/LargeMemory.h"
#include "standin/processor/correction/Correction.h"
#include "standin/processor/correction/CorrectionFormula.h"
#include "standin/processor/correction/DefectRepair.h"

namespace XAPEL2 {
namespace StandIn {

/// Of wide tables, which hold every reference closely enough, and of exceptions.
constexpr FixedPoint WIDE_POINT = {12, 26};

/// How a table holds offsets and gains. It is one stream of blocks of 64 samples, each the fields with the darks, then
/// the words with the gains. The offset of a sample is uDarkBase + (low nDarkBits of its field << nDarkShift) - uLift;
/// bits of the field above these are the bits 16 and up of its gain, the gain's word holds the rest.
///
/// So that vectors of any width meet their samples without moving them across lanes, samples are placed so:
///   8-bit images    byte fields in order; words and 16-bit fields first of the even samples, then of the odd ones
///   other images    words and wider fields in order; byte fields of the samples 0, 32, 1, 33, ... 31, 63
struct TableLayout {
    const PixelFormat* pFormat = nullptr;
    unsigned nFieldBytes = 4;  ///< of a dark: 1 or 2, with gains of 16 bits; or 4, with gains of 32 (a wide table)
    unsigned nDarkBits = 32;
    unsigned nDarkShift = 0;
    uint32_t uDarkBase = 0;
    uint32_t uLift = 0;  ///< lets offsets be negative, as a pedestal makes those of dim darks; at most full scale
    FixedPoint point = WIDE_POINT;

    bool isWide() const { return nFieldBytes == 4; }
    /// What is added to every offset, DN.
    double lowest() const {
        return (static_cast<double>(uDarkBase) - static_cast<double>(uLift)) / (1U << point.nOffsetBits);
    }
    unsigned wholeBits() const { return nFieldBytes * 8 - nDarkBits; }
    std::size_t gainBytes() const { return isWide() ? 4 : 2; }
    std::size_t blockBytes() const { return BLOCK * (nFieldBytes + gainBytes()); }
    /// Bytes of 64 samples of the image.
    std::size_t imageBlockBytes() const { return BLOCK / 8 * pFormat->nWireBits; }
    /// Bits that the product of signal and gain is shifted down by.
    unsigned productBits() const { return point.nOffsetBits + point.nGainBits; }

    std::size_t fieldPlace(std::size_t i) const {
        if (pFormat->nWireBits == 8) {
            return nFieldBytes == 1 ? i : gainPlace(i);
        }
        return nFieldBytes == 1 ? i % 32 * 2 + i / 32 : i;
    }
    std::size_t gainPlace(std::size_t i) const { return pFormat->nWireBits == 8 && !isWide() ? i % 2 * 32 + i / 2 : i; }
    std::string description() const;
};

/// Offset and gain of a sample in the fixed point of its table.
struct TableEntry {
    int32_t iOffset;
    uint32_t uGain;
};

/// The entry of sample i of a block.
inline TableEntry tableEntry(const TableLayout& rLayout, const uint8_t* pBlock, std::size_t i) {
    const std::size_t nBytes = rLayout.nFieldBytes;
    uint32_t uField = 0;
    uint32_t uWord = 0;  // little endian, as every processor that the stand-in runs on
    std::memcpy(&uField, pBlock + rLayout.fieldPlace(i) * nBytes, nBytes);
    const std::size_t nGainBytes = rLayout.gainBytes();
    std::memcpy(&uWord, pBlock + BLOCK * nBytes + rLayout.gainPlace(i) * nGainBytes, nGainBytes);
    const uint64_t uWhole = uint64_t{uField} >> rLayout.nDarkBits;
    const uint64_t uDark = uField - (uWhole << rLayout.nDarkBits);
    return {
        static_cast<int32_t>(rLayout.uDarkBase + static_cast<uint32_t>(uDark << rLayout.nDarkShift) - rLayout.uLift),
        static_cast<uint32_t>(uWhole << 16) | uWord};
}

/// A sample that the layout of its table cannot hold closely enough, in the fixed point of wide tables.
struct TableException {
    std::size_t iSample;
    TableEntry entry;
};

struct CorrectionTable {
    TableLayout layout;
    LargeMemory pBlocks;     // one for each 64 samples begun, the last filled up with D = 0, G = 1
    uint64_t uPedestal = 0;  // of wide tables and exceptions, in the unit of their product
    CDefectRepair oDefects;
    std::vector<TableException> vecExceptions;  // in the order of the image, at most 1 of 1,000 samples
};

/// The smallest table that keeps the bound for the reference. @throws std::bad_alloc
CorrectionTable makeTable(const CFormula& rFormula);

}  // namespace StandIn
}  // namespace XAPEL2
