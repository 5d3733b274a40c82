// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What does not change from frame to frame: the pattern of the sensor and the lens, and the objects in view.

#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "standin/cameras/interface/FrameSource.h"
#include "standin/cameras/sim/CounterRandom.h"
#include "standin/cameras/sim/SensorModel.h"

namespace XAPEL2 {
namespace StandIn {

/// Samples of one line, channel by channel within each pixel.
struct PatternRow {
    std::vector<float> vecResponse;     ///< photo-electrons relative to the even field's centre at sensitivity 1
    std::vector<float> vecDarkCurrent;  ///< electrons per s
    std::vector<float> vecDsnu;         ///< electrons
};

/// A run of sensor pixels along a line in the order in which an image shows them, and the place in that image.
struct SensorRun {
    GeometryAxis axis;                  ///< of the image from left to right
    bool bCfa = false;                  ///< binned pixels are of one colour
    uint64_t iFirst = 0;                ///< pixel of the image that the run begins with
    uint64_t iY = 0;                    ///< line of the sensor
    uint64_t nPixels = 0;               ///< pixels of the sensor, so many for each pixel of the image
    uint64_t iPhaseX = 0, iPhaseY = 0;  ///< pixel of the image, which a colour filter array starts with

    uint64_t binning() const { return axis.nBinning; }
    /// Sensor column of the i-th pixel.
    uint64_t column(uint64_t i) const { return place(axis, iFirst + i / axis.nBinning, i % axis.nBinning, bCfa); }
    /// Pixel of the sensor that is the i-th of those that make a pixel of the image.
    static uint64_t place(const GeometryAxis& r, uint64_t iPixel, uint64_t i, bool bCfa) {
        return GeometryAxis::firstOf(r.unmirrored(iPixel, bCfa), r.nBinning, bCfa) +
               (r.bReverse ? r.nBinning - 1 - i : i) * GeometryAxis::stepOf(r.nBinning, bCfa);
    }
};

/// Fixed pattern of one sensor, a function of seed and position on the sensor. Immutable. @threads any thread.
class CSensorPattern {
public:
    CSensorPattern(const SensorModel& rModel, uint64_t uSeed, uint64_t nSensorWidth, uint64_t nSensorHeight);

    /// Pattern of the sensor pixels of a run, which lies on the sensor.
    void row(const PixelFormat& rFormat, bool bObjects, const SensorRun& rRun, PatternRow& rRow) const;

    /// Number of a sample of the sensor: the counter of its random numbers.
    static uint64_t sampleNumber(uint64_t iX, uint64_t iY, unsigned iColour) {
        return (iY * IMAGE_SIDE_MAX + iX) * 3 + iColour;
    }

    /// Colour of a sample of the format, 0 red, 1 green, 2 blue; -1 of a mono sensor.
    static int colourOf(const PixelFormat& rFormat, unsigned iChannel, uint64_t iPhaseX, uint64_t iPhaseY);

private:
    struct Dust {
        double dX, dY, dRadius, dDepth;
    };

    std::vector<double> lensRow(const SensorRun& rRun) const;
    double defectResponse(uint64_t iX, uint64_t iY) const;
    double reflectance(uint64_t iX, uint64_t iY, int iColour) const;

    SensorModel m_model;
    uint64_t m_nSensorWidth;
    uint64_t m_nSensorHeight;
    CCounterRandom m_prnu;
    CCounterRandom m_dsnu;
    CCounterRandom m_hot;
    CCounterRandom m_dead;
    std::vector<Dust> m_vecDust;
    std::vector<std::array<uint64_t, 2>> m_vecClusters;  // first column and line of each
    std::vector<uint64_t> m_vecBadColumns;
};

}  // namespace StandIn
}  // namespace XAPEL2
