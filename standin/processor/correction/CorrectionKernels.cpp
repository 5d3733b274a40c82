// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loops that correct whole blocks of an image: for each kind of vectors that the processor has, and without vectors.
//
// The product p of signal and gain has 32 bits; the result is (p + 2^(n-1)) >> n. Where n is above 16 the low half of p
// only matters through its carry into the high half h, of which there is none: (h + 2^(n-17)) >> (n-16) is the same.
// Where n is 16 the low half's top bit is added. Saturating steps do no harm, as all that they cut is above full scale.

#include "standin/processor/correction/CorrectionKernels.h"

#include <algorithm>
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

template <std::size_t BYTES>
HWY_INLINE void askFor(const uint8_t* pMemory) {
#pragma GCC unroll 4
    for (std::size_t i = 0; i < BYTES; i += 64) {
        __builtin_prefetch(pMemory + i);
    }
}

/// 8-bit samples: the bytes at even and odd places are two vectors of words, each sample in the high byte of its word.
/// AHEAD: asks for memory ahead of the arithmetic. LIFT: the layout has one, and a bit less for the fractions.
template <class D8, bool BYTE_FIELDS, bool AHEAD, bool LIFT>
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
    const auto vLift = splat(d16, rLayout.uLift);
    constexpr std::size_t nGains = BYTE_FIELDS ? BLOCK : BLOCK * 2;
    constexpr std::size_t nBytes = nGains + BLOCK * 2;
    const std::size_t nAhead = rChunks.ahead();
    while (rChunks.next()) {
        const uint8_t* pTable = rChunks.table();
        uint8_t* pImage = rChunks.image();
        const uint8_t* const pEnd = pImage + rChunks.blocks() * BLOCK;
        for (; pImage != pEnd; pTable += nBytes, pImage += BLOCK) {
            if (AHEAD) {
                askFor<BLOCK>(pImage + nAhead * BLOCK);
                askFor<nBytes>(pTable + nAhead * nBytes);
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
                auto vEvenIn = hn::ShiftLeft<8>(vIn);
                auto vOddIn = hn::And(vIn, vHighByte);
                if (LIFT) {
                    vEvenIn = hn::Add(hn::ShiftRight<1>(vEvenIn), vLift);
                    vOddIn = hn::Add(hn::ShiftRight<1>(vOddIn), vLift);
                }
                const auto vEven = hn::SaturatedSub(vEvenIn, vEvenDark);
                const auto vOdd = hn::SaturatedSub(vOddIn, vOddDark);
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

/// What the gains have above their 16-bit words.
enum eWhole { eWholeNone, eWholeBit, eWholeBits };

/// Samples of 10 to 16 bits. AHEAD, LIFT: as of correct8, LIFT without WHOLE. ROUND_LOW: the product is shifted by 16
/// bits, else by more.
template <class D, bool AHEAD, template <class> class IO, bool BYTE_FIELDS, eWhole WHOLE, bool ROUND_LOW,
          bool LIFT = false>
struct Words16 {
    using V = Words<D>;
    static constexpr std::size_t VECTORS = BLOCK / hn::MaxLanes(D());

    IO<D> m_oImage;
    V m_vBase, m_vLift, m_vDarkMask, m_vRound, m_vFull;
    int m_nDarkShift, m_nDarkBits, m_nDown;

    explicit Words16(const TableLayout& rLayout)
        : m_oImage(rLayout),
          m_vBase(splat(D(), rLayout.uDarkBase)),
          m_vLift(splat(D(), rLayout.uLift)),
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
        auto vScaled = vIn;
        if (LIFT) {
            vScaled = hn::Add(m_oImage.scaledForLift(vIn), m_vLift);
        } else if (!ALL_BITS) {
            vScaled = m_oImage.scaled(vIn);
        }
        const auto vSignal = hn::SaturatedSub(vScaled, dark(vField));
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
        constexpr std::size_t nBytes = BLOCK * (BYTE_FIELDS ? 3 : 4);
        constexpr std::size_t nImageBytes = IO<D>::BLOCK_BYTES;
        const std::size_t nAhead = rChunks.ahead();
        const uint8_t* pTable = rChunks.table();
        uint8_t* pImage = rChunks.image();
        const uint8_t* const pEnd = pImage + rChunks.blocks() * nImageBytes;
        for (; pImage != pEnd; pTable += nBytes, pImage += nImageBytes) {
            if (AHEAD) {
                askFor<nImageBytes>(pImage + nAhead * nImageBytes);
                askFor<nBytes>(pTable + nAhead * nBytes);
            }
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

void correctWideAny(CChunks& rChunks) {
    if (rChunks.pedestal() != 0) {
        correctWide<true>(rChunks);
    } else {
        correctWide<false>(rChunks);
    }
}

template <class D, bool AHEAD, template <class> class IO, bool BYTE_FIELDS>
Kernel kernelOfFields(const TableLayout& rLayout) {
    const bool bRoundLow = rLayout.productBits() == 16;
    if (rLayout.uLift != 0) {
        return bRoundLow ? Words16<D, AHEAD, IO, BYTE_FIELDS, eWholeNone, true, true>::run
                         : Words16<D, AHEAD, IO, BYTE_FIELDS, eWholeNone, false, true>::run;
    }
    return bRoundLow ? Words16<D, AHEAD, IO, BYTE_FIELDS, eWholeNone, true>::run
                     : Words16<D, AHEAD, IO, BYTE_FIELDS, eWholeNone, false>::run;
}

template <class D, bool AHEAD, template <class> class IO>
Kernel kernelWithoutWhole(const TableLayout& rLayout) {
    return rLayout.nFieldBytes == 1 ? kernelOfFields<D, AHEAD, IO, true>(rLayout)
                                    : kernelOfFields<D, AHEAD, IO, false>(rLayout);
}

template <class D8, bool AHEAD, bool LIFT>
Kernel kernel8(const TableLayout& rLayout) {
    return rLayout.nFieldBytes == 1 ? correct8<D8, true, AHEAD, LIFT> : correct8<D8, false, AHEAD, LIFT>;
}

/// D has 16-bit lanes, in whole blocks of 128 bits.
template <class D, bool AHEAD>
Kernel packedKernel(const TableLayout& rLayout) {
    if (rLayout.pFormat->bSplit) {
        return rLayout.pFormat->nBits == 10 ? kernelWithoutWhole<D, AHEAD, Split10>(rLayout)
                                            : kernelWithoutWhole<D, AHEAD, Split12>(rLayout);
    }
    return kernelWithoutWhole<D, AHEAD, Dense12>(rLayout);
}

template <class D, bool AHEAD>
Kernel unpackedKernel(const TableLayout& rLayout) {
    const bool bByteFields = rLayout.nFieldBytes == 1;
    if (rLayout.pFormat->nWireBits == 8) {
        using D8 = hn::Repartition<uint8_t, D>;
        return rLayout.uLift != 0 ? kernel8<D8, AHEAD, true>(rLayout) : kernel8<D8, AHEAD, false>(rLayout);
    }
    if (rLayout.wholeBits() == 0) {
        return kernelWithoutWhole<D, AHEAD, Unpacked>(rLayout);
    }
    if (rLayout.wholeBits() == 1) {
        return bByteFields ? Words16<D, AHEAD, Unpacked, true, eWholeBit, true>::run
                           : Words16<D, AHEAD, Unpacked, false, eWholeBit, true>::run;
    }
    return bByteFields ? Words16<D, AHEAD, Unpacked, true, eWholeBits, true>::run
                       : Words16<D, AHEAD, Unpacked, false, eWholeBits, true>::run;
}

template <bool AHEAD>
KernelVariant variant(const TableLayout& rLayout, KernelWay way) {
    using D = hn::ScalableTag<uint16_t>;
    using D32 = hn::CappedTag<uint16_t, 16>;
    using D16 = hn::Full128<uint16_t>;
    constexpr std::size_t ALL = hn::MaxLanes(D()) * 2;
    const bool bWide = way.nStepBytes >= ALL;
    const bool bPacked = rLayout.pFormat->isPacked();
    if (bPacked && rLayout.pFormat->nWireBits == 10) {
        way.nStepBytes = 16;
        return {way, kernelWithoutWhole<D16, AHEAD, Dense10>(rLayout)};
    }
    if constexpr (ALL <= 32) {
        if (bPacked && way.nStepBytes < 32) {
            way.nStepBytes = 16;
            return {way, packedKernel<D16, AHEAD>(rLayout)};
        }
    }
    way.nStepBytes = bWide ? ALL : hn::MaxLanes(D32()) * 2;
    if (bPacked) {
        return {way, bWide ? packedKernel<D, AHEAD>(rLayout) : packedKernel<D32, AHEAD>(rLayout)};
    }
    return {way, bWide ? unpackedKernel<D, AHEAD>(rLayout) : unpackedKernel<D32, AHEAD>(rLayout)};
}

KernelVariant findKernel(const TableLayout& rLayout, const KernelWay& rWay) {
    if (rLayout.isWide()) {
        return {{hn::MaxLanes(hn::ScalableTag<uint8_t>()), eAheadNone}, correctWideAny};
    }
    return rWay.eDistance == eAheadNone ? variant<false>(rLayout, rWay) : variant<true>(rLayout, rWay);
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
                    correctSample(aSamples[i], entry.iOffset, entry.uGain, rLayout.point, uFull, rChunks.pedestal());
            }
            packSamples(*rLayout.pFormat, aSamples.data(), iBlock * BLOCK, BLOCK, rChunks.image());
        }
    }
}

KernelVariant scalarKernel(const TableLayout&, const KernelWay&) {
    return {{}, correctScalar};
}

}  // namespace

std::size_t KernelWay::blocksAhead(const TableLayout& rLayout) const {
    // Of image and table together. A fetch from memory takes about as long as a few KiB take to come on any machine.
    constexpr std::size_t NEAR = 4096;
    constexpr std::size_t FAR = 16384;
    const std::size_t nBytes = eDistance == eAheadNone ? 0 : eDistance == eAheadNear ? NEAR : FAR;
    return nBytes / (rLayout.blockBytes() + rLayout.imageBlockBytes());
}

std::vector<KernelVariant> KernelTarget::variants(const TableLayout& rLayout) const {
    std::vector<KernelVariant> vecVariants;
    for (const eAhead eDistance : {eAheadNone, eAheadNear, eAheadFar}) {
        for (const std::size_t nStepBytes : {64U, 32U, 16U}) {
            const KernelVariant variant = fnVariant(rLayout, {nStepBytes, eDistance});
            const bool bKnown = std::any_of(vecVariants.begin(), vecVariants.end(), [&](const KernelVariant& rOther) {
                return rOther.fnKernel == variant.fnKernel && rOther.way.eDistance == variant.way.eDistance;
            });
            if (!bKnown) {
                vecVariants.push_back(variant);
            }
        }
    }
    return vecVariants;
}

std::string KernelTarget::name(const KernelWay& rWay) const {
    if (rWay.nStepBytes == 0) {
        return pName;
    }
    static constexpr std::array<const char*, 3> AHEAD = {"", " near", " far"};
    return std::string(pName) + " " + std::to_string(rWay.nStepBytes) + " B" + AHEAD[rWay.eDistance];
}

const std::vector<KernelTarget>& kernelTargets() {
    static const std::vector<KernelTarget> s_vecTargets = [] {
        const int64_t uTargets = hwy::SupportedTargets() | HWY_STATIC_TARGET;
        std::vector<KernelTarget> vecTargets;
        const auto add = [&](int64_t uTarget, KernelVariant (*fnVariant)(const TableLayout&, const KernelWay&)) {
            if ((uTargets & uTarget) != 0) {
                vecTargets.push_back({hwy::TargetName(uTarget), fnVariant});
            }
        };
// Not asked for, but what a build for such a processor alone has.
#if HWY_TARGETS & HWY_AVX3_DL
        add(HWY_AVX3_DL, N_AVX3_DL::findKernel);
#endif
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
