// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references: applied to its own mean it must come out flat.

#include "toolkit/judgement/SelfTest.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "toolkit/frames/Frame.h"
#include "toolkit/sessions/FrameCorrector.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

std::vector<uint16_t> corrected(CFrameCorrector& rCorrector, const StandIn::ReferenceImage& rLight, bool bUp) {
    const StandIn::ImageLayout& rLayout = rLight.layout;
    std::vector<uint16_t> vecSamples(rLayout.samples());
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        vecSamples[i] = static_cast<uint16_t>(bUp ? std::ceil(rLight.vecSamples[i]) : std::floor(rLight.vecSamples[i]));
    }
    std::vector<unsigned char> vecImage(rLayout.bytes());
    StandIn::packSamples(*rLayout.pFormat, vecSamples.data(), 0, vecSamples.size(), vecImage.data());
    rCorrector.correct(vecImage.data());
    StandIn::unpackSamples(*rLayout.pFormat, vecImage.data(), 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

}  // namespace

double selfTest(const std::string& strDark, const std::string& strLight, const StandIn::ReferenceImage& rDark,
                const StandIn::ReferenceImage& rLight) {
    PairOptions pair;
    pair.strDark = strDark;
    pair.strLight = strLight;
    CFrameCorrector corrector(pair, rLight.layout);
    const std::vector<uint16_t> vecLow = corrected(corrector, rLight, false);
    const std::vector<uint16_t> vecHigh = corrected(corrector, rLight, true);

    const StandIn::PixelFormat& rFormat = *rLight.layout.pFormat;
    const double dFullScale = rFormat.fullScale();
    std::vector<double> vecValues;
    for (std::size_t i = 0; i < vecLow.size(); ++i) {
        const double dPart =
            static_cast<double>(rLight.vecSamples[i]) - std::floor(static_cast<double>(rLight.vecSamples[i]));
        vecValues.push_back((1.0 - dPart) * vecLow[i] + dPart * vecHigh[i]);
    }
    const std::vector<double> vecTarget = StandIn::pairTargets(rDark, rLight);
    double dWorst = 0.0;
    for (std::size_t i = 0; i < vecLow.size(); ++i) {
        const auto dLight = static_cast<double>(rLight.vecSamples[i]);
        const double dSignal = dLight - static_cast<double>(rDark.vecSamples[i]);
        const double dTarget = vecTarget[colourClass(rFormat, rLight.layout.nWidth, i)];
        const bool bDefect = !rLight.vecDefects.empty() && rLight.vecDefects[i / rFormat.nChannels] != 0;
        if (bDefect || dSignal <= 0.0 || dTarget >= StandIn::GAIN_LIMIT * dSignal || std::ceil(dLight) >= dFullScale) {
            continue;
        }
        const double dWanted = std::min(dTarget + rLight.output.dPedestal, dFullScale);
        dWorst = std::max(dWorst, std::abs(vecValues[i] - dWanted));
    }
    return dWorst;
}

}  // namespace Toolkit
}  // namespace XAPEL2
