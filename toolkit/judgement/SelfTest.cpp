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

constexpr double GAIN_MAX = 16.0;  // of the host's image processor

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
    const StandIn::ImageLayout& rLayout = rLight.sLayout;
    std::vector<uint16_t> vecSamples(rLayout.samples());
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        vecSamples[i] = static_cast<uint16_t>(bUp ? std::ceil(rLight.vSamples[i]) : std::floor(rLight.vSamples[i]));
    }
    std::vector<unsigned char> vecImage(rLayout.bytes());
    StandIn::packSamples(*rLayout.pFormat, vecSamples.data(), 0, vecSamples.size(), vecImage.data());
    rShading.ReferenceAdd(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight, vecImage.data(), vecImage.size());
    StandIn::unpackSamples(*rLayout.pFormat, vecImage.data(), 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

std::vector<double> signalMeans(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    const StandIn::PixelFormat& rFormat = *rLight.sLayout.pFormat;
    std::vector<double> vecSum(colourClasses(rFormat), 0.0), vecCount(vecSum.size(), 0.0);
    for (std::size_t i = 0; i < rLight.vSamples.size(); ++i) {
        const unsigned iClass = colourClass(rFormat, rLight.sLayout.nWidth, i);
        vecSum[iClass] += static_cast<double>(rLight.vSamples[i]) - static_cast<double>(rDark.vSamples[i]);
        vecCount[iClass] += 1.0;
    }
    for (std::size_t i = 0; i < vecSum.size(); ++i) {
        vecSum[i] /= std::max(1.0, vecCount[i]);
    }
    return vecSum;
}

}  // namespace

double selfTest(const std::string& strDark, const std::string& strLight, const StandIn::ReferenceImage& rDark,
                const StandIn::ReferenceImage& rLight) {
    const CStandingCamera Camera(rLight.sLayout);
    Ext::Sc::Shading Shading(Camera.device());
    Shading.ReferenceLoad(false, strDark.c_str());
    Shading.ReferenceLoad(true, strLight.c_str());
    Shading.ReferenceApply();
    const std::vector<uint16_t> vecLow = corrected(Shading, rLight, false);
    const std::vector<uint16_t> vecHigh = corrected(Shading, rLight, true);

    const StandIn::PixelFormat& rFormat = *rLight.sLayout.pFormat;
    const std::vector<double> vecTarget = signalMeans(rDark, rLight);
    const double dFullScale = rFormat.fullScale();
    double dWorst = 0.0;
    for (std::size_t i = 0; i < vecLow.size(); ++i) {
        const auto dLight = static_cast<double>(rLight.vSamples[i]);
        const double dSignal = dLight - static_cast<double>(rDark.vSamples[i]);
        const double dTarget = vecTarget[colourClass(rFormat, rLight.sLayout.nWidth, i)];
        if (dSignal <= 0.0 || dTarget >= GAIN_MAX * dSignal || std::ceil(dLight) >= dFullScale) {
            continue;
        }
        const double dPart = dLight - std::floor(dLight);
        const double dValue = (1.0 - dPart) * vecLow[i] + dPart * vecHigh[i];
        dWorst = std::max(dWorst, std::abs(dValue - dTarget));
    }
    return dWorst;
}

}  // namespace Toolkit
}  // namespace XAPEL2
