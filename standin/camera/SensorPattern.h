// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What does not change from frame to frame: the pattern of the sensor and the lens, and the objects in view.

#pragma once

#include <cstdint>
#include <vector>

#include "CounterRandom.h"
#include "FrameSource.h"
#include "SensorModel.h"

namespace XAPEL2 {
namespace StandIn {

/// Samples of one line, channel by channel within each pixel.
struct PatternRow {
    std::vector<float> aResponse;     ///< photo-electrons relative to the even field's centre at sensitivity 1
    std::vector<float> aDarkCurrent;  ///< electrons per s
    std::vector<float> aDsnu;         ///< electrons
};

/// Fixed pattern of one sensor, a function of seed and position on the sensor. Immutable. @threads any thread.
class CSensorPattern {
public:
    CSensorPattern(const SensorModel& rModel, uint64_t uSeed, uint64_t nSensorWidth, uint64_t nSensorHeight);

    /// Pattern of nWidth pixels from sensor position (iX, iY) on. iPhaseX and iPhaseY are the same position within the
    /// delivered image, which a colour filter array starts with.
    void row(const PixelFormat& rFormat, bool bObjects, uint64_t iX, uint64_t iY, uint64_t nWidth, uint64_t iPhaseX,
             uint64_t iPhaseY, PatternRow& rRow) const;

    /// Number of a sample of the sensor: the counter of its random numbers.
    static uint64_t sampleNumber(uint64_t iX, uint64_t iY, unsigned iColour) {
        return (iY * IMAGE_SIDE_MAX + iX) * 3 + iColour;
    }

    /// Colour of a sample of the format, 0 red, 1 green, 2 blue; -1 of a mono sensor.
    static int colourOf(const PixelFormat& rFormat, unsigned iChannel, uint64_t iPhaseX, uint64_t iPhaseY);

private:
    struct Dust {
        double fX, fY, fRadius, fDepth;
    };

    std::vector<double> lensRow(uint64_t iX, uint64_t iY, uint64_t nWidth) const;
    double reflectance(uint64_t iX, uint64_t iY, int iColour) const;

    SensorModel m_Model;
    uint64_t m_nSensorWidth;
    uint64_t m_nSensorHeight;
    CCounterRandom m_Prnu;
    CCounterRandom m_Dsnu;
    CCounterRandom m_Hot;
    std::vector<Dust> m_aDust;
};

}  // namespace StandIn
}  // namespace XAPEL2
