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

/// What each class is to come to, without the pedestal. Of the brightest place it is what the class does come to.
std::vector<double> targetsOf(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight,
                              const std::vector<double>& rValues) {
    const StandIn::PixelFormat& rFormat = *rLight.sLayout.pFormat;
    std::vector<double> vecTargets = signalMeans(rDark, rLight);
    if (rLight.sOutput.eTarget == StandIn::eTargetValue) {
        std::fill(vecTargets.begin(), vecTargets.end(), rLight.sOutput.dTarget);
    } else if (rLight.sOutput.eTarget == StandIn::eTargetMax) {
        std::vector<std::vector<double>> vecByClass(vecTargets.size());
        for (std::size_t i = 0; i < rValues.size(); ++i) {
            vecByClass[colourClass(rFormat, rLight.sLayout.nWidth, i)].push_back(rValues[i]);
        }
        for (std::size_t i = 0; i < vecByClass.size(); ++i) {
            const auto itMiddle = vecByClass[i].begin() + static_cast<std::ptrdiff_t>(vecByClass[i].size() / 2);
            if (!vecByClass[i].empty()) {
                std::nth_element(vecByClass[i].begin(), itMiddle, vecByClass[i].end());
                vecTargets[i] = *itMiddle - rLight.sOutput.dPedestal;
            }
        }
    }
    return vecTargets;
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
    const double dFullScale = rFormat.fullScale();
    std::vector<double> vecValues;
    for (std::size_t i = 0; i < vecLow.size(); ++i) {
        const double dPart =
            static_cast<double>(rLight.vSamples[i]) - std::floor(static_cast<double>(rLight.vSamples[i]));
        vecValues.push_back((1.0 - dPart) * vecLow[i] + dPart * vecHigh[i]);
    }
    const std::vector<double> vecTarget = targetsOf(rDark, rLight, vecValues);
    double dWorst = 0.0;
    for (std::size_t i = 0; i < vecLow.size(); ++i) {
        const auto dLight = static_cast<double>(rLight.vSamples[i]);
        const double dSignal = dLight - static_cast<double>(rDark.vSamples[i]);
        const double dTarget = vecTarget[colourClass(rFormat, rLight.sLayout.nWidth, i)];
        const bool bDefect = !rLight.vecDefects.empty() && rLight.vecDefects[i / rFormat.nChannels] != 0;
        if (bDefect || dSignal <= 0.0 || dTarget >= GAIN_MAX * dSignal || std::ceil(dLight) >= dFullScale) {
            continue;
        }
        const double dWanted = std::min(dTarget + rLight.sOutput.dPedestal, dFullScale);
        dWorst = std::max(dWorst, std::abs(vecValues[i] - dWanted));
    }
    return dWorst;
}

}  // namespace Toolkit
}  // namespace XAPEL2
