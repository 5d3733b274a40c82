// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that replace defects.

#include "standin/processor/correction/DefectWindows.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "standin/pixels/PlaneVectors.h"
#include "standin/processor/correction/Prefetch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/correction/DefectWindows.cpp"
#include "hwy/foreach_target.h"
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class T>
HWY_INLINE T loadAs(const uint8_t* pMemory) {
    T result = 0;  // little endian, as every processor that the stand-in runs on
    std::memcpy(&result, pMemory, sizeof result);
    return result;
}

// Formats: how many bytes are read for a vector, how many samples fill whole bytes, where a sample begins, the sample,
// and how it is written.

struct Bytes {
    static constexpr std::size_t READ_BYTES = DefectWindow::LANES;
    static constexpr std::size_t GROUP = DefectWindow::group(8);
    static HWY_INLINE const uint8_t* place(const uint8_t* pImage, std::size_t i) { return pImage + i; }
    static HWY_INLINE uint32_t sample(const uint8_t* pImage, std::size_t i) { return pImage[i]; }
    static HWY_INLINE void write(const PixelFormat&, uint8_t* pImage, std::size_t i, uint16_t uSample) {
        pImage[i] = static_cast<uint8_t>(uSample);
    }
};

struct Words {
    static constexpr std::size_t READ_BYTES = DefectWindow::READ_BYTES;
    static constexpr std::size_t GROUP = DefectWindow::group(16);
    static HWY_INLINE const uint8_t* place(const uint8_t* pImage, std::size_t i) { return pImage + i * 2; }
    static HWY_INLINE uint32_t sample(const uint8_t* pImage, std::size_t i) {
        return loadAs<uint16_t>(place(pImage, i));
    }
    static HWY_INLINE void write(const PixelFormat&, uint8_t* pImage, std::size_t i, uint16_t uSample) {
        std::memcpy(pImage + i * 2, &uSample, sizeof uSample);
    }
};

/// Samples of 10 or 12 bits one behind the other: each lies in two bytes.
template <std::size_t BITS>
struct Dense {
    static constexpr std::size_t READ_BYTES = DefectWindow::READ_BYTES;
    static constexpr std::size_t GROUP = DefectWindow::group(BITS);
    static constexpr uint32_t FULL = (1U << BITS) - 1;
    static HWY_INLINE const uint8_t* place(const uint8_t* pImage, std::size_t i) { return pImage + i * BITS / 8; }
    static HWY_INLINE uint32_t sample(const uint8_t* pImage, std::size_t i) {
        return loadAs<uint16_t>(place(pImage, i)) >> i * BITS % 8 & FULL;
    }
    static HWY_INLINE void write(const PixelFormat&, uint8_t* pImage, std::size_t i, uint16_t uSample) {
        uint8_t* const pPlace = pImage + i * BITS / 8;
        const uint32_t uOthers = loadAs<uint16_t>(pPlace) & ~(FULL << i * BITS % 8);
        const auto uBoth = static_cast<uint16_t>(uOthers | uint32_t{uSample} << i * BITS % 8);
        std::memcpy(pPlace, &uBoth, sizeof uBoth);
    }
};

/// Two samples in three bytes, the low bits of both in the middle one.
template <std::size_t BITS>
struct Split {
    static constexpr std::size_t READ_BYTES = DefectWindow::READ_BYTES;
    static constexpr std::size_t GROUP = DefectWindow::group(12);
    static constexpr int LOW = static_cast<int>(BITS) - 8;
    static HWY_INLINE const uint8_t* place(const uint8_t* pImage, std::size_t i) { return pImage + i / 2 * 3; }
    static HWY_INLINE uint32_t sample(const uint8_t* pImage, std::size_t i) {
        const uint8_t* const pPair = place(pImage, i);
        return static_cast<uint32_t>(pPair[i % 2 * 2]) << LOW | (pPair[1] >> i % 2 * 4 & ((1U << LOW) - 1));
    }
    static HWY_INLINE void write(const PixelFormat& rFormat, uint8_t* pImage, std::size_t i, uint16_t uSample) {
        packSamples(rFormat, &uSample, i, 1, pImage);
    }
};

// The targets that stand for "no vectors" lack operations.
#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128

using Samples = hn::Full128<int16_t>;
using Row = hn::Vec<Samples>;

// Of each format the samples of a vector, from one on that begins at a byte.

HWY_INLINE Row row(Bytes, const uint8_t* pRow) {
    return hn::PromoteTo(Samples(), hn::LoadU(hn::Full64<uint8_t>(), pRow));
}

/// Less 0x8000, so that they have a sign.
HWY_INLINE Row row(Words, const uint8_t* pRow) {
    const auto vSamples = hn::BitCast(Samples(), hn::LoadU(hn::Full128<uint8_t>(), pRow));
    return hn::Xor(vSamples, hn::Set(Samples(), INT16_MIN));
}

/// Eight words whose bytes come from where the indices tell, each as it is after it has been multiplied.
HWY_INLINE hn::Vec<hn::Full128<uint16_t>> spread(hn::Vec<hn::Full128<uint8_t>> vBytes, const uint8_t* pIndices,
                                                 const uint16_t* pFactors) {
    const hn::Full128<uint16_t> d16;
    const auto vIndices = hn::Load(hn::Full128<uint8_t>(), pIndices);
    return hn::Mul(hn::BitCast(d16, hn::TableLookupBytes(vBytes, vIndices)), hn::Load(d16, pFactors));
}

/// Each sample is moved to the top of its word, then down.
template <std::size_t BITS>
HWY_INLINE Row row(Dense<BITS>, const uint8_t* pRow) {
    static constexpr auto AT = [](std::size_t k) { return static_cast<uint8_t>(k / 2 * BITS / 8 + k % 2); };
    static constexpr auto UP = [](std::size_t k) { return static_cast<uint16_t>(1U << (16 - BITS - k * BITS % 8)); };
    HWY_ALIGN static constexpr uint8_t INDICES[16] = {AT(0), AT(1), AT(2),  AT(3),  AT(4),  AT(5),  AT(6),  AT(7),
                                                      AT(8), AT(9), AT(10), AT(11), AT(12), AT(13), AT(14), AT(15)};
    HWY_ALIGN static constexpr uint16_t FACTORS[8] = {UP(0), UP(1), UP(2), UP(3), UP(4), UP(5), UP(6), UP(7)};
    const auto vBytes = hn::LoadU(hn::Full128<uint8_t>(), pRow);
    return hn::BitCast(Samples(), hn::ShiftRight<16 - BITS>(spread(vBytes, INDICES, FACTORS)));
}

/// Words of the middle byte and the one with a sample's high bits.
template <std::size_t BITS>
HWY_INLINE Row row(Split<BITS>, const uint8_t* pRow) {
    HWY_ALIGN static constexpr uint8_t INDICES[16] = {1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11};
    HWY_ALIGN static constexpr uint16_t FACTORS[8] = {16, 1, 16, 1, 16, 1, 16, 1};
    constexpr int LOW = Split<BITS>::LOW;
    const hn::Full128<uint8_t> d8;
    const hn::Full128<uint16_t> d16;
    const auto vBytes = hn::LoadU(d8, pRow);
    const auto vHigh = hn::BitCast(d16, hn::TableLookupBytes(vBytes, hn::Load(d8, INDICES)));
    const auto vLow = spread(vBytes, INDICES, FACTORS);
    return hn::BitCast(Samples(), hn::Or(hn::And(hn::ShiftRight<8 - LOW>(vHigh), hn::Set(d16, 0xFF << LOW)),
                                         hn::And(hn::ShiftRight<4>(vLow), hn::Set(d16, (1 << LOW) - 1))));
}

/// Sums wrap around, as does what words lack: the weights make 65,536 together.
template <class FORMAT, std::size_t ROWS, std::size_t VECTORS>
HWY_INLINE uint32_t sumOfWindow(const uint8_t* pRow, std::size_t nRowBytes, const int16_t* pWeights) {
    const hn::Full128<int32_t> d32;
    auto vSums = hn::Zero(d32);
    auto vMore = hn::Zero(d32);
#pragma GCC unroll 5
    for (std::size_t iRow = 0; iRow < ROWS; ++iRow, pRow += nRowBytes) {
#pragma GCC unroll 2
        for (std::size_t k = 0; k < VECTORS; ++k, pWeights += DefectWindow::LANES) {
            vSums = hn::ReorderWidenMulAccumulate(d32, row(FORMAT(), FORMAT::place(pRow, k * DefectWindow::LANES)),
                                                  hn::LoadU(Samples(), pWeights), vSums, vMore);
        }
    }
    constexpr uint32_t LACK = std::is_same_v<FORMAT, Words> ? 0x8000U << 16 : 0;
    return static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(vSums, vMore)))) + LACK;
}

#else

template <class FORMAT, std::size_t ROWS, std::size_t VECTORS>
uint32_t sumOfWindow(const uint8_t* pRow, std::size_t nRowBytes, const int16_t* pWeights) {
    uint32_t uSum = 0;
    for (std::size_t iRow = 0; iRow < ROWS; ++iRow, pRow += nRowBytes) {
        for (std::size_t k = 0; k < VECTORS * DefectWindow::LANES; ++k, ++pWeights) {
            uSum += *pWeights != 0 ? static_cast<uint32_t>(*pWeights) * FORMAT::sample(pRow, k) : 0;
        }
    }
    return uSum;
}

#endif

template <class FORMAT>
uint32_t sumOfNeighbours(const DefectList& rList, const uint8_t* pImage, const DefectPlace& rPlace) {
    const DefectNeighbour* const pFirst = rList.vecNeighbours.data() + rPlace.uFirst;
    uint32_t uSum = 0;
    for (std::size_t k = 0; k < rPlace.nNeighbours; ++k) {
        const auto iFrom = static_cast<std::ptrdiff_t>(rPlace.uSample) + pFirst[k].iDistance;
        uSum += pFirst[k].uWeight * FORMAT::sample(pImage, static_cast<std::size_t>(iFrom));
    }
    return uSum;
}

template <class FORMAT, std::size_t ROWS, std::size_t VECTORS>
HWY_INLINE void askForWindow(const uint8_t* pRow, std::size_t nRowBytes) {
    for (std::size_t iRow = 0; iRow < ROWS; ++iRow, pRow += nRowBytes) {
        prefetch(pRow);
        // Where vectors end: one of four rows goes on in the next line.
        prefetch(FORMAT::place(pRow, (VECTORS - 1) * DefectWindow::LANES) + FORMAT::READ_BYTES - 1);
    }
}

template <class FORMAT, std::size_t ROWS, std::size_t VECTORS>
std::size_t replace(const DefectList& rList, uint8_t* pImage, std::size_t i, std::size_t nDone) {
    // Defects whose rows are asked for before they are read: as many as the first cache has room for beside the rest.
    constexpr std::size_t AHEAD = 8;
    // Out of the list once: a byte that is written could be part of it, for all that the compiler knows.
    const PixelFormat& rFormat = *rList.pFormat;
    const std::size_t nRowBytes = DefectWindow::rowStep(ROWS) * rList.nRowSamples * rFormat.nWireBits / 8;
    const std::size_t nBefore = DefectWindow::before(rFormat, rList.nRowSamples);
    const DefectPlace* const pPlaces = rList.vecPlaces.data();
    const std::size_t iEnd = rList.vecPlaces.size();
    const int16_t* const pWeights = rList.vecWeights.data();
    const auto window = [&](const DefectPlace& rPlace) {
        return FORMAT::place(pImage, DefectWindow::start(FORMAT::GROUP, rPlace.uSample - nBefore));
    };
    for (std::size_t iAsked = i; i < iEnd && pPlaces[i].uNeed <= nDone; ++i) {
        for (; iAsked < std::min(iEnd, i + AHEAD) && pPlaces[iAsked].uNeed <= nDone; ++iAsked) {
            if (pPlaces[iAsked].nNeighbours == 0) {
                askForWindow<FORMAT, ROWS, VECTORS>(window(pPlaces[iAsked]), nRowBytes);
            }
        }
        const DefectPlace place = pPlaces[i];
        const uint32_t uSum = place.nNeighbours != 0 ? sumOfNeighbours<FORMAT>(rList, pImage, place)
                                                     : sumOfWindow<FORMAT, ROWS, VECTORS>(window(place), nRowBytes,
                                                                                          pWeights + place.uFirst);
        FORMAT::write(rFormat, pImage, place.uSample, roundedMean(uSum));
    }
    return i;
}

template <class FORMAT>
std::size_t replaceSingle(const DefectList& rList, uint8_t* pImage, std::size_t i, std::size_t nDone) {
    return DefectWindow::rows(*rList.pFormat) == 3 ? replace<FORMAT, 3, 1>(rList, pImage, i, nDone)
                                                   : replace<FORMAT, 5, 1>(rList, pImage, i, nDone);
}

std::size_t replaceAny(const DefectList& rList, uint8_t* pImage, std::size_t i, std::size_t nDone) {
    const PixelFormat& rFormat = *rList.pFormat;
    if (DefectWindow::vectors(rFormat) == 2) {
        return rFormat.nWireBits == 8 ? replace<Bytes, 5, 2>(rList, pImage, i, nDone)
                                      : replace<Words, 5, 2>(rList, pImage, i, nDone);
    }
    if (!rFormat.isPacked()) {
        return rFormat.nWireBits == 8 ? replaceSingle<Bytes>(rList, pImage, i, nDone)
                                      : replaceSingle<Words>(rList, pImage, i, nDone);
    }
    if (rFormat.nBits == 10) {
        return rFormat.bSplit ? replaceSingle<Split<10>>(rList, pImage, i, nDone)
                              : replaceSingle<Dense<10>>(rList, pImage, i, nDone);
    }
    return rFormat.bSplit ? replaceSingle<Split<12>>(rList, pImage, i, nDone)
                          : replaceSingle<Dense<12>>(rList, pImage, i, nDone);
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(replaceAny);

std::size_t replaceDefects(const DefectList& rList, uint8_t* pImage, std::size_t i, std::size_t nDone) noexcept {
    return HWY_DYNAMIC_DISPATCH(replaceAny)(rList, pImage, i, nDone);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
