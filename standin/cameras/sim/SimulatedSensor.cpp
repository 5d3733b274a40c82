// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Exposes, quantises and packs the frames of the simulated camera.

#include "standin/cameras/sim/SimulatedSensor.h"

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
constexpr uint64_t FAMILY_SPIKES = 1001;
constexpr uint64_t FAMILY_LAMP = 1002;

double exposureSeconds(const CameraSettings& rSettings) {
    return static_cast<double>(rSettings.iExposureUs) * 1e-6;
}

CameraSettings wholeSensor(uint64_t nWidth, uint64_t nHeight, const PixelFormat& rFormat) {
    CameraSettings settings;
    settings.pFormat = &rFormat;
    settings.nWidth = nWidth;
    settings.nHeight = nHeight;
    return settings;
}

}  // namespace

CSimulatedSensor::CSimulatedSensor(uint64_t uSeed, uint64_t nWidth, uint64_t nHeight, const CameraSettings& rStart,
                                   const SensorModel& rModel)
    : m_model(rModel),
      m_uSeed(uSeed),
      m_nWidth(nWidth),
      m_nHeight(nHeight),
      m_start(rStart),
      m_pattern(m_model, uSeed, nWidth, nHeight) {}

CSimulatedSensor::CSimulatedSensor(uint64_t uSeed, uint64_t nWidth, uint64_t nHeight, const PixelFormat& rFormat)
    : CSimulatedSensor(uSeed, nWidth, nHeight, wholeSensor(nWidth, nHeight, rFormat)) {}

std::string CSimulatedSensor::serialNumber() const {
    return std::to_string(m_uSeed);
}

std::string CSimulatedSensor::description() const {
    return "simulated camera, seed " + std::to_string(m_uSeed);
}

std::vector<const PixelFormat*> CSimulatedSensor::formats() const {
    std::vector<const PixelFormat*> vecFormats;
    for (const PixelFormat& rFormat : pixelFormats()) {
        vecFormats.push_back(&rFormat);
    }
    return vecFormats;
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
    const ImageGeometry geometry = geometryOf(r, m_nWidth, m_nHeight);
    if (r.pFormat == nullptr || !isBinning(r.nBinningX) || !isBinning(r.nBinningY) ||
        !geometry.x.holds(r.nWidth, r.pFormat->isCfa()) || !geometry.y.holds(r.nHeight, r.pFormat->isCfa())) {
        throw std::runtime_error(description() + ": the image does not lie within the sensor");
    }
}

SensorRun CSimulatedSensor::runOf(const CameraSettings& r, uint64_t iLine) const {
    const ImageGeometry geometry = geometryOf(r, m_nWidth, m_nHeight);
    SensorRun run;
    run.axis = geometry.x;
    run.bCfa = r.pFormat->isCfa();
    run.iY = SensorRun::place(geometry.y, iLine / r.nBinningY, iLine % r.nBinningY, run.bCfa);
    run.nPixels = r.nWidth * r.nBinningX;
    run.iPhaseY = iLine / r.nBinningY;
    return run;
}

const PatternRow& CSimulatedSensor::patternRow(const CameraSettings& r, bool bObjects, uint64_t iLine) {
    const PatternKey key = {r.pFormat->uPfnc, bObjects,    r.nWidth,    r.nHeight,   r.nOffsetX,
                            r.nOffsetY,       r.nBinningX, r.nBinningY, r.iReverseX, r.iReverseY};
    const uint64_t nLines = r.nHeight * r.nBinningY;
    const bool bKeep = r.nWidth * r.nBinningX * nLines * r.pFormat->nChannels <= KEPT_SAMPLES_MAX;
    if (key != m_key || m_vecRows.empty()) {
        m_vecRows.clear();
        m_vecRows.resize(bKeep ? static_cast<std::size_t>(nLines) : 1);
        m_key = key;
    }
    PatternRow& rRow = m_vecRows[bKeep ? static_cast<std::size_t>(iLine) : 0];
    if (!bKeep || rRow.vecDsnu.empty()) {
        m_pattern.row(*r.pFormat, bObjects, runOf(r, iLine), rRow);
    }
    return rRow;
}

// Adds what the pixels of one sensor line hold at the end of the exposure, DSNU and read noise included.
void CSimulatedSensor::expose(const CameraSettings& rSettings, const CCounterRandom& rRandom, double dLamp,
                              const SensorRun& rRun, const PatternRow& rPattern, double* pElectrons) const {
    const PixelFormat& rFormat = *rSettings.pFormat;
    const double dSeconds = exposureSeconds(rSettings);
    const double dLight = m_model.dLightRate * dLamp * dSeconds;
    std::size_t i = 0;
    for (uint64_t iPixel = 0; iPixel < rRun.nPixels; ++iPixel) {
        for (unsigned iChannel = 0; iChannel < rFormat.nChannels; ++iChannel, ++i) {
            // Three-channel sensors have numbers of their own for each colour, whatever its place in the format.
            const int iColour = rFormat.nChannels == 3 ? CSensorPattern::colourOf(rFormat, iChannel, 0, 0) : 0;
            const uint64_t iSample =
                CSensorPattern::sampleNumber(rRun.column(iPixel), rRun.iY, static_cast<unsigned>(iColour));
            const double dMean = static_cast<double>(rPattern.vecResponse[i]) * dLight +
                                 static_cast<double>(rPattern.vecDarkCurrent[i]) * dSeconds;
            const double dElectrons = std::min(rRandom.poisson(dMean, 4 * iSample), m_model.dFullWell);
            const double dRead = m_model.dReadNoise * rRandom.normal(4 * iSample + 2);
            pElectrons[iPixel / rRun.binning() * rFormat.nChannels + iChannel] +=
                dElectrons + static_cast<double>(rPattern.vecDsnu[i]) + dRead;
        }
    }
}

void CSimulatedSensor::quantise(const CameraSettings& rSettings, const std::vector<double>& rElectrons,
                                uint16_t* pSamples) const {
    const double dGain = m_model.systemGain(rSettings);
    const double dOffset = m_model.offset(rSettings);
    const double dFullScale = rSettings.pFormat->fullScale();
    for (std::size_t i = 0; i < rElectrons.size(); ++i) {
        const double dValue = dGain * rElectrons[i] + dOffset;
        pSamples[i] = static_cast<uint16_t>(std::max(0.0, std::min(dFullScale, dValue + 0.5)));
    }
}

double CSimulatedSensor::lamp(eScene eWhat, uint64_t iFrame) const {
    if (eWhat == eSceneDark) {
        return 0.0;
    }
    const uint64_t uLamp = CCounterRandom::deriveKey(CCounterRandom::deriveKey(m_uSeed, FAMILY_LAMP), eWhat);
    return m_model.dUnsteady == 0.0 ? 1.0
                                    : std::max(0.0, 1.0 + m_model.dUnsteady * CCounterRandom(uLamp).normal(2 * iFrame));
}

std::vector<std::array<uint64_t, 2>> CSimulatedSensor::spikes(eScene eWhat, uint64_t iFrame) const {
    const uint64_t uSpikes = CCounterRandom::deriveKey(CCounterRandom::deriveKey(m_uSeed, FAMILY_SPIKES), eWhat);
    const CCounterRandom random(CCounterRandom::deriveKey(uSpikes, iFrame));
    std::vector<std::array<uint64_t, 2>> vecSpikes;
    for (uint64_t i = 0; i < m_model.nSpikes; ++i) {
        vecSpikes.push_back({static_cast<uint64_t>(random.uniform(2 * i) * static_cast<double>(m_nWidth)),
                             static_cast<uint64_t>(random.uniform(2 * i + 1) * static_cast<double>(m_nHeight))});
    }
    return vecSpikes;
}

// All channels of a pixel are hit.
void CSimulatedSensor::hit(const std::vector<std::array<uint64_t, 2>>& rSpikes, const SensorRun& rRun,
                           unsigned nChannels, double* pElectrons) const {
    for (const auto& [iX, iY] : rSpikes) {
        for (uint64_t i = 0; iY == rRun.iY && i < rRun.nPixels; ++i) {
            for (unsigned k = 0; rRun.column(i) == iX && k < nChannels; ++k) {
                pElectrons[i / rRun.binning() * nChannels + k] += m_model.dSpike;
            }
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
    std::vector<uint16_t> vecSamples(nRowSamples);
    std::vector<double> vecElectrons(nRowSamples);
    const double dLamp = lamp(eWhat, iFrame);
    const std::vector<std::array<uint64_t, 2>> vecSpikes = spikes(eWhat, iFrame);
    // Packing leaves the bits behind the last sample alone.
    static_cast<uint8_t*>(pImage)[imageBytes(rFormat, rSettings.nWidth, rSettings.nHeight) - 1] = 0;
    for (uint64_t iRow = 0; iRow < rSettings.nHeight; ++iRow) {
        std::fill(vecElectrons.begin(), vecElectrons.end(), 0.0);
        for (uint64_t iLine = iRow * rSettings.nBinningY; iLine < (iRow + 1) * rSettings.nBinningY; ++iLine) {
            const PatternRow& rPattern = patternRow(rSettings, eWhat == eSceneObjects, iLine);
            const SensorRun run = runOf(rSettings, iLine);
            expose(rSettings, random, dLamp, run, rPattern, vecElectrons.data());
            hit(vecSpikes, run, rFormat.nChannels, vecElectrons.data());
        }
        quantise(rSettings, vecElectrons, vecSamples.data());
        packSamples(rFormat, vecSamples.data(), static_cast<std::size_t>(iRow) * nRowSamples, nRowSamples, pImage);
    }
}

double CSimulatedSensor::sumOf(std::vector<float> PatternRow::*pPart, const CameraSettings& rSettings, bool bObjects,
                               uint64_t iX, uint64_t iY, unsigned iChannel) const {
    double dSum = 0.0;
    for (uint64_t iLine = iY * rSettings.nBinningY; iLine < (iY + 1) * rSettings.nBinningY; ++iLine) {
        SensorRun run = runOf(rSettings, iLine);
        run.iFirst = iX;
        run.nPixels = rSettings.nBinningX;
        run.iPhaseX = iX;
        PatternRow row;
        m_pattern.row(*rSettings.pFormat, bObjects, run, row);
        for (std::size_t i = iChannel; i < (row.*pPart).size(); i += rSettings.pFormat->nChannels) {
            dSum += static_cast<double>((row.*pPart)[i]);
        }
    }
    return dSum;
}

double CSimulatedSensor::expectedPhotoElectrons(const CameraSettings& rSettings, eScene eWhat, uint64_t iX, uint64_t iY,
                                                unsigned iChannel) const {
    if (eWhat == eSceneDark) {
        return 0.0;
    }
    return sumOf(&PatternRow::vecResponse, rSettings, eWhat == eSceneObjects, iX, iY, iChannel) * m_model.dLightRate *
           exposureSeconds(rSettings);
}

double CSimulatedSensor::expectedDarkElectrons(const CameraSettings& rSettings, uint64_t iX, uint64_t iY,
                                               unsigned iChannel) const {
    return sumOf(&PatternRow::vecDarkCurrent, rSettings, false, iX, iY, iChannel) * exposureSeconds(rSettings);
}

}  // namespace StandIn
}  // namespace XAPEL2
