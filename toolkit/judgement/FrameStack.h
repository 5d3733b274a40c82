// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Mean image and temporal noise of several frames of one scene.

#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "toolkit/frames/Frame.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// The mean of L frames and the noise of a single one: what the figures about a scene are made of.
struct MeanImage {
    StandIn::ImageLayout layout;
    uint64_t nFrames = 0;                    ///< L
    std::vector<float> vecSamples;           ///< DN, row by row, channels of a pixel side by side
    double dTemporalVariance = 0.0;          ///< of a sample from frame to frame, mean over all, DN^2; NaN: unknown
    std::vector<double> vecClassVariance{};  ///< the same for each colour class; empty: unknown
    StandIn::FrameMeans means{};             ///< how the light went
    double dSaturatedShare = 0.0;            ///< share of samples at full scale over all frames, 0 to 1
};

/// Adds up frames of one layout: 16 bytes a sample, whatever the number of frames.
/// @threads one object per thread.
class CFrameStack {
public:
    /// @throws std::invalid_argument  the layout is not possible.
    explicit CFrameStack(const StandIn::ImageLayout& rLayout);

    /// @throws std::invalid_argument  the frame has another layout; names it. Nothing is added.
    void add(const Frame& rFrame);

    uint64_t frames() const { return m_nFrames; }
    const StandIn::ImageLayout& layout() const { return m_layout; }

    /// The mean, and the temporal variance of each sample (divisor L - 1) averaged over the samples, after EMVA 1288
    /// R4, noise of an image stack, without the changes that all samples of a class share (steadyVariance()); unknown
    /// for a single frame.
    /// @throws std::logic_error  there is no frame.
    MeanImage mean() const;

    /// Temporal variance of each sample, DN^2, common changes included. @throws std::logic_error  there are fewer than
    /// two frames.
    std::vector<float> temporalVariances() const;

    /// Frames whose mean is off the middle one by more than 1 %, ten spreads of the others, and what noise does; the
    /// farthest first, none of fewer than three frames. They stay in the mean.
    StandIn::RecordingOutliers outlyingFrames() const;

private:
    double variance(std::size_t iSample) const;
    double varianceOfMeans(unsigned iClass) const;
    std::vector<double> frameMeans() const;

    StandIn::ImageLayout m_layout;
    uint64_t m_nFrames = 0;
    uint64_t m_nSaturated = 0;
    std::vector<uint64_t> m_vecSum;
    std::vector<uint64_t> m_vecSquares;
    std::vector<std::vector<double>> m_vecClassMeans;  // of each class, the mean of each frame
    StandIn::FrameMeans m_means;
};

/// True where a reference tells the temporal noise of its frames: it has two or more, and was not made of a mean.
bool isNoiseKnown(const StandIn::ReferenceImage& rReference);

/// Share of the temporal variance of a light reference that is noise, as its neighbouring pixels tell it: below 1 where
/// light moved over the image while it was recorded, at a mean that may well have stayed the same. 1 where that is not
/// known, or the two differ by less than a tenth or, of few samples and frames, by less than chance does.
double noiseShare(const StandIn::ReferenceImage& rReference);

/// A recorded reference as a mean image; its temporal variance is without light that moved (noiseShare()). Where its
/// file is an older one, its noise is known over all samples only; that of one frame is not known at all.
MeanImage meanOf(const StandIn::ReferenceImage& rReference);

/// Names of the colour classes of a format, in the order of colourClass(): "mono"; "R", "G1", "G2", "B" of the sites of
/// a filter array; "R", "G", "B" of channels.
std::vector<std::string> colourClassNames(const StandIn::PixelFormat& rFormat);

/// The samples of one colour class, row by row.
class CColourPlane {
public:
    /// Of samples that lie like this already, borrowed.
    CColourPlane(std::size_t nRows, std::size_t nColumns, const float* pSamples)
        : m_nRows(nRows), m_nColumns(nColumns), m_pSamples(pSamples) {}
    /// Of samples that were taken out of an image.
    CColourPlane(std::size_t nRows, std::size_t nColumns, std::vector<float>&& vecSamples)
        : m_nRows(nRows), m_nColumns(nColumns), m_vecOwn(std::move(vecSamples)), m_pSamples(m_vecOwn.data()) {}
    CColourPlane(CColourPlane&&) = default;

    std::size_t rows() const { return m_nRows; }
    std::size_t columns() const { return m_nColumns; }
    std::size_t size() const { return m_nRows * m_nColumns; }
    const float* row(std::size_t iRow) const { return m_pSamples + iRow * m_nColumns; }
    const float* begin() const { return m_pSamples; }
    const float* end() const { return m_pSamples + size(); }

private:
    std::size_t m_nRows, m_nColumns;
    std::vector<float> m_vecOwn;
    const float* m_pSamples;
};

/// The samples of class iClass; empty where the image has no site of it. Those of an image without colours are borrowed
/// from it.
CColourPlane colourPlane(const StandIn::ImageLayout& rLayout, const std::vector<float>& vecSamples, unsigned iClass);
CColourPlane colourPlane(const StandIn::ImageLayout& rLayout, std::vector<float>&& vecSamples,
                         unsigned iClass) = delete;

}  // namespace Toolkit
}  // namespace XAPEL2
