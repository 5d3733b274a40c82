// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References and images such as a camera gives.

#include "Scene.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "TemporaryFolder.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XapelBench {

using namespace XAPEL2::StandIn;

namespace {

/// Random numbers that are the same in every run (SplitMix64).
class CRandom {
public:
    uint64_t next() {
        uint64_t u = m_uState += 0x9e3779b97f4a7c15ULL;
        u = (u ^ u >> 30) * 0xbf58476d1ce4e5b9ULL;
        u = (u ^ u >> 27) * 0x94d049bb133111ebULL;
        return u ^ u >> 31;
    }
    double even() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    /// Close to normal, standard deviation 1: a sum of four even ones.
    double normal() {
        const uint64_t u = next();
        const double dSum = static_cast<double>((u & 0xffff) + (u >> 16 & 0xffff) + (u >> 32 & 0xffff) + (u >> 48));
        return (dSum / 65536.0 - 2.0) * std::sqrt(3.0);
    }

private:
    uint64_t m_uState = 1;
};

/// Kept within the format, with the fractions that the mean of 16 images has.
float meanOf16(double dValue, double dFull) {
    return static_cast<float>(std::round(std::clamp(dValue, 0.0, dFull) * 16.0) / 16.0);
}

}  // namespace

std::vector<uint16_t> unpack(const ImageLayout& rLayout, const uint8_t* pImage) {
    std::vector<uint16_t> vecSamples(rLayout.samples());
    unpackSamples(*rLayout.pFormat, pImage, 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

CScene::CScene(const ImageLayout& rLayout, const CameraKind& rCamera)
    : m_layout(rLayout), m_vecDark(rLayout.samples()), m_vecLight(rLayout.samples()), m_vecImage(rLayout.bytes()) {
    const double dFull = rLayout.pFormat->fullScale();
    const double dUnit = dFull / 4095.0;  // a DN of 12 bits
    std::vector<uint16_t> vecSamples(rLayout.samples());
    CRandom random;
    uint64_t aCounts[4] = {};
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        const std::size_t iPixel = i / rLayout.pFormat->nChannels;
        const double dX = 2.0 * static_cast<double>(iPixel % rLayout.nWidth) / static_cast<double>(rLayout.nWidth) - 1;
        const double dY = 2.0 * static_cast<double>(iPixel / rLayout.nWidth) / static_cast<double>(rLayout.nHeight) - 1;
        const double dLens = (1.0 - rCamera.dFallOff * (dX * dX + dY * dY) / 2.0) *
                             (1.0 + rCamera.dFringes * std::sin(40.0 * dX + 9.0 * dY));
        const double dPixel = dLens * (1.0 + rCamera.dPixelSpread * random.normal());
        const bool bHot = random.even() < rCamera.dHotShare;
        const double dHot = rCamera.dHotMin + (rCamera.dHotMax - rCamera.dHotMin) * (bHot ? random.even() : 0.0);
        const double dDark = dFull * (rCamera.dDark + rCamera.dDarkSpread * random.normal() + (bHot ? dHot : 0.0));
        m_vecDark[i] = meanOf16(dDark, dFull);
        // Colours differ in how much they see, so that a gain of another colour shows.
        const double dColour = rCamera.dLight * (1.0 - colourClass(i) / 6.0);
        m_vecLight[i] = meanOf16(dDark + dColour * dFull * dPixel, dFull);
        // Objects from black to overexposed.
        const double dObject = 0.6 + 0.6 * std::sin(17.0 * dX) * std::cos(11.0 * dY);
        const double dIn = dDark + dFull * dObject * dColour / rCamera.dLight * dPixel + 4.0 * dUnit * random.normal();
        vecSamples[i] = static_cast<uint16_t>(std::clamp(std::round(dIn), 0.0, dFull));
        m_aTargets[colourClass(i)] += static_cast<double>(m_vecLight[i]) - static_cast<double>(m_vecDark[i]);
        ++aCounts[colourClass(i)];
    }
    for (unsigned i = 0; i < 4; ++i) {
        m_aTargets[i] /= static_cast<double>(std::max<uint64_t>(aCounts[i], 1));
    }
    packSamples(*rLayout.pFormat, vecSamples.data(), 0, vecSamples.size(), m_vecImage.data());
}

unsigned CScene::colourClass(std::size_t iSample) const {
    if (!m_layout.pFormat->isCfa()) {
        return static_cast<unsigned>(iSample % m_layout.pFormat->nChannels);
    }
    return static_cast<unsigned>(iSample / m_layout.nWidth % 2 * 2 + iSample % m_layout.nWidth % 2);
}

void CScene::apply(CShadingNodes& rNodes) const {
    const XAPEL2::Test::CTemporaryFolder folder;
    ReferenceImage reference;
    reference.layout = m_layout;
    reference.nImages = 16;
    reference.eKind = eReferenceDark;
    reference.vecSamples = m_vecDark;
    writeReferenceFile(folder / "dark.tif", reference);
    reference.eKind = eReferenceLight;
    reference.vecSamples = m_vecLight;
    writeReferenceFile(folder / "light.tif", reference);
    rNodes.file(XAPEL2::eCommandLoadDark, folder / "dark.tif");
    rNodes.file(XAPEL2::eCommandLoadLight, folder / "light.tif");
    rNodes.apply(m_layout);
}

void CScene::check(const uint8_t* pCorrected, double dSlack) const {
    const double dFull = m_layout.pFormat->fullScale();
    const std::vector<uint16_t> vecIn = unpack(m_layout, m_vecImage.data());
    const std::vector<uint16_t> vecOut = unpack(m_layout, pCorrected);
    double dSum = 0.0;
    for (std::size_t i = 0; i < vecIn.size(); ++i) {
        const double dDark = m_vecDark[i];
        const double dSignal = static_cast<double>(m_vecLight[i]) - dDark;
        const double dGain = dSignal > 0.0 ? std::min(m_aTargets[colourClass(i)] / dSignal, 16.0) : 1.0;
        const double dBound = (m_layout.pFormat->nBits > 12 ? 1.0 + dGain / 2.0 : 1.0) + dSlack;
        const bool bSaturated = vecIn[i] == m_layout.pFormat->fullScale();
        if (bSaturated && dSlack > 0.0) {
            continue;
        }
        const double dExpected = bSaturated ? dFull : std::clamp((vecIn[i] - dDark) * dGain, 0.0, dFull);
        if (std::abs(vecOut[i] - dExpected) > (bSaturated ? 0.0 : dBound)) {
            throw std::runtime_error("wrong result: sample " + std::to_string(i) + " of " + std::to_string(vecIn[i]) +
                                     " becomes " + std::to_string(vecOut[i]) + ", not " + std::to_string(dExpected));
        }
        dSum += vecOut[i] - dExpected;
    }
    const double dMean = dSum / static_cast<double>(vecIn.size());
    if (std::abs(dMean) > 0.25 + dSlack) {
        throw std::runtime_error("wrong result: off by " + std::to_string(dMean) + " DN in the mean");
    }
}

}  // namespace XapelBench
