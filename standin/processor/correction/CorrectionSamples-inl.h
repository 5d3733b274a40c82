// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How vector kernels read and write the samples of a block. Compiled for each target that the including file is for.

#if defined(XAPEL2_CORRECTION_SAMPLES_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef XAPEL2_CORRECTION_SAMPLES_INL
#undef XAPEL2_CORRECTION_SAMPLES_INL
#else
#define XAPEL2_CORRECTION_SAMPLES_INL
#endif

#include "hwy/highway.h"
#include "standin/processor/correction/CorrectionTable.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128

namespace hn = hwy::HWY_NAMESPACE;

template <class D>
using Words = hn::Vec<D>;

template <class D>
HWY_INLINE Words<D> loadWords(D d16, const uint8_t* pBytes) {
    return hn::BitCast(d16, hn::LoadU(hn::Repartition<uint8_t, D>(), pBytes));
}
template <class D>
HWY_INLINE Words<D> splat(D d16, unsigned uValue) {
    return hn::Set(d16, static_cast<uint16_t>(uValue));
}

/// For each pair of words, neither above 12 bits, the sum of the first times 2^EVEN and the second times 2^ODD.
template <int EVEN, int ODD, class D>
HWY_INLINE hn::Vec<hn::Repartition<uint32_t, D>> pairSums(D, Words<D> vWords) {
    const hn::Repartition<uint32_t, D> d32;
#if HWY_ARCH_X86
    // One instruction, whose pairs are neighbours here and nowhere else.
    const hn::Repartition<int16_t, D> di16;
    const hn::Repartition<int32_t, D> di32;
    auto vNone = hn::Zero(di32);
    const auto vFactors = hn::BitCast(di16, hn::Set(d32, 1U << EVEN | 1U << (16 + ODD)));
    return hn::BitCast(d32,
                       hn::ReorderWidenMulAccumulate(di32, hn::BitCast(di16, vWords), vFactors, hn::Zero(di32), vNone));
#else
    const auto vPairs = hn::BitCast(d32, vWords);
    return hn::Add(hn::ShiftLeft<EVEN>(hn::And(vPairs, hn::Set(d32, 0xFFFFU))),
                   hn::ShiftLeft<ODD>(hn::ShiftRight<16>(vPairs)));
#endif
}

/// Samples in words of their own.
template <class D>
struct Unpacked {
    using V = Words<D>;
    static constexpr std::size_t BLOCK_BYTES = BLOCK * 2;
    static constexpr std::size_t VECTORS = BLOCK / hn::MaxLanes(D());
    V m_vFull;
    int m_nUp;

    explicit Unpacked(const TableLayout& rLayout)
        : m_vFull(splat(D(), rLayout.pFormat->fullScale())), m_nUp(static_cast<int>(rLayout.point.nOffsetBits)) {}
    HWY_INLINE void load(const uint8_t* pImage, V* pIn) const {
#pragma GCC unroll 8
        for (std::size_t i = 0; i < VECTORS; ++i) {
            pIn[i] = loadWords(D(), pImage + i * sizeof(V));
        }
    }
    HWY_INLINE V scaled(V vIn) const {
        return hn::ShiftLeftSame(vIn, m_nUp);
    }
    // The same where offsets have a bit less, and so the signal has a bit more.
    HWY_INLINE V scaledForLift(V vIn) const {
        return scaled(vIn);
    }
    HWY_INLINE hn::Mask<D> saturated(V vIn) const {
        return hn::Eq(hn::SaturatedSub(m_vFull, vIn), hn::Zero(D()));
    }
    HWY_INLINE void store(const V* pOut, uint8_t* pImage) const {
        const hn::Repartition<uint8_t, D> d8;
#pragma GCC unroll 8
        for (std::size_t i = 0; i < VECTORS; ++i) {
            hn::StoreU(hn::BitCast(d8, pOut[i]), d8, pImage + i * sizeof(V));
        }
    }
};

/// Packed samples of 10 or 12 bits. Eight of them take as many bytes as one has bits in the image and go to one lane of
/// 128 bits, whose words then hold a sample each in their high bits. Loads and stores stay inside the block: the last
/// of each ends where the block ends and begins before its own first byte.
template <class D, unsigned BITS, bool SPLIT>
struct Packed {
    static constexpr unsigned WIRE = SPLIT ? 12 : BITS;  // bits of a sample in the image
    static constexpr std::size_t BLOCK_BYTES = BLOCK / 8 * WIRE;
    using V = Words<D>;
    using D32 = hn::Repartition<uint32_t, D>;
    using D8 = hn::Repartition<uint8_t, D>;
    using Places32 = decltype(hn::SetTableIndices(D32(), static_cast<const uint32_t*>(nullptr)));
    static constexpr std::size_t LANES128 = hn::MaxLanes(D()) / 8;
    static constexpr std::size_t VECTORS = BLOCK / hn::MaxLanes(D());
    static constexpr std::size_t STEP = LANES128 * WIRE;        // bytes of a vector's samples
    static constexpr std::size_t SPARE = LANES128 * 16 - STEP;  // bytes of a vector that are not its own
    static_assert(LANES128 == 1 || WIRE == 12, "the samples of a lane begin at a multiple of 4 bytes");

    const V m_vMask = splat(D(), 0x10000 - (0x10000 >> BITS));
    V m_vSpread, m_vSpreadLast, m_vFactors, m_vClose, m_vCloseLast, m_vBefore;
    // Of several lanes: bytes in order to the lanes and back, the last vector of a block apart.
    Places32 m_vToLanes, m_vToLanesLast, m_vJoin, m_vJoinLast, m_vJoinBefore;

    explicit Packed(const TableLayout&) {
        constexpr unsigned UNIT = WIRE == 12 ? 3 : 5;   // bytes that two or four samples are put together to,
        constexpr unsigned PITCH = WIRE == 12 ? 4 : 8;  // in so many
        alignas(16) uint16_t aFactors[8];
        alignas(16) uint8_t aSpread[16], aSpreadLast[16], aClose[16], aCloseLast[16], aBefore[16];
        for (unsigned i = 0; i < 16; ++i) {
            const unsigned iByte = SPLIT ? i / 4 * 3 + (i % 2 == 0 ? 1 : i / 2 % 2 * 2) : i / 2 * BITS / 8 + i % 2;
            const unsigned iOwn = i - static_cast<unsigned>(SPARE);
            aFactors[i / 2] = static_cast<uint16_t>(1U << (16 - BITS) >> i / 2 * WIRE % 8);
            aSpread[i] = static_cast<uint8_t>(iByte);
            aSpreadLast[i] = static_cast<uint8_t>(LANES128 == 1 ? iByte + SPARE : iByte);
            aClose[i] = static_cast<uint8_t>(i < WIRE ? i / UNIT * PITCH + i % UNIT : 0x80);
            aCloseLast[i] = static_cast<uint8_t>(i >= SPARE ? iOwn / UNIT * PITCH + iOwn % UNIT : 0x80);
            aBefore[i] = static_cast<uint8_t>(i < SPARE ? STEP - SPARE + i : 0x80);
        }
        m_vFactors = hn::LoadDup128(D(), aFactors);
        m_vSpread = bytes(aSpread);
        m_vSpreadLast = bytes(aSpreadLast);
        m_vClose = bytes(aClose);
        m_vCloseLast = bytes(aCloseLast);
        m_vBefore = bytes(aBefore);
        alignas(64) uint32_t aToLanes[16] = {}, aToLanesLast[16] = {}, aJoin[16] = {}, aJoinLast[16] = {},
                             aJoinBefore[16] = {};
        for (uint32_t i = 0; i < LANES128 * 4 && LANES128 != 1; ++i) {
            constexpr uint32_t OWN = STEP / 4;
            constexpr uint32_t OTHER = SPARE / 4;
            aToLanes[i] = i / 4 * 3 + (i % 4 < 3 ? i % 4 : 2);
            aToLanesLast[i] = aToLanes[i] + OTHER;
            aJoin[i] = i < OWN ? i / 3 * 4 + i % 3 : 0;
            aJoinLast[i] = i >= OTHER ? (i - OTHER) / 3 * 4 + (i - OTHER) % 3 : 0;
            aJoinBefore[i] = i < OTHER ? OWN - OTHER + i : 0;
        }
        m_vToLanes = hn::SetTableIndices(D32(), aToLanes);
        m_vToLanesLast = hn::SetTableIndices(D32(), aToLanesLast);
        m_vJoin = hn::SetTableIndices(D32(), aJoin);
        m_vJoinLast = hn::SetTableIndices(D32(), aJoinLast);
        m_vJoinBefore = hn::SetTableIndices(D32(), aJoinBefore);
    }
    static HWY_INLINE V bytes(const uint8_t* pLane) { return hn::BitCast(D(), hn::LoadDup128(D8(), pLane)); }
    static HWY_INLINE V lookUp(V vBytes, Places32 vPlaces) {
        return hn::BitCast(D(), hn::TableLookupLanes(hn::BitCast(D32(), vBytes), vPlaces));
    }

    HWY_INLINE void load(const uint8_t* pImage, V* pIn) const {
#pragma GCC unroll 8
        for (std::size_t i = 0; i < VECTORS; ++i) {
            const bool bLast = i + 1 == VECTORS;
            auto vBytes = loadWords(D(), pImage + i * STEP - (bLast ? SPARE : 0));
            if (LANES128 != 1) {
                vBytes = lookUp(vBytes, bLast ? m_vToLanesLast : m_vToLanes);
            }
            const auto vPairs = hn::TableLookupBytes(vBytes, bLast ? m_vSpreadLast : m_vSpread);
            // Of split samples the high byte is in its place already.
            const auto vProducts = hn::Mul(vPairs, m_vFactors);
            pIn[i] = hn::And(SPLIT ? hn::IfVecThenElse(splat(D(), 0xFF00), vPairs, vProducts) : vProducts, m_vMask);
        }
    }
    HWY_INLINE V scaled(V vIn) const {
        return vIn;
    }
    HWY_INLINE V scaledForLift(V vIn) const {
        return hn::ShiftRight<1>(vIn);
    }
    HWY_INLINE hn::Mask<D> saturated(V vIn) const {
        return hn::Eq(vIn, m_vMask);
    }

    // Two samples of 12 bits in the image to each dword, or four of 10 to each qword, without a gap.
    static HWY_INLINE V close(V vOut) {
        const hn::Repartition<uint64_t, D> d64;
        if (SPLIT && BITS == 12) {
            const auto vPair =
                hn::BitCast(D32(), vOut);  // its fourth nibble is 0, and the place of the first one's last
            return hn::BitCast(D(),
                               hn::OrAnd(hn::ShiftRight<4>(vPair), hn::ShiftLeft<8>(vPair), hn::Set(D32(), 0xF00U)));
        }
        if (SPLIT) {
            const auto vMiddle = pairSums<8, 12>(D(), hn::And(vOut, splat(D(), (1U << (BITS - 8)) - 1)));
            return hn::Or(hn::ShiftRight<BITS - 8>(vOut), hn::BitCast(D(), vMiddle));
        }
        const auto vTwo = pairSums<0, BITS>(D(), vOut);
        if (BITS == 12) {
            return hn::BitCast(D(), vTwo);
        }
        const auto vLow = hn::Set(d64, 0xFFFFF);
        const auto vFour = hn::BitCast(d64, vTwo);
        return hn::BitCast(D(), hn::Or(hn::And(vFour, vLow), hn::AndNot(vLow, hn::ShiftRight<12>(vFour))));
    }
    HWY_INLINE void store(const V* pOut, uint8_t* pImage) const {
        auto vBefore = hn::Zero(D());
#pragma GCC unroll 8
        for (std::size_t i = 0; i + 1 < VECTORS; ++i) {
            vBefore = hn::TableLookupBytesOr0(close(pOut[i]), m_vClose);
            if (LANES128 != 1) {
                vBefore = lookUp(vBefore, m_vJoin);
            }
            hn::StoreU(hn::BitCast(D8(), vBefore), D8(), pImage + i * STEP);
        }
        // The last: its own bytes at the end of the vector, before them the last bytes of the vector before it.
        const auto vLast = close(pOut[VECTORS - 1]);
        const auto vEnd = LANES128 == 1 ? hn::Or(hn::TableLookupBytesOr0(vLast, m_vCloseLast),
                                                 hn::TableLookupBytesOr0(vBefore, m_vBefore))
                                        : hn::IfThenElse(hn::FirstN(D(), SPARE / 2), lookUp(vBefore, m_vJoinBefore),
                                                         lookUp(hn::TableLookupBytesOr0(vLast, m_vClose), m_vJoinLast));
        hn::StoreU(hn::BitCast(D8(), vEnd), D8(), pImage + VECTORS * STEP - sizeof(V));
    }
};

#endif

}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#endif  // XAPEL2_CORRECTION_SAMPLES_INL
