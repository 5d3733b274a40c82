// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Fixed pattern of the simulated sensor, fall-off and dust of its lens, and the objects in view.

#include "standin/cameras/sim/SensorPattern.h"

#include <algorithm>
#include <cmath>

namespace XAPEL2 {
namespace StandIn {

namespace {

enum eFamily : uint64_t {
    eFamilyPrnu = 1,
    eFamilyDsnu = 2,
    eFamilyHot = 3,
    eFamilyDust = 4,
    eFamilyDead = 5,
    eFamilyPlaces = 6
};

CCounterRandom family(uint64_t uSeed, eFamily eWhat) {
    return CCounterRandom(CCounterRandom::deriveKey(uSeed, eWhat));
}

// A rectangle or an ellipse with its bounds in thousandths of the sensor, and its reflectance in percent.
struct Shape {
    bool bDisc;
    double dLeft, dTop, dRight, dBottom;
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

bool covers(const Shape& rShape, double dX, double dY) {
    if (dX < rShape.dLeft || dX >= rShape.dRight || dY < rShape.dTop || dY >= rShape.dBottom) {
        return false;
    }
    if (!rShape.bDisc) {
        return true;
    }
    const double dAcross = (2.0 * dX - rShape.dLeft - rShape.dRight) / (rShape.dRight - rShape.dLeft);
    const double dDown = (2.0 * dY - rShape.dTop - rShape.dBottom) / (rShape.dBottom - rShape.dTop);
    return dAcross * dAcross + dDown * dDown < 1.0;
}

}  // namespace

CSensorPattern::CSensorPattern(const SensorModel& rModel, uint64_t uSeed, uint64_t nSensorWidth, uint64_t nSensorHeight)
    : m_model(rModel),
      m_nSensorWidth(nSensorWidth),
      m_nSensorHeight(nSensorHeight),
      m_prnu(family(uSeed, eFamilyPrnu)),
      m_dsnu(family(uSeed, eFamilyDsnu)),
      m_hot(family(uSeed, eFamilyHot)),
      m_dead(family(uSeed, eFamilyDead)) {
    const CCounterRandom random = family(uSeed, eFamilyDust);
    const auto dWidth = static_cast<double>(nSensorWidth);
    const auto dHeight = static_cast<double>(nSensorHeight);
    const double dDiagonal = std::sqrt(dWidth * dWidth + dHeight * dHeight);
    for (uint64_t i = 0; i < rModel.nDust; ++i) {
        Dust dust;
        dust.dX = random.uniform(4 * i) * dWidth;
        dust.dY = random.uniform(4 * i + 1) * dHeight;
        dust.dRadius = (0.008 + 0.02 * random.uniform(4 * i + 2)) * dDiagonal;
        dust.dDepth = rModel.dDustDepthMin + (rModel.dDustDepthMax - rModel.dDustDepthMin) * random.uniform(4 * i + 3);
        m_vecDust.push_back(dust);
    }
    const CCounterRandom places = family(uSeed, eFamilyPlaces);
    const auto fnPlace = [&places](uint64_t uCounter, uint64_t nSize, uint64_t nSpared) {
        return static_cast<uint64_t>(places.uniform(uCounter) *
                                     static_cast<double>(nSize > nSpared ? nSize - nSpared : 1));
    };
    for (uint64_t i = 0; i < rModel.nClusters; ++i) {
        m_vecClusters.push_back({fnPlace(3 * i, nSensorWidth, 2), fnPlace(3 * i + 1, nSensorHeight, 2)});
    }
    for (uint64_t i = 0; i < rModel.nBadColumns; ++i) {
        m_vecBadColumns.push_back(fnPlace(3 * i + 2, nSensorWidth, 0));
    }
}

// Share of its light that a pixel of a cluster or of a bad column turns into electrons; 1 of others.
double CSensorPattern::defectResponse(uint64_t iX, uint64_t iY) const {
    for (const auto& [iLeft, iTop] : m_vecClusters) {
        if (iX - iLeft < 3 && iY - iTop < 3) {
            return m_model.dDeadResponse;
        }
    }
    const bool bColumn = std::find(m_vecBadColumns.begin(), m_vecBadColumns.end(), iX) != m_vecBadColumns.end();
    return bColumn ? m_model.dBadColumnResponse : 1.0;
}

int CSensorPattern::colourOf(const PixelFormat& rFormat, unsigned iChannel, uint64_t iPhaseX, uint64_t iPhaseY) {
    if (rFormat.nChannels == 3) {
        return static_cast<int>(rFormat.pName[0] == 'B' ? 2 - iChannel : iChannel);
    }
    if (!rFormat.isCfa()) {
        return -1;
    }
    const char cSite = rFormat.pCfa[iPhaseY % 2 * 2 + iPhaseX % 2];
    return cSite == 'R' ? 0 : cSite == 'G' ? 1 : 2;
}

// Light that the lens lets through: natural vignetting, the fourth power of the cosine of the field angle, scaled to
// reach fCornerLight at the corners; and soft dust shadows.
std::vector<double> CSensorPattern::lensRow(const SensorRun& rRun) const {
    const double dCentreX = static_cast<double>(m_nSensorWidth) / 2.0;
    const double dCentreY = static_cast<double>(m_nSensorHeight) / 2.0;
    const double dCornerSquared = dCentreX * dCentreX + dCentreY * dCentreY;
    const double dTangentSquared = 1.0 / std::sqrt(m_model.dCornerLight) - 1.0;
    const double dY = static_cast<double>(rRun.iY) + 0.5;

    std::vector<double> vecLens(static_cast<std::size_t>(rRun.nPixels));
    for (std::size_t i = 0; i < vecLens.size(); ++i) {
        const double dFromX = static_cast<double>(rRun.column(i)) + 0.5 - dCentreX;
        const double dFromY = dY - dCentreY;
        const double dSecant = 1.0 + dTangentSquared * (dFromX * dFromX + dFromY * dFromY) / dCornerSquared;
        vecLens[i] = 1.0 / (dSecant * dSecant);
    }
    for (const Dust& rDust : m_vecDust) {
        const double dReach = rDust.dRadius * rDust.dRadius - (dY - rDust.dY) * (dY - rDust.dY);
        if (dReach <= 0.0) {
            continue;
        }
        for (std::size_t i = 0; i < vecLens.size(); ++i) {
            const double dFromX = static_cast<double>(rRun.column(i)) + 0.5 - rDust.dX;
            const double dInside = (dReach - dFromX * dFromX) / (rDust.dRadius * rDust.dRadius);
            if (dInside > 0.0) {
                vecLens[i] *= 1.0 - rDust.dDepth * dInside * (2.0 - dInside);
            }
        }
    }
    return vecLens;
}

double CSensorPattern::reflectance(uint64_t iX, uint64_t iY, int iColour) const {
    const double dX = (static_cast<double>(iX) + 0.5) / static_cast<double>(m_nSensorWidth) * 1000.0;
    const double dY = (static_cast<double>(iY) + 0.5) / static_cast<double>(m_nSensorHeight) * 1000.0;
    double dPercent = BACKGROUND_PERCENT;
    for (const Shape& rShape : SHAPES) {
        if (covers(rShape, dX, dY)) {
            dPercent = rShape.aPercent[iColour < 0 ? 1 : iColour];
        }
    }
    return dPercent / 100.0;
}

void CSensorPattern::row(const PixelFormat& rFormat, bool bObjects, const SensorRun& rRun, PatternRow& rRow) const {
    const std::size_t nSamples = static_cast<std::size_t>(rRun.nPixels * rFormat.nChannels);
    rRow.vecResponse.resize(nSamples);
    rRow.vecDarkCurrent.resize(nSamples);
    rRow.vecDsnu.resize(nSamples);
    const std::vector<double> vecLens = lensRow(rRun);
    for (std::size_t i = 0; i < nSamples; ++i) {
        const std::size_t iPixel = i / rFormat.nChannels;
        const auto iChannel = static_cast<unsigned>(i % rFormat.nChannels);
        const int iColour = colourOf(rFormat, iChannel, rRun.iPhaseX + iPixel / rRun.binning(), rRun.iPhaseY);
        const uint64_t iColumn = rRun.column(iPixel);
        const uint64_t iSample =
            sampleNumber(iColumn, rRun.iY, rFormat.nChannels == 3 ? static_cast<unsigned>(iColour) : 0);

        double dResponse = vecLens[iPixel] * std::max(0.0, 1.0 + m_model.dPrnu * m_prnu.normal(2 * iSample));
        if (iColour >= 0) {
            dResponse *= m_model.aSensitivity[iColour];
        }
        if (bObjects) {
            dResponse *= reflectance(iColumn, rRun.iY, iColour);
        }
        if (m_dead.uniform(iSample) < m_model.dDeadShare) {
            dResponse *= m_model.dDeadResponse;
        }
        dResponse *= defectResponse(iColumn, rRun.iY);
        rRow.vecResponse[i] = static_cast<float>(dResponse);
        rRow.vecDsnu[i] = static_cast<float>(m_model.dDsnu * m_dsnu.normal(2 * iSample));

        double dCurrent = m_model.dDarkCurrent;
        if (m_hot.uniform(2 * iSample) < m_model.dHotShare) {
            dCurrent = m_model.dHotCurrentMin +
                       (m_model.dHotCurrentMax - m_model.dHotCurrentMin) * m_hot.uniform(2 * iSample + 1);
        }
        rRow.vecDarkCurrent[i] = static_cast<float>(dCurrent);
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
