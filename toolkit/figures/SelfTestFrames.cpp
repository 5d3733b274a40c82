// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references for a report.

#include "toolkit/figures/SelfTestFrames.h"

#include <cmath>

#include "toolkit/judgement/SelfTest.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

MeanImage meanOfOne(const Frame& rFrame) {
    CFrameStack Stack({rFrame.pFormat, rFrame.nWidth, rFrame.nHeight});
    Stack.add(rFrame);
    return Stack.mean();
}

}  // namespace

SceneFrames selfTestFrames(const PairOptions& rPair, const StandIn::ReferenceImage& rLight) {
    const StandIn::ImageLayout& rLayout = rLight.sLayout;
    Frame Raw{"Light reference", rLayout.pFormat, rLayout.nWidth, rLayout.nHeight, {}};
    for (const float fSample : rLight.vSamples) {
        Raw.aSamples.push_back(static_cast<uint16_t>(std::lround(fSample)));
    }
    // The library wants a camera of this format and size to stand on; no frame is taken from it.
    CSession Session("sim:1?width=" + std::to_string(rLayout.nWidth) + "&height=" + std::to_string(rLayout.nHeight) +
                     "&format=" + rLayout.pFormat->pName);
    applyPair(Session, rPair);
    std::vector<unsigned char> vecImage(rLayout.bytes());
    StandIn::packSamples(*rLayout.pFormat, Raw.aSamples.data(), 0, Raw.aSamples.size(), vecImage.data());
    Session.shading().ReferenceAdd(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight, vecImage.data(),
                                   vecImage.size());
    Frame Corrected = Raw;
    StandIn::unpackSamples(*rLayout.pFormat, vecImage.data(), 0, Corrected.aSamples.size(), Corrected.aSamples.data());
    return {meanOfOne(Raw), meanOfOne(Corrected), FramePair{std::move(Raw), std::move(Corrected)}};
}

JudgedPair judgeWithSelfTest(const PairOptions& rPair) {
    JudgedPair Result = judge(rPair);
    if (Result.Dark && Result.Light && Result.Dark->sLayout.hasSamplesLike(Result.Light->sLayout)) {
        const double dSelfTest = selfTest(rPair.strDark, rPair.strLight, *Result.Dark, *Result.Light);
        Result.Pair = judgePair(*Result.Dark, *Result.Light, dSelfTest);
    }
    return Result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
