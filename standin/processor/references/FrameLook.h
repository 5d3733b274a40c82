// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A look at part of a frame: how bright and noisy it is, and whether its shape is that of others.

#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Noise of a sample from frame to frame as a function of its level, for each colour class. Measured between neighbours
/// of one class, whose light changes together, so that neither lamp nor objects count as noise.
class CNoiseLaw {
public:
    /// A level and the variance there, from nPairs pairs of samples.
    struct Point {
        double dLevel = 0.0;
        double dVariance = 0.0;
        double dPairs = 0.0;
    };
    static constexpr std::size_t CLASSES_MAX = 4;

    /// Takes another measurement of the same levels in; the first one fixes how many points there are.
    void add(const CNoiseLaw& rOther);
    void addPoint(unsigned iClass, const Point& rPoint) { m_aPoints[iClass].push_back(rPoint); }
    void setTop(unsigned iClass, double dLevel) { m_adTop[iClass] = dLevel; }

    bool isEmpty() const;
    bool has(unsigned iClass) const { return !m_aPoints[iClass].empty(); }
    /// Variance of a sample, DN^2: interpolated, continued upwards as it rises, and not below that of the lowest level.
    double variance(unsigned iClass, double dLevel) const;
    /// False of a level above those that were measured, such as a hot pixel's, where the noise is unknown.
    bool covers(unsigned iClass, double dLevel) const { return has(iClass) && dLevel <= m_adTop[iClass]; }

private:
    std::array<std::vector<Point>, CLASSES_MAX> m_aPoints;
    std::array<double, CLASSES_MAX> m_adTop{};
};

/// How a frame compares with the mean of others.
struct FrameDifference {
    double dGain = 1.0;                                ///< brightness, relative to the mean of the others
    double dLevel = 0.0;                               ///< middle level of the others, DN
    double dNoise = 0.0;                               ///< there, DN
    double dOther = 0.0;                               ///< share of the image whose shape is another, 0 to 1
    uint64_t nX = 0, nY = 0, nWidth = 0, nHeight = 0;  ///< roughly where
    double dDeviation = 0.0;                           ///< of the samples there from the others, mean, DN
};

/// The same, with the noise that was measured on the way.
struct FrameView : FrameDifference {
    CNoiseLaw law;  ///< from this frame; empty once there are more than four others
};

/// The places that are looked at: the same ones of each frame, 128 runs of 64 samples at most.
class CFrameLook {
public:
    explicit CFrameLook(const ImageLayout& rLayout);

    static constexpr std::size_t RUN = 64;
    std::size_t runs() const { return m_vecStarts.size(); }
    std::size_t start(std::size_t iRun) const { return m_vecStarts[iRun]; }
    std::size_t runLength() const { return m_nRun; }
    std::size_t samples() const { return runs() * m_nRun; }

    /// The samples of these places.
    void take(const void* pImage, std::vector<float>& rSamples) const;
    /// @param[in] rMean    mean of the others at these places.
    /// @param[in] nFrames  number of the others, from 1 on.
    /// @param[in] rLaw     their noise; empty: not known yet, and measured from this frame alone.
    FrameView compare(const std::vector<float>& rSamples, const std::vector<float>& rMean, uint64_t nFrames,
                      const CNoiseLaw& rLaw) const;

private:
    double gain(const std::vector<float>& rSamples, const std::vector<float>& rMean, double& rLevel) const;
    void measureNoise(const std::vector<float>& rDeviations, const std::vector<float>& rMean, double dScale,
                      CNoiseLaw& rLaw) const;
    void compareShape(const std::vector<float>& rDeviations, const std::vector<float>& rMean, double dScale,
                      const CNoiseLaw& rLaw, FrameView& rView) const;

    ImageLayout m_layout;
    std::size_t m_nRun = 0;
    std::size_t m_nStep = 1;  // from a sample to the next one of its class in a row
    std::vector<std::size_t> m_vecStarts;
    std::vector<uint8_t> m_vecClasses;  // of each sample that is looked at
};

}  // namespace StandIn
}  // namespace XAPEL2
