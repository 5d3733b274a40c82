// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The arithmetic that makes tables from references, a block at a time. The same results on every processor.
//
// Each step is a single rounded operation of IEEE arithmetic, so vectors of any width give the same: no fused
// multiply-add, no approximate division.

#include "standin/processor/correction/CorrectionEncode.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "standin/processor/correction/CorrectionEncode.cpp"
#include "hwy/foreach_target.h"  // before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace XAPEL2 {
namespace StandIn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

void formulaVectors(const double* pTargets, const float* pDark, const float* pLight, FormulaBlock& rBlock) {
    const hn::ScalableTag<double> d;
    const hn::Rebind<float, decltype(d)> df;
    const auto vZero = hn::Zero(d);
    const auto vOne = hn::Set(d, 1.0);
    const auto vLast = hn::Set(d, std::nextafter(GAIN_LIMIT, 0.0));
    for (std::size_t i = 0; i < BLOCK; i += hn::Lanes(d)) {
        const auto vDark = hn::PromoteTo(d, hn::LoadU(df, pDark + i));
        const auto vSignal = hn::Sub(hn::PromoteTo(d, hn::LoadU(df, pLight + i)), vDark);
        const auto bSignal = hn::Gt(vSignal, vZero);
        const auto vGain = hn::Div(hn::LoadU(d, pTargets + i), hn::IfThenElse(bSignal, vSignal, vOne));
        const auto vLimited = hn::Min(hn::Max(vGain, vZero), vLast);
        hn::StoreU(vDark, d, rBlock.aOffsets.data() + i);
        hn::StoreU(hn::IfThenElse(bSignal, vLimited, vOne), d, rBlock.aGains.data() + i);
    }
}

void encodeVectors(const EncodeRule& rRule, const FormulaBlock& rBlock, EncodedBlock& rCodes) {
    const hn::ScalableTag<double> d;
    const hn::Rebind<int32_t, decltype(d)> di;
    const auto vHalf = hn::Set(d, 0.5);
    const auto vOne = hn::Set(d, 1.0);
    const auto vPerUnit = hn::Set(d, rRule.dPerUnit);
    const auto vToUnits = hn::Set(d, 1.0 / rRule.dPerUnit);
    const auto vPerGain = hn::Set(d, rRule.dPerGain);
    const auto vToGain = hn::Set(d, 1.0 / rRule.dPerGain);
    const auto vBase = hn::Set(d, rRule.dBase);
    const auto vDarkLast = hn::Set(d, rRule.dDarkLast);
    const auto vGainLast = hn::Set(d, rRule.dGainLast);
    rCodes.uMisfits = 0;
    for (std::size_t i = 0; i < BLOCK; i += hn::Lanes(d)) {
        const auto vOffset = hn::LoadU(d, rBlock.aOffsets.data() + i);
        const auto vGain = hn::LoadU(d, rBlock.aGains.data() + i);
        const auto vUnits = hn::Add(hn::Mul(hn::Sub(vOffset, vBase), vToUnits), vHalf);
        const auto vDarkCode = hn::DemoteTo(di, hn::Min(hn::Max(vUnits, hn::Zero(d)), vDarkLast));
        const auto vGainCode = hn::DemoteTo(di, hn::Min(hn::Add(hn::Mul(vGain, vToGain), vHalf), vGainLast));
        const auto vTableOffset = hn::Add(hn::Mul(hn::PromoteTo(d, vDarkCode), vPerUnit), vBase);
        const auto vTableGain = hn::Mul(hn::PromoteTo(d, vGainCode), vPerGain);
        // Both sides of the bound are multiplied by max(1, min(G, G')).
        const auto vBound = hn::Add(hn::Set(d, rRule.dBound), hn::Mul(hn::Set(d, rRule.dBoundPerGain), vGain));
        const auto vOffsetPart = hn::Mul(hn::Max(vGain, vTableGain), hn::Abs(hn::Sub(vTableOffset, vOffset)));
        const auto vRest = hn::Mul(hn::Sub(vBound, vOffsetPart), hn::Max(vOne, hn::Min(vGain, vTableGain)));
        const auto vGainPart = hn::Mul(hn::Set(d, rRule.dFull), hn::Abs(hn::Sub(vTableGain, vGain)));
        hn::StoreU(vDarkCode, di, reinterpret_cast<int32_t*>(rCodes.aDarks.data()) + i);
        hn::StoreU(vGainCode, di, reinterpret_cast<int32_t*>(rCodes.aGains.data()) + i);
        alignas(8) uint8_t aBits[8] = {};
        // Where a pedestal has no finite offset, the rest is no number: a misfit too.
        hn::StoreMaskBits(d, hn::Not(hn::Le(vGainPart, vRest)), aBits);
        rCodes.uMisfits |= uint64_t{aBits[0]} << i;
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace StandIn
}  // namespace XAPEL2
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace XAPEL2 {
namespace StandIn {

HWY_EXPORT(formulaVectors);
HWY_EXPORT(encodeVectors);

void formulaBlock(const double* pTargets, const float* pDark, const float* pLight, FormulaBlock& rBlock) {
    HWY_DYNAMIC_DISPATCH(formulaVectors)(pTargets, pDark, pLight, rBlock);
}

void encodeBlock(const EncodeRule& rRule, const FormulaBlock& rBlock, EncodedBlock& rCodes) {
    HWY_DYNAMIC_DISPATCH(encodeVectors)(rRule, rBlock, rCodes);
}

}  // namespace StandIn
}  // namespace XAPEL2
#endif
