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
    std::vector<uint16_t> vSamples(rLayout.samples());
    unpackSamples(*rLayout.pFormat, pImage, 0, vSamples.size(), vSamples.data());
    return vSamples;
}

CScene::CScene(const ImageLayout& rLayout)
    : m_sLayout(rLayout), m_vDark(rLayout.samples()), m_vLight(rLayout.samples()), m_vImage(rLayout.bytes()) {
    const double dFull = rLayout.pFormat->fullScale();
    const double dUnit = dFull / 4095.0;  // a DN of 12 bits
    std::vector<uint16_t> vSamples(rLayout.samples());
    CRandom random;
    uint64_t aCounts[4] = {};
    for (std::size_t i = 0; i < vSamples.size(); ++i) {
        const std::size_t iPixel = i / rLayout.pFormat->nChannels;
        const double dX = 2.0 * static_cast<double>(iPixel % rLayout.nWidth) / static_cast<double>(rLayout.nWidth) - 1;
        const double dY = 2.0 * static_cast<double>(iPixel / rLayout.nWidth) / static_cast<double>(rLayout.nHeight) - 1;
        const double dLens = 1.0 - 0.3 * (dX * dX + dY * dY) / 2.0;
        const double dPixel = dLens * (1.0 + 0.01 * random.normal());
        const bool bHot = random.even() < 0.003;
        const double dDark = 64.0 * dUnit + 1.5 * dUnit * random.normal() + (bHot ? 0.2 * dFull * random.even() : 0.0);
        m_vDark[i] = meanOf16(dDark, dFull);
        // Colours differ in how much they see, so that a gain of another colour shows.
        const double dColour = 0.6 - 0.1 * colourClass(i);
        m_vLight[i] = meanOf16(dDark + dColour * dFull * dPixel, dFull);
        // Objects from black to overexposed.
        const double dObject = 0.6 + 0.6 * std::sin(17.0 * dX) * std::cos(11.0 * dY);
        const double dIn = dDark + dFull * dObject * dColour / 0.6 * dPixel + 4.0 * dUnit * random.normal();
        vSamples[i] = static_cast<uint16_t>(std::clamp(std::round(dIn), 0.0, dFull));
        m_aTargets[colourClass(i)] += static_cast<double>(m_vLight[i]) - static_cast<double>(m_vDark[i]);
        ++aCounts[colourClass(i)];
    }
    for (unsigned i = 0; i < 4; ++i) m_aTargets[i] /= static_cast<double>(std::max<uint64_t>(aCounts[i], 1));
    packSamples(*rLayout.pFormat, vSamples.data(), 0, vSamples.size(), m_vImage.data());
}

unsigned CScene::colourClass(std::size_t iSample) const {
    if (!m_sLayout.pFormat->isCfa())
        return static_cast<unsigned>(iSample % m_sLayout.pFormat->nChannels);
    return static_cast<unsigned>(iSample / m_sLayout.nWidth % 2 * 2 + iSample % m_sLayout.nWidth % 2);
}

void CScene::apply(CShadingNodes& rNodes) const {
    const XAPEL2::Test::CTemporaryFolder folder;
    ReferenceImage sReference;
    sReference.sLayout = m_sLayout;
    sReference.nImages = 16;
    sReference.eKind = eReferenceDark;
    sReference.vSamples = m_vDark;
    writeReferenceFile(folder / "dark.tif", sReference);
    sReference.eKind = eReferenceLight;
    sReference.vSamples = m_vLight;
    writeReferenceFile(folder / "light.tif", sReference);
    rNodes.file(XAPEL2::eCommandLoadDark, folder / "dark.tif");
    rNodes.file(XAPEL2::eCommandLoadLight, folder / "light.tif");
    rNodes.apply(m_sLayout);
}

void CScene::check(const uint8_t* pCorrected, double dSlack) const {
    const double dFull = m_sLayout.pFormat->fullScale();
    const std::vector<uint16_t> vIn = unpack(m_sLayout, m_vImage.data());
    const std::vector<uint16_t> vOut = unpack(m_sLayout, pCorrected);
    double dSum = 0.0;
    for (std::size_t i = 0; i < vIn.size(); ++i) {
        const double dDark = m_vDark[i];
        const double dSignal = static_cast<double>(m_vLight[i]) - dDark;
        const double dGain = dSignal > 0.0 ? std::min(m_aTargets[colourClass(i)] / dSignal, 16.0) : 1.0;
        const double dBound = (m_sLayout.pFormat->nBits > 12 ? 1.0 + dGain / 2.0 : 1.0) + dSlack;
        const bool bSaturated = vIn[i] == m_sLayout.pFormat->fullScale();
        if (bSaturated && dSlack > 0.0)
            continue;
        const double dExpected = bSaturated ? dFull : std::clamp(std::round((vIn[i] - dDark) * dGain), 0.0, dFull);
        if (std::abs(vOut[i] - dExpected) > (bSaturated ? 0.0 : dBound))
            throw std::runtime_error("wrong result: sample " + std::to_string(i) + " of " + std::to_string(vIn[i]) +
                                     " becomes " + std::to_string(vOut[i]) + ", not " + std::to_string(dExpected));
        dSum += vOut[i] - dExpected;
    }
    const double dMean = dSum / static_cast<double>(vIn.size());
    if (std::abs(dMean) > 0.25 + dSlack)
        throw std::runtime_error("wrong result: off by " + std::to_string(dMean) + " DN in the mean");
}

}  // namespace XapelBench
