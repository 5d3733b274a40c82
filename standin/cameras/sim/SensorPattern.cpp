// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Fixed pattern of the simulated sensor, fall-off and dust of its lens, and the objects in view.

#include "standin/cameras/sim/SensorPattern.h"

#include <algorithm>
#include <cmath>

namespace XAPEL2 {
namespace StandIn {

namespace {

enum eFamily : uint64_t { eFamilyPrnu = 1, eFamilyDsnu = 2, eFamilyHot = 3, eFamilyDust = 4, eFamilyDead = 5 };

CCounterRandom family(uint64_t uSeed, eFamily eWhat) {
    return CCounterRandom(CCounterRandom::deriveKey(uSeed, eWhat));
}

// A rectangle or an ellipse with its bounds in thousandths of the sensor, and its reflectance in percent.
struct Shape {
    bool bDisc;
    double fLeft, fTop, fRight, fBottom;
    double aPercent[3];
};

const double BACKGROUND_PERCENT = 70.0;

// Later shapes cover earlier ones.
const Shape SHAPES[] = {
    // Bars side by side, each narrower than the one before, and a short stack of lying ones.
    {false, 60, 80, 100, 380, {12, 12, 12}},
    {false, 130, 80, 160, 380, {12, 12, 12}},
    {false, 185, 80, 205, 380, {12, 12, 12}},
    {false, 226, 80, 240, 380, {12, 12, 12}},
    {false, 258, 80, 267, 380, {12, 12, 12}},
    {false, 283, 80, 289, 380, {12, 12, 12}},
    {false, 330, 80, 480, 130, {95, 95, 95}},
    {false, 330, 165, 480, 200, {95, 95, 95}},
    {false, 330, 230, 480, 252, {95, 95, 95}},
    {false, 330, 278, 480, 290, {95, 95, 95}},
    // A ring, a bright disc, and a disc with a spot on it.
    {true, 560, 70, 760, 340, {20, 20, 20}},
    {true, 605, 130, 715, 280, {70, 70, 70}},
    {true, 800, 70, 940, 260, {98, 98, 98}},
    {true, 790, 290, 930, 480, {35, 35, 35}},
    {true, 835, 350, 885, 420, {90, 90, 90}},
    // Two rows of patches: greys and colours.
    {false, 60, 560, 190, 720, {5, 5, 5}},
    {false, 210, 560, 340, 720, {20, 20, 20}},
    {false, 360, 560, 490, 720, {45, 45, 45}},
    {false, 510, 560, 640, 720, {60, 60, 60}},
    {false, 660, 560, 790, 720, {85, 85, 85}},
    {false, 810, 560, 940, 720, {100, 100, 100}},
    {false, 60, 760, 190, 920, {90, 20, 15}},
    {false, 210, 760, 340, 920, {20, 75, 25}},
    {false, 360, 760, 490, 920, {15, 25, 85}},
    {false, 510, 760, 640, 920, {90, 85, 15}},
    {false, 660, 760, 790, 920, {85, 20, 80}},
    {false, 810, 760, 940, 920, {15, 80, 85}},
};

bool covers(const Shape& rShape, double fX, double fY) {
    if (fX < rShape.fLeft || fX >= rShape.fRight || fY < rShape.fTop || fY >= rShape.fBottom)
        return false;
    if (!rShape.bDisc)
        return true;
    const double fAcross = (2.0 * fX - rShape.fLeft - rShape.fRight) / (rShape.fRight - rShape.fLeft);
    const double fDown = (2.0 * fY - rShape.fTop - rShape.fBottom) / (rShape.fBottom - rShape.fTop);
    return fAcross * fAcross + fDown * fDown < 1.0;
}

}  // namespace

CSensorPattern::CSensorPattern(const SensorModel& rModel, uint64_t uSeed, uint64_t nSensorWidth, uint64_t nSensorHeight)
    : m_Model(rModel),
      m_nSensorWidth(nSensorWidth),
      m_nSensorHeight(nSensorHeight),
      m_Prnu(family(uSeed, eFamilyPrnu)),
      m_Dsnu(family(uSeed, eFamilyDsnu)),
      m_Hot(family(uSeed, eFamilyHot)),
      m_Dead(family(uSeed, eFamilyDead)) {
    const CCounterRandom random = family(uSeed, eFamilyDust);
    const auto fWidth = static_cast<double>(nSensorWidth);
    const auto fHeight = static_cast<double>(nSensorHeight);
    const double fDiagonal = std::sqrt(fWidth * fWidth + fHeight * fHeight);
    for (uint64_t i = 0; i < rModel.nDust; ++i) {
        Dust dust;
        dust.fX = random.uniform(4 * i) * fWidth;
        dust.fY = random.uniform(4 * i + 1) * fHeight;
        dust.fRadius = (0.008 + 0.02 * random.uniform(4 * i + 2)) * fDiagonal;
        dust.fDepth = rModel.fDustDepthMin + (rModel.fDustDepthMax - rModel.fDustDepthMin) * random.uniform(4 * i + 3);
        m_aDust.push_back(dust);
    }
}

int CSensorPattern::colourOf(const PixelFormat& rFormat, unsigned iChannel, uint64_t iPhaseX, uint64_t iPhaseY) {
    if (rFormat.nChannels == 3)
        return static_cast<int>(rFormat.pName[0] == 'B' ? 2 - iChannel : iChannel);
    if (!rFormat.isCfa())
        return -1;
    const char cSite = rFormat.pCfa[iPhaseY % 2 * 2 + iPhaseX % 2];
    return cSite == 'R' ? 0 : cSite == 'G' ? 1 : 2;
}

// Light that the lens lets through: natural vignetting, the fourth power of the cosine of the field angle, scaled to
// reach fCornerLight at the corners; and soft dust shadows.
std::vector<double> CSensorPattern::lensRow(const SensorRun& rRun) const {
    const double fCentreX = static_cast<double>(m_nSensorWidth) / 2.0;
    const double fCentreY = static_cast<double>(m_nSensorHeight) / 2.0;
    const double fCornerSquared = fCentreX * fCentreX + fCentreY * fCentreY;
    const double fTangentSquared = 1.0 / std::sqrt(m_Model.fCornerLight) - 1.0;
    const double fY = static_cast<double>(rRun.iY) + 0.5;

    std::vector<double> aLens(static_cast<std::size_t>(rRun.nPixels));
    for (std::size_t i = 0; i < aLens.size(); ++i) {
        const double fFromX = static_cast<double>(rRun.column(i)) + 0.5 - fCentreX;
        const double fFromY = fY - fCentreY;
        const double fSecant = 1.0 + fTangentSquared * (fFromX * fFromX + fFromY * fFromY) / fCornerSquared;
        aLens[i] = 1.0 / (fSecant * fSecant);
    }
    for (const Dust& rDust : m_aDust) {
        const double fReach = rDust.fRadius * rDust.fRadius - (fY - rDust.fY) * (fY - rDust.fY);
        if (fReach <= 0.0)
            continue;
        for (std::size_t i = 0; i < aLens.size(); ++i) {
            const double fFromX = static_cast<double>(rRun.column(i)) + 0.5 - rDust.fX;
            const double fInside = (fReach - fFromX * fFromX) / (rDust.fRadius * rDust.fRadius);
            if (fInside > 0.0)
                aLens[i] *= 1.0 - rDust.fDepth * fInside * (2.0 - fInside);
        }
    }
    return aLens;
}

double CSensorPattern::reflectance(uint64_t iX, uint64_t iY, int iColour) const {
    const double fX = (static_cast<double>(iX) + 0.5) / static_cast<double>(m_nSensorWidth) * 1000.0;
    const double fY = (static_cast<double>(iY) + 0.5) / static_cast<double>(m_nSensorHeight) * 1000.0;
    double fPercent = BACKGROUND_PERCENT;
    for (const Shape& rShape : SHAPES) {
        if (covers(rShape, fX, fY))
            fPercent = rShape.aPercent[iColour < 0 ? 1 : iColour];
    }
    return fPercent / 100.0;
}

void CSensorPattern::row(const PixelFormat& rFormat, bool bObjects, const SensorRun& rRun, PatternRow& rRow) const {
    const std::size_t nSamples = static_cast<std::size_t>(rRun.nPixels * rFormat.nChannels);
    rRow.aResponse.resize(nSamples);
    rRow.aDarkCurrent.resize(nSamples);
    rRow.aDsnu.resize(nSamples);
    const std::vector<double> aLens = lensRow(rRun);
    for (std::size_t i = 0; i < nSamples; ++i) {
        const std::size_t iPixel = i / rFormat.nChannels;
        const auto iChannel = static_cast<unsigned>(i % rFormat.nChannels);
        const int iColour = colourOf(rFormat, iChannel, rRun.iPhaseX + iPixel / rRun.nBinning, rRun.iPhaseY);
        const uint64_t iColumn = rRun.column(iPixel);
        const uint64_t iSample =
            sampleNumber(iColumn, rRun.iY, rFormat.nChannels == 3 ? static_cast<unsigned>(iColour) : 0);

        double fResponse = aLens[iPixel] * std::max(0.0, 1.0 + m_Model.fPrnu * m_Prnu.normal(2 * iSample));
        if (iColour >= 0)
            fResponse *= m_Model.aSensitivity[iColour];
        if (bObjects)
            fResponse *= reflectance(iColumn, rRun.iY, iColour);
        if (m_Dead.uniform(iSample) < m_Model.fDeadShare)
            fResponse *= m_Model.fDeadResponse;
        rRow.aResponse[i] = static_cast<float>(fResponse);
        rRow.aDsnu[i] = static_cast<float>(m_Model.fDsnu * m_Dsnu.normal(2 * iSample));

        double fCurrent = m_Model.fDarkCurrent;
        if (m_Hot.uniform(2 * iSample) < m_Model.fHotShare)
            fCurrent = m_Model.fHotCurrentMin +
                       (m_Model.fHotCurrentMax - m_Model.fHotCurrentMin) * m_Hot.uniform(2 * iSample + 1);
        rRow.aDarkCurrent[i] = static_cast<float>(fCurrent);
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
