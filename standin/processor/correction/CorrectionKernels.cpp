// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that correct whole blocks of an image: for each kind of vectors that the processor has, and without vectors.
//
// The product p of signal and gain has 32 bits; the result is (p + 2^(n-1)) >> n. Where n is above 16 the low half of p
// only matters through its carry into the high half h, of which there is none: (h + 2^(n-17)) >> (n-16) is the same.
// Where n is 16 the low half's top bit is added. Saturating steps do no harm, as all that they cut is above full scale.

#include "standin/processor/correction/CorrectionKernels.h"

#include <array>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/correction/CorrectionKernels.cpp"
#include "hwy/foreach_target.h"  // before highway.h
#include "hwy/highway.h"
// For each target once more.
#include "standin/processor/correction/CorrectionSamples-inl.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {

// The targets that stand for "no vectors" lack operations; the definition takes their place.
#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128

/// 8-bit samples: the bytes at even and odd places are two vectors of words, each sample in the high byte of its word.
/// AHEAD: how many blocks ahead of the arithmetic memory is asked for, 0 where the processor does so well by itself;
/// past the ends of image and table, too, where that asks for nothing.
template <class D8, bool BYTE_FIELDS, std::size_t AHEAD>
void correct8(CChunks& rChunks) {
    const TableLayout& rLayout = rChunks.layout();
    const D8 d8;
    const hn::Repartition<uint16_t, D8> d16;
    constexpr std::size_t BYTES = hn::MaxLanes(d8);
    const int nFraction = 8 - static_cast<int>(rLayout.nDarkShift);
    const int nDown = static_cast<int>(rLayout.productBits()) - 16;
    // Half a unit, and so much that a sum above full scale saturates and has only ones. Where it does not, this leaves
    // the eight bits of the result as they are.
    const auto vRaise = splat(d16, 0x10000U - (0x100U << nDown) + (1U << nDown >> 1));
    const auto vHighByte = splat(d16, 0xFF00);
    constexpr std::size_t nGains = BYTE_FIELDS ? BLOCK : BLOCK * 2;
    constexpr std::size_t nBytes = nGains + BLOCK * 2;
    while (rChunks.next()) {
        const uint8_t* pTable = rChunks.table();
        uint8_t* pImage = rChunks.image();
        const uint8_t* const pEnd = pImage + rChunks.blocks() * BLOCK;
        for (; pImage != pEnd; pTable += nBytes, pImage += BLOCK) {
            if (AHEAD != 0) {
                __builtin_prefetch(pImage + AHEAD * BLOCK);
#pragma GCC unroll 4
                for (std::size_t i = 0; i < nBytes; i += BLOCK) {
                    __builtin_prefetch(pTable + AHEAD * nBytes + i);
                }
            }
#pragma GCC unroll 4
            for (std::size_t i = 0; i < BLOCK; i += BYTES) {
                const auto vIn = loadWords(d16, pImage + i);
                const auto vField = loadWords(d16, pTable + i);
                auto vEvenDark = vField;
                auto vOddDark = vField;
                if (BYTE_FIELDS) {
                    vEvenDark = hn::ShiftRightSame(hn::ShiftLeft<8>(vField), nFraction);
                    vOddDark = hn::ShiftRightSame(hn::And(vField, vHighByte), nFraction);
                } else {
                    vOddDark = loadWords(d16, pTable + BLOCK + i);
                }
                const auto vEven = hn::SaturatedSub(hn::ShiftLeft<8>(vIn), vEvenDark);
                const auto vOdd = hn::SaturatedSub(hn::And(vIn, vHighByte), vOddDark);
                const auto vEvenHigh = hn::MulHigh(vEven, loadWords(d16, pTable + nGains + i));
                const auto vOddHigh = hn::MulHigh(vOdd, loadWords(d16, pTable + nGains + BLOCK + i));
                const auto vEvenOut = hn::ShiftRightSame(hn::SaturatedAdd(vEvenHigh, vRaise), nDown);
                const auto vOddOut = hn::ShiftLeftSame(hn::SaturatedAdd(vOddHigh, vRaise), 8 - nDown);
                const auto vOut = hn::BitCast(d8, hn::IfVecThenElse(vHighByte, vOddOut, vEvenOut));
                const auto vInBytes = hn::BitCast(d8, vIn);
                const auto bSaturated = hn::Eq(vInBytes, hn::BitCast(d8, splat(d16, 0xFFFF)));
                hn::StoreU(hn::IfThenElse(bSaturated, vInBytes, vOut), d8, pImage + i);
            }
        }
    }
}

/// Images with fewer samples of 8 bits, and those with more, are corrected fastest in another way than those between,
/// by measurement: roughly where image and table, 4 or 5 bytes a sample, leave a core's cache, and where they leave
/// all.
constexpr std::size_t CORE_SAMPLES = std::size_t{1} << 20;
constexpr std::size_t MEMORY_SAMPLES = std::size_t{1} << 23;

/// Each is the fastest that was found for its place; bench/CorrectionBench.cpp shows them beside the limit.
template <bool BYTE_FIELDS>
Kernel findKernel8(std::size_t nSamples) {
    using D8 = hn::ScalableTag<uint8_t>;
    if (nSamples < CORE_SAMPLES) {
        return correct8<D8, BYTE_FIELDS, 0>;
    }
    if (nSamples < MEMORY_SAMPLES) {
        return correct8<hn::CappedTag<uint8_t, 32>, BYTE_FIELDS, 0>;
    }
    return correct8<D8, BYTE_FIELDS, 36>;
}

/// What the gains have above their 16-bit words.
enum eWhole { eWholeNone, eWholeBit, eWholeBits };

/// Samples of 10 to 16 bits. ROUND_LOW: the product is shifted by 16 bits, else by more.
template <class D, template <class> class IO, bool BYTE_FIELDS, eWhole WHOLE, bool ROUND_LOW>
struct Words16 {
    using V = Words<D>;
    static constexpr std::size_t VECTORS = BLOCK / hn::MaxLanes(D());

    IO<D> m_oImage;
    V m_vBase, m_vDarkMask, m_vRound, m_vFull;
    int m_nDarkShift, m_nDarkBits, m_nDown;

    explicit Words16(const TableLayout& rLayout)
        : m_oImage(rLayout),
          m_vBase(splat(D(), rLayout.uDarkBase)),
          m_vDarkMask(splat(D(), (1U << rLayout.nDarkBits) - 1)),
          m_vRound(splat(D(), 1U << (rLayout.productBits() - 16) >> 1)),
          m_vFull(splat(D(), rLayout.pFormat->fullScale())),
          m_nDarkShift(static_cast<int>(rLayout.nDarkShift)),
          m_nDarkBits(static_cast<int>(rLayout.nDarkBits)),
          m_nDown(static_cast<int>(rLayout.productBits()) - 16) {}

    HWY_INLINE V dark(V vField) const {
        if (!BYTE_FIELDS && WHOLE == eWholeNone) {
            return vField;
        }
        const auto vDark = WHOLE == eWholeNone ? vField : hn::And(vField, m_vDarkMask);
        return hn::Add(m_vBase, BYTE_FIELDS ? hn::ShiftLeftSame(vDark, m_nDarkShift) : vDark);
    }
    // vHigh plus the signal times the whole part of the gain.
    HWY_INLINE V addWhole(V vHigh, V vSignal, V vField) const {
        if (WHOLE == eWholeBit) {
            const hn::Repartition<int16_t, D> di16;
            const auto vTop = BYTE_FIELDS ? hn::ShiftLeft<8>(vField) : vField;
            const auto vAll = hn::BitCast(D(), hn::ShiftRight<15>(hn::BitCast(di16, vTop)));
            return hn::SaturatedAdd(vHigh, hn::And(vSignal, vAll));
        }
        const auto vWhole = hn::ShiftRightSame(vField, m_nDarkBits);
        const auto vSum = hn::SaturatedAdd(vHigh, hn::Mul(vSignal, vWhole));
        const auto bFits = hn::Eq(hn::MulHigh(vSignal, vWhole), hn::Zero(D()));
        return hn::IfThenElse(bFits, vSum, splat(D(), 0xFFFF));
    }
    HWY_INLINE V correct(V vIn, V vField, V vGain) const {
        constexpr bool ALL_BITS = WHOLE != eWholeNone;  // then samples fill their words, and so does full scale
        const auto vSignal = hn::SaturatedSub(ALL_BITS ? vIn : m_oImage.scaled(vIn), dark(vField));
        auto vOut = hn::MulHigh(vSignal, vGain);
        if (ROUND_LOW) {
            vOut = hn::Add(vOut, hn::ShiftRight<15>(hn::Mul(vSignal, vGain)));
        }
        if (ALL_BITS) {
            return hn::IfThenElse(hn::Eq(vIn, m_vFull), m_vFull, addWhole(vOut, vSignal, vField));
        }
        if (!ROUND_LOW) {
            vOut = hn::ShiftRightSame(hn::SaturatedAdd(vOut, m_vRound), m_nDown);
        }
        return hn::IfThenElse(m_oImage.saturated(vIn), m_vFull, hn::Min(vOut, m_vFull));
    }

    static void run(CChunks& rChunks) {
        const Words16 oThis(rChunks.layout());
        while (rChunks.next()) {
            oThis.correctBlocks(rChunks);
        }
    }
    HWY_INLINE void correctBlocks(CChunks& rChunks) const {
        const std::size_t nBytes = rChunks.layout().blockBytes();
        const std::size_t nImageBytes = rChunks.layout().imageBlockBytes();
        const uint8_t* pTable = rChunks.table();
        uint8_t* pImage = rChunks.image();
        const uint8_t* const pEnd = pImage + rChunks.blocks() * nImageBytes;
        for (; pImage != pEnd; pTable += nBytes, pImage += nImageBytes) {
            V aSamples[VECTORS];
            m_oImage.load(pImage, aSamples);
            const uint8_t* pGains = pTable + (BYTE_FIELDS ? BLOCK : BLOCK * 2);
            if (BYTE_FIELDS) {
#pragma GCC unroll 8
                for (std::size_t i = 0; i < VECTORS / 2; ++i) {
                    const std::size_t iOther = i + VECTORS / 2;
                    const auto vFields = loadWords(D(), pTable + i * sizeof(V));
                    aSamples[i] = correct(aSamples[i], hn::And(vFields, splat(D(), 0xFF)),
                                          loadWords(D(), pGains + i * sizeof(V)));
                    aSamples[iOther] = correct(aSamples[iOther], hn::ShiftRight<8>(vFields),
                                               loadWords(D(), pGains + iOther * sizeof(V)));
                }
            } else {
#pragma GCC unroll 8
                for (std::size_t i = 0; i < VECTORS; ++i) {
                    aSamples[i] = correct(aSamples[i], loadWords(D(), pTable + i * sizeof(V)),
                                          loadWords(D(), pGains + i * sizeof(V)));
                }
            }
            m_oImage.store(aSamples, pImage);
        }
    }
};

/// A product of the signal less one of the offset, both with 64 bits, shifted down; 0 where it is negative.
template <int BITS, class V64>
HWY_INLINE V64 difference(V64 vSignal, V64 vOffset) {
    const hn::RebindToSigned<hn::DFromV<V64>> di64;
    const auto vLeft = hn::BitCast(di64, hn::Sub(vSignal, vOffset));
    const auto vKept = hn::AndNot(hn::BroadcastSignBit(vLeft), vLeft);
    return hn::ShiftRight<BITS>(hn::BitCast(hn::DFromV<V64>(), vKept));
}

/// Wide tables, in any format.
template <bool PEDESTAL>
void correctWide(CChunks& rChunks) {
    const TableLayout& rLayout = rChunks.layout();
    const hn::ScalableTag<uint32_t> d32;
    const hn::Repartition<uint64_t, decltype(d32)> d64;
    const hn::Repartition<int32_t, decltype(d32)> di32;
    const hn::Rebind<uint16_t, decltype(d32)> d16;
    constexpr int BITS = WIDE_POINT.nOffsetBits + WIDE_POINT.nGainBits;
    const auto vHalf = hn::Set(d64, rChunks.pedestal() + (1ULL << (BITS - 1)));
    const auto vFull = hn::Set(d32, rLayout.pFormat->fullScale());
    alignas(64) uint16_t aSamples[BLOCK];
    while (rChunks.next()) {
        uint8_t* pImage = rChunks.image();
        for (std::size_t iBlock = 0; iBlock < rChunks.blocks(); ++iBlock, pImage += rLayout.imageBlockBytes()) {
            const auto* pOffsets = reinterpret_cast<const uint32_t*>(rChunks.table() + iBlock * rLayout.blockBytes());
            unpackSamples(*rLayout.pFormat, pImage, 0, BLOCK, aSamples);
            for (std::size_t i = 0; i < BLOCK; i += hn::Lanes(d32)) {
                const auto vIn = hn::PromoteTo(d32, hn::Load(d16, aSamples + i));
                const auto vOffset = hn::Load(d32, pOffsets + i);
                const auto vGain = hn::Load(d32, pOffsets + BLOCK + i);
                const auto vScaled = hn::ShiftLeft<WIDE_POINT.nOffsetBits>(vIn);
                // With a pedestal the signal may be negative, and its product is taken as a difference.
                const auto vSignal = PEDESTAL ? vScaled : hn::Sub(hn::Max(vScaled, vOffset), vOffset);
                const auto vOddSignal = hn::BitCast(d32, hn::ShiftRight<32>(hn::BitCast(d64, vSignal)));
                const auto vOddGain = hn::BitCast(d32, hn::ShiftRight<32>(hn::BitCast(d64, vGain)));
                const auto vEvenSum = hn::Add(hn::MulEven(vSignal, vGain), vHalf);
                const auto vOddSum = hn::Add(hn::MulEven(vOddSignal, vOddGain), vHalf);
                auto vEven = hn::ShiftRight<BITS>(vEvenSum);
                auto vOdd = hn::ShiftRight<BITS>(vOddSum);
                if (PEDESTAL) {
                    const auto vOddOffset = hn::BitCast(d32, hn::ShiftRight<32>(hn::BitCast(d64, vOffset)));
                    vEven = difference<BITS>(vEvenSum, hn::MulEven(vOffset, vGain));
                    vOdd = difference<BITS>(vOddSum, hn::MulEven(vOddOffset, vOddGain));
                }
                const auto vOut = hn::Min(hn::BitCast(d32, hn::Or(vEven, hn::ShiftLeft<32>(vOdd))), vFull);
                const auto vKept = hn::IfThenElse(hn::Eq(hn::Max(vIn, vFull), vIn), vFull, vOut);
                hn::Store(hn::DemoteTo(d16, hn::BitCast(di32, vKept)), d16, aSamples + i);
            }
            packSamples(*rLayout.pFormat, aSamples, 0, BLOCK, pImage);
        }
    }
}

template <class D>
using Dense10 = Packed<D, 10, false>;
template <class D>
using Dense12 = Packed<D, 12, false>;
template <class D>
using Split10 = Packed<D, 10, true>;
template <class D>
using Split12 = Packed<D, 12, true>;

template <class D, template <class> class IO>
Kernel kernelWithoutWhole(const TableLayout& rLayout) {
    const bool bRoundLow = rLayout.productBits() == 16;
    if (rLayout.nFieldBytes == 1) {
        return bRoundLow ? Words16<D, IO, true, eWholeNone, true>::run : Words16<D, IO, true, eWholeNone, false>::run;
    }
    return bRoundLow ? Words16<D, IO, false, eWholeNone, true>::run : Words16<D, IO, false, eWholeNone, false>::run;
}

void correctWideAny(CChunks& rChunks) {
    if (rChunks.pedestal() != 0) {
        correctWide<true>(rChunks);
    } else {
        correctWide<false>(rChunks);
    }
}

Kernel findKernel(const TableLayout& rLayout, std::size_t nSamples) {
    using D = hn::ScalableTag<uint16_t>;
    if (rLayout.isWide()) {
        return correctWideAny;
    }
    const bool bByteFields = rLayout.nFieldBytes == 1;
    if (rLayout.pFormat->nWireBits == 8) {
        return bByteFields ? findKernel8<true>(nSamples) : findKernel8<false>(nSamples);
    }
    if (rLayout.pFormat->bSplit) {
        return rLayout.pFormat->nBits == 10 ? kernelWithoutWhole<D, Split10>(rLayout)
                                            : kernelWithoutWhole<D, Split12>(rLayout);
    }
    if (rLayout.pFormat->nWireBits == 10) {
        return kernelWithoutWhole<hn::Full128<uint16_t>, Dense10>(rLayout);
    }
    if (rLayout.pFormat->nWireBits == 12) {
        return kernelWithoutWhole<D, Dense12>(rLayout);
    }
    if (rLayout.wholeBits() == 0) {
        return kernelWithoutWhole<D, Unpacked>(rLayout);
    }
    if (rLayout.wholeBits() == 1) {
        return bByteFields ? Words16<D, Unpacked, true, eWholeBit, true>::run
                           : Words16<D, Unpacked, false, eWholeBit, true>::run;
    }
    return bByteFields ? Words16<D, Unpacked, true, eWholeBits, true>::run
                       : Words16<D, Unpacked, false, eWholeBits, true>::run;
}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

namespace {

void correctScalar(CChunks& rChunks) {
    const TableLayout& rLayout = rChunks.layout();
    const uint32_t uFull = rLayout.pFormat->fullScale();
    std::array<uint16_t, BLOCK> aSamples;
    while (rChunks.next()) {
        const uint8_t* pTable = rChunks.table();
        for (std::size_t iBlock = 0; iBlock < rChunks.blocks(); ++iBlock, pTable += rLayout.blockBytes()) {
            unpackSamples(*rLayout.pFormat, rChunks.image(), iBlock * BLOCK, BLOCK, aSamples.data());
            for (std::size_t i = 0; i < BLOCK; ++i) {
                const TableEntry entry = tableEntry(rLayout, pTable, i);
                aSamples[i] =
                    correctSample(aSamples[i], entry.uOffset, entry.uGain, rLayout.point, uFull, rChunks.pedestal());
            }
            packSamples(*rLayout.pFormat, aSamples.data(), iBlock * BLOCK, BLOCK, rChunks.image());
        }
    }
}

Kernel scalarKernel(const TableLayout&, std::size_t) {
    return correctScalar;
}

}  // namespace

const std::vector<KernelTarget>& kernelTargets() {
    static const std::vector<KernelTarget> s_vecTargets = [] {
        const int64_t uTargets = hwy::SupportedTargets() | HWY_STATIC_TARGET;
        std::vector<KernelTarget> vecTargets;
        const auto add = [&](int64_t uTarget, Kernel (*fnKernel)(const TableLayout&, std::size_t)) {
            if ((uTargets & uTarget) != 0) {
                vecTargets.push_back({hwy::TargetName(uTarget), fnKernel});
            }
        };
#if HWY_TARGETS & HWY_AVX3
        add(HWY_AVX3, N_AVX3::findKernel);
#endif
#if HWY_TARGETS & HWY_AVX2
        add(HWY_AVX2, N_AVX2::findKernel);
#endif
#if HWY_TARGETS & HWY_SSE4
        add(HWY_SSE4, N_SSE4::findKernel);
#endif
#if HWY_TARGETS & HWY_SSSE3
        add(HWY_SSSE3, N_SSSE3::findKernel);
#endif
#if HWY_TARGETS & HWY_NEON
        add(HWY_NEON, N_NEON::findKernel);
#endif
        vecTargets.push_back({"scalar", scalarKernel});
        return vecTargets;
    }();
    return s_vecTargets;
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
