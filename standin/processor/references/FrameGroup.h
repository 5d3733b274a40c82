// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a recording that are of one kind: their sums, and the samples that left their pixel's others.

#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "standin/pixels/LargeMemory.h"
#include "standin/processor/references/FrameLook.h"
#include "standin/processor/references/FrameSums.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

__extension__ typedef unsigned __int128 UInt128;

/// What is kept of a single frame.
struct FrameRecord {
    uint64_t iFrame = 0;                                   ///< number in the recording, from 0 on
    std::array<int64_t, CNoiseLaw::CLASSES_MAX> aiSums{};  ///< by class, of the samples
    uint64_t nSaturated = 0;
    uint32_t uLargest = 0;
    double dGain = 1.0;          ///< brightness, relative to the first frame of the group
    FrameDifference difference;  ///< from the frames of another group, for which it was not put to them
};

/// Brightness of the frames of a group, relative to the first of them.
struct GainRange {
    double dLeast = 1.0, dMost = 1.0, dMean = 1.0;
};

/// A pixel that a sample left: the sum of those before, which agreed, and from then on each sample by itself.
struct WatchedSample {
    uint64_t iSample = 0;
    uint64_t nBefore = 0;  ///< frames of the group before
    uint64_t uBefore = 0;  ///< their sum
};

/// The frames of one kind. Takes 2 bytes a sample for 8-bit formats and 4 for others, 8 more for many frames, an eighth
/// of a byte for the watched ones, and for each of these what they hold. @threads one at a time.
class CFrameGroup {
public:
    /// @throws std::bad_alloc
    CFrameGroup(const ImageLayout& rLayout, const CFrameLook& rLook);

    /// Compares a frame with the group's mean; there must be one at least.
    FrameView compare(const std::vector<float>& rLook) const;
    /// Adds a frame; those after the first one are screened where pView tells how they compare.
    /// @throws std::bad_alloc  the group is as before.
    void add(uint64_t iFrame, const void* pImage, const FrameView* pView);
    FrameRecord& lastFrame() { return m_vecFrames.back(); }

    uint64_t images() const { return m_vecFrames.size(); }
    const GainRange& gains() const { return m_gains; }
    const std::vector<FrameRecord>& frames() const { return m_vecFrames; }
    uint64_t sum(std::size_t iSample) const;
    /// Over all samples of a class and all frames, of (sample - centre)^2.
    UInt128 squares(unsigned iClass) const { return m_auSquares[iClass]; }
    uint32_t centre() const { return m_vecSums16.empty() ? FRAME_CENTRE : 0; }

    const CNoiseLaw& law() const { return m_law; }
    const std::vector<WatchedSample>& watched() const { return m_vecWatched; }
    /// Sample of the group's frame iFrame, not before its nBefore.
    uint16_t valueOf(std::size_t iWatched, std::size_t iFrame) const {
        return m_vecValues[m_vecOffsets[iFrame] + iWatched];
    }
    /// True where so many samples left their pixels that they could not be watched.
    bool isLost() const { return m_bLost; }

private:
    static constexpr std::size_t BLOCK = 49152;  // samples of a run, a multiple of what classes and vectors want
    static constexpr std::size_t PACKED_BLOCK = 4096;

    void widen();
    FrameFigures addRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples, std::size_t iBlock,
                        const FrameView* pView);
    void screenRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples, std::size_t iBlock,
                   const FrameView& rView, FrameFigures& rFigures);
    uint16_t sampleAt(const void* pSamples, std::size_t iSample) const;  // of samples that are not packed
    double farthest(unsigned iClass, double dLevel) const;
    void watch(std::size_t iSample, uint64_t uBefore);
    void keepWatched(const void* pImage);
    void loseWatched();

    ImageLayout m_layout;
    const CFrameLook& m_rLook;
    std::vector<FrameRecord> m_vecFrames;
    std::array<UInt128, CNoiseLaw::CLASSES_MAX> m_auSquares{};
    CNoiseLaw m_law;
    GainRange m_gains;

    // Sums of each sample over the frames. One of the narrow ones is in use, by the format; a sum of all frames is the
    // narrow one and, once there are wide ones, the wide one together.
    std::vector<uint16_t, LargeAllocator<uint16_t>> m_vecSums16;
    std::vector<uint32_t, LargeAllocator<uint32_t>> m_vecSums32;
    std::vector<uint64_t, LargeAllocator<uint64_t>> m_vecSums64;
    uint64_t m_nNarrow = 0;      // frames in the narrow sums
    double m_dNarrowGain = 0.0;  // mean brightness of these

    std::vector<int64_t> m_vecBlockSums;  // of the samples of each class of each block, over the frames
    std::vector<uint32_t> m_vecHits;      // scratch
    std::vector<WatchedSample> m_vecWatched;
    std::vector<bool> m_vecIsWatched;
    std::vector<uint16_t> m_vecValues;      // of the watched, frame by frame
    std::vector<std::size_t> m_vecOffsets;  // of each frame
    bool m_bLost = false;
};

}  // namespace StandIn
}  // namespace XAPEL2
