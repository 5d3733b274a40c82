// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references for a report.

#include "toolkit/figures/SelfTestFrames.h"

#include <cmath>

#include "toolkit/judgement/SelfTest.h"
#include "toolkit/sessions/FrameCorrector.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

MeanImage meanOfOne(const Frame& rFrame) {
    CFrameStack stack({rFrame.pFormat, rFrame.nWidth, rFrame.nHeight});
    stack.add(rFrame);
    return stack.mean();
}

}  // namespace

SceneFrames selfTestFrames(const PairOptions& rPair, const StandIn::ReferenceImage& rLight) {
    const StandIn::ImageLayout& rLayout = rLight.layout;
    Frame raw{"Light reference", rLayout.pFormat, rLayout.nWidth, rLayout.nHeight, {}};
    for (const float fSample : rLight.vecSamples) {
        raw.vecSamples.push_back(static_cast<uint16_t>(std::lround(fSample)));
    }
    std::vector<unsigned char> vecImage(rLayout.bytes());
    StandIn::packSamples(*rLayout.pFormat, raw.vecSamples.data(), 0, raw.vecSamples.size(), vecImage.data());
    CFrameCorrector(rPair, rLayout).correct(vecImage.data());
    Frame corrected = raw;
    StandIn::unpackSamples(*rLayout.pFormat, vecImage.data(), 0, corrected.vecSamples.size(),
                           corrected.vecSamples.data());
    return {meanOfOne(raw), meanOfOne(corrected), FramePair{std::move(raw), std::move(corrected)}};
}

JudgedPair judgeWithSelfTest(const PairOptions& rPair) {
    JudgedPair result = judge(rPair);
    if (result.dark && result.light && isPair(*result.dark, *result.light)) {
        const double dSelfTest = selfTest(rPair.strDark, rPair.strLight, *result.dark, *result.light);
        result.pair = judgePair(*result.dark, *result.light, dSelfTest);
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
