// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Exposes, quantises and packs the frames of the simulated camera.

#include "SimulatedSensor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace XAPEL2 {
namespace StandIn {

namespace {

// Samples of which the fixed pattern is kept from frame to frame (12 bytes each); larger images compute it line by
// line.
constexpr uint64_t KEPT_SAMPLES_MAX = 8U << 20;

// Key of everything that changes from frame to frame; the fixed patterns use small numbers in the same place.
constexpr uint64_t FAMILY_FRAMES = 1000;

double exposureSeconds(const CameraSettings& rSettings) {
    return static_cast<double>(rSettings.iExposureUs) * 1e-6;
}

}  // namespace

bool CSimulatedSensor::PatternKey::operator==(const PatternKey& r) const {
    return uPfnc == r.uPfnc && bObjects == r.bObjects && nWidth == r.nWidth && nHeight == r.nHeight &&
           nOffsetX == r.nOffsetX && nOffsetY == r.nOffsetY;
}

CSimulatedSensor::CSimulatedSensor(uint64_t uSeed, uint64_t nWidth, uint64_t nHeight, const PixelFormat& rFormat)
    : m_uSeed(uSeed),
      m_nWidth(nWidth),
      m_nHeight(nHeight),
      m_pFormat(&rFormat),
      m_Pattern(m_Model, uSeed, nWidth, nHeight) {}

std::string CSimulatedSensor::description() const {
    return "simulated camera, seed " + std::to_string(m_uSeed);
}

CameraSettings CSimulatedSensor::defaultSettings() const {
    CameraSettings settings;
    settings.pFormat = m_pFormat;
    settings.nWidth = m_nWidth;
    settings.nHeight = m_nHeight;
    return settings;
}

std::vector<const PixelFormat*> CSimulatedSensor::formats() const {
    std::vector<const PixelFormat*> aFormats;
    for (const PixelFormat& rFormat : pixelFormats()) aFormats.push_back(&rFormat);
    return aFormats;
}

uint64_t CSimulatedSensor::frameCount(eScene) const {
    return 0;
}

std::string CSimulatedSensor::frameName(eScene eWhat, uint64_t iFrame) const {
    const char* pScene = eWhat == eSceneDark ? "dark" : eWhat == eSceneLight ? "even" : "scene";
    char aName[40];
    std::snprintf(aName, sizeof(aName), "%s_%04llu", pScene, static_cast<unsigned long long>(iFrame));
    return aName;
}

void CSimulatedSensor::checkSettings(const CameraSettings& r) const {
    const bool bInside = r.pFormat != nullptr && r.nWidth >= 1 && r.nHeight >= 1 && r.nWidth <= m_nWidth &&
                         r.nHeight <= m_nHeight && r.nOffsetX <= m_nWidth - r.nWidth &&
                         r.nOffsetY <= m_nHeight - r.nHeight;
    if (!bInside)
        throw std::runtime_error(description() + ": the image does not lie within the sensor");
}

const PatternRow& CSimulatedSensor::patternRow(const CameraSettings& rSettings, bool bObjects, uint64_t iRow) {
    const PatternKey key = {rSettings.pFormat->uPfnc, bObjects,           rSettings.nWidth,
                            rSettings.nHeight,        rSettings.nOffsetX, rSettings.nOffsetY};
    const bool bKeep = rSettings.nWidth * rSettings.nHeight * rSettings.pFormat->nChannels <= KEPT_SAMPLES_MAX;
    if (!(key == m_Key) || m_aRows.empty()) {
        m_aRows.clear();
        m_aRows.resize(bKeep ? static_cast<std::size_t>(rSettings.nHeight) : 1);
        m_Key = key;
    }
    PatternRow& rRow = m_aRows[bKeep ? static_cast<std::size_t>(iRow) : 0];
    if (!bKeep || rRow.aDsnu.empty())
        m_Pattern.row(*rSettings.pFormat, bObjects, rSettings.nOffsetX, rSettings.nOffsetY + iRow, rSettings.nWidth, 0,
                      iRow, rRow);
    return rRow;
}

void CSimulatedSensor::exposeRow(const CameraSettings& rSettings, const CCounterRandom& rRandom, bool bLight,
                                 uint64_t iRow, const PatternRow& rPattern, uint16_t* pSamples) const {
    const PixelFormat& rFormat = *rSettings.pFormat;
    const double fSeconds = exposureSeconds(rSettings);
    const double fLight = bLight ? m_Model.fLightRate * fSeconds : 0.0;
    const double fGain = m_Model.systemGain(rSettings);
    const double fOffset = m_Model.offset(rFormat);
    const double fFullScale = rFormat.fullScale();
    std::size_t i = 0;
    for (uint64_t iPixel = 0; iPixel < rSettings.nWidth; ++iPixel) {
        for (unsigned iChannel = 0; iChannel < rFormat.nChannels; ++iChannel, ++i) {
            // Three-channel sensors have numbers of their own for each colour, whatever its place in the format.
            const int iColour = rFormat.nChannels == 3 ? CSensorPattern::colourOf(rFormat, iChannel, 0, 0) : 0;
            const uint64_t iSample = CSensorPattern::sampleNumber(
                rSettings.nOffsetX + iPixel, rSettings.nOffsetY + iRow, static_cast<unsigned>(iColour));
            const double fMean = static_cast<double>(rPattern.aResponse[i]) * fLight +
                                 static_cast<double>(rPattern.aDarkCurrent[i]) * fSeconds;
            const double fElectrons = std::min(rRandom.poisson(fMean, 4 * iSample), m_Model.fFullWell);
            const double fRead = m_Model.fReadNoise * rRandom.normal(4 * iSample + 2);
            const double fValue = fGain * (fElectrons + static_cast<double>(rPattern.aDsnu[i]) + fRead) + fOffset;
            pSamples[i] = static_cast<uint16_t>(std::max(0.0, std::min(fFullScale, fValue + 0.5)));
        }
    }
}

void CSimulatedSensor::fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) {
    checkSettings(rSettings);
    const PixelFormat& rFormat = *rSettings.pFormat;
    const uint64_t uFrames = CCounterRandom::deriveKey(m_uSeed, FAMILY_FRAMES);
    const uint64_t uScene = CCounterRandom::deriveKey(uFrames, static_cast<uint64_t>(eWhat));
    const CCounterRandom random(CCounterRandom::deriveKey(uScene, iFrame));

    const std::size_t nRowSamples = static_cast<std::size_t>(rSettings.nWidth * rFormat.nChannels);
    std::vector<uint16_t> aSamples(nRowSamples);
    // Packing leaves the bits behind the last sample alone.
    static_cast<uint8_t*>(pImage)[imageBytes(rFormat, rSettings.nWidth, rSettings.nHeight) - 1] = 0;
    for (uint64_t iRow = 0; iRow < rSettings.nHeight; ++iRow) {
        const PatternRow& rPattern = patternRow(rSettings, eWhat == eSceneObjects, iRow);
        exposeRow(rSettings, random, eWhat != eSceneDark, iRow, rPattern, aSamples.data());
        packSamples(rFormat, aSamples.data(), static_cast<std::size_t>(iRow) * nRowSamples, nRowSamples, pImage);
    }
}

double CSimulatedSensor::expectedPhotoElectrons(const CameraSettings& rSettings, eScene eWhat, uint64_t iX, uint64_t iY,
                                                unsigned iChannel) const {
    if (eWhat == eSceneDark)
        return 0.0;
    PatternRow row;
    m_Pattern.row(*rSettings.pFormat, eWhat == eSceneObjects, rSettings.nOffsetX + iX, rSettings.nOffsetY + iY, 1, iX,
                  iY, row);
    return static_cast<double>(row.aResponse[iChannel]) * m_Model.fLightRate * exposureSeconds(rSettings);
}

double CSimulatedSensor::expectedDarkElectrons(const CameraSettings& rSettings, uint64_t iX, uint64_t iY,
                                               unsigned iChannel) const {
    PatternRow row;
    m_Pattern.row(*rSettings.pFormat, false, rSettings.nOffsetX + iX, rSettings.nOffsetY + iY, 1, iX, iY, row);
    return static_cast<double>(row.aDarkCurrent[iChannel]) * exposureSeconds(rSettings);
}

}  // namespace StandIn
}  // namespace XAPEL2
