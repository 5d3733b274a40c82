// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references: applied to its own mean it must come out flat.

#include "toolkit/judgement/SelfTest.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "toolkit/frames/Frame.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

/// A camera of the references' format and size that never takes a frame: the library wants one to stand on.
class CStandingCamera {
public:
    explicit CStandingCamera(const StandIn::ImageLayout& rLayout)
        : m_pDevice(StandIn::openDevice("sim:1?width=" + std::to_string(rLayout.nWidth) + "&height=" +
                                        std::to_string(rLayout.nHeight) + "&format=" + rLayout.pFormat->pName)) {}
    ~CStandingCamera() { StandIn::closeDevice(m_pDevice); }
    CStandingCamera(const CStandingCamera&) = delete;
    CStandingCamera& operator=(const CStandingCamera&) = delete;
    Device* device() const { return m_pDevice; }

private:
    Device* m_pDevice;
};

std::vector<uint16_t> corrected(Ext::Sc::Shading& rShading, const StandIn::ReferenceImage& rLight, bool bUp) {
    const StandIn::ImageLayout& rLayout = rLight.layout;
    std::vector<uint16_t> vecSamples(rLayout.samples());
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        vecSamples[i] = static_cast<uint16_t>(bUp ? std::ceil(rLight.vecSamples[i]) : std::floor(rLight.vecSamples[i]));
    }
    std::vector<unsigned char> vecImage(rLayout.bytes());
    StandIn::packSamples(*rLayout.pFormat, vecSamples.data(), 0, vecSamples.size(), vecImage.data());
    rShading.ReferenceAdd(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight, vecImage.data(), vecImage.size());
    StandIn::unpackSamples(*rLayout.pFormat, vecImage.data(), 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

}  // namespace

double selfTest(const std::string& strDark, const std::string& strLight, const StandIn::ReferenceImage& rDark,
                const StandIn::ReferenceImage& rLight) {
    const CStandingCamera camera(rLight.layout);
    Ext::Sc::Shading shading(camera.device());
    shading.ReferenceLoad(false, strDark.c_str());
    shading.ReferenceLoad(true, strLight.c_str());
    shading.ReferenceApply();
    const std::vector<uint16_t> vecLow = corrected(shading, rLight, false);
    const std::vector<uint16_t> vecHigh = corrected(shading, rLight, true);

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
