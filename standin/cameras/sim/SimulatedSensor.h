// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Simulated camera: a sensor with noise and non-uniformities behind a lens with fall-off and dust.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "standin/cameras/interface/FrameSource.h"
#include "standin/cameras/sim/SensorModel.h"
#include "standin/cameras/sim/SensorPattern.h"

namespace XAPEL2 {
namespace StandIn {

/// Frames of a simulated sensor after SensorModel. A frame is a function of seed, sensor size, settings, scene and
/// frame index: the same arguments give the same bytes on every machine, whatever was filled before. A region of
/// interest shows exactly that part of the full frame, a mirrored image the mirrored sensor, and offsets count within
/// the binned and mirrored image. The colour filter array begins with the first pixel of the image as the format names
/// it, so that a format is always true: one that follows offset and mirror shows one and the same sensor. Dark: the
/// lens is covered. Light: an even field, about 60 % of full scale at the centre with default settings. Objects: the
/// same field on bars, discs and patches.
class CSimulatedSensor : public IFrameSource {
public:
    /// @param[in] nWidth,nHeight  sensor size in pixels, 1 to IMAGE_SIDE_MAX.
    /// @param[in] rStart  settings that the camera starts with; they must fit the sensor.
    CSimulatedSensor(uint64_t uSeed, uint64_t nWidth, uint64_t nHeight, const CameraSettings& rStart,
                     const SensorModel& rModel = {});
    /// The same with the whole sensor and default settings. @param[in] rFormat  must stay.
    CSimulatedSensor(uint64_t uSeed, uint64_t nWidth, uint64_t nHeight, const PixelFormat& rFormat);

    std::string description() const override;
    /// By the seed, which makes the sensor what it is.
    std::string serialNumber() const override;
    CameraSettings defaultSettings() const override { return m_start; }
    std::vector<const PixelFormat*> formats() const override;
    uint64_t sensorWidth() const override { return m_nWidth; }
    uint64_t sensorHeight() const override { return m_nHeight; }
    bool canResize() const override { return true; }
    uint64_t frameCount(eScene eWhat) const override;
    /// "dark_0000", "even_0000", "scene_0000" and so on.
    std::string frameName(eScene eWhat, uint64_t iFrame) const override;
    /// @throws std::runtime_error  the settings lie outside the sensor.
    void fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) override;

    const SensorModel& model() const { return m_model; }

    /// Expected electrons of a sample that light makes, before the full well, all pixels of a binned one together. iX
    /// and iY count within the image that the settings describe, iChannel within the pixel. @threads any thread.
    double expectedPhotoElectrons(const CameraSettings& rSettings, eScene eWhat, uint64_t iX, uint64_t iY,
                                  unsigned iChannel = 0) const;
    /// Expected electrons of a sample that dark current makes during the exposure. @threads any thread.
    double expectedDarkElectrons(const CameraSettings& rSettings, uint64_t iX, uint64_t iY,
                                 unsigned iChannel = 0) const;

private:
    // What a kept pattern depends on: format, objects in view, the region with binning and mirror.
    typedef std::array<uint64_t, 10> PatternKey;

    void checkSettings(const CameraSettings& rSettings) const;
    // Sensor line iLine of those that the image takes, counted in the order of the image.
    SensorRun runOf(const CameraSettings& rSettings, uint64_t iLine) const;
    const PatternRow& patternRow(const CameraSettings& rSettings, bool bObjects, uint64_t iLine);
    void expose(const CameraSettings& rSettings, const CCounterRandom& rRandom, double dLamp, const SensorRun& rRun,
                const PatternRow& rPattern, double* pElectrons) const;
    void quantise(const CameraSettings& rSettings, const std::vector<double>& rElectrons, uint16_t* pSamples) const;
    // Sum over the sensor pixels of a sample of the image.
    double sumOf(std::vector<float> PatternRow::*pPart, const CameraSettings& rSettings, bool bObjects, uint64_t iX,
                 uint64_t iY, unsigned iChannel) const;

    // Brightness of the lamp, relative to the mean.
    double lamp(eScene eWhat, uint64_t iFrame) const;
    void hit(const std::vector<std::array<uint64_t, 2>>& rSpikes, const SensorRun& rRun, unsigned nChannels,
             double* pElectrons) const;
    // Where particles hit the sensor, column and line.
    std::vector<std::array<uint64_t, 2>> spikes(eScene eWhat, uint64_t iFrame) const;

    SensorModel m_model;
    uint64_t m_uSeed;
    uint64_t m_nWidth;
    uint64_t m_nHeight;
    CameraSettings m_start;
    CSensorPattern m_pattern;
    PatternKey m_key{};
    std::vector<PatternRow> m_vecRows;  // lines of m_Key; empty ones are still to be computed
};

}  // namespace StandIn
}  // namespace XAPEL2
