// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "standin/pixels/LargeMemory.h"
#include "standin/processor/references/FrameSums.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

__extension__ typedef unsigned __int128 UInt128;

/// A running recording. All sums are integers, so the order of the images does not change a bit of the result.
/// Takes 2 bytes a sample for 8-bit formats and 4 for others, so that adding an image moves little memory; beyond 257
/// or 65537 images at full scale (more where the full scale is lower) 8 more. @threads one at a time.
class CReferenceRecorder {
public:
    explicit CReferenceRecorder(eReferenceKind eKind) : m_eKind(eKind) {}

    /// Adds an image; the first one fixes format and size.
    /// @param[in] rLayout  a possible layout, after the first image the same one.
    /// @param[in] pImage   borrowed for the call, rLayout.bytes() bytes.
    /// @throws std::bad_alloc  only for the first image and the one that wants wider sums; the recording is as before.
    void add(const ImageLayout& rLayout, const void* pImage);

    eReferenceKind kind() const { return m_eKind; }
    uint64_t images() const { return m_nImages; }
    /// Layout of the recording; meaningful once it has an image.
    const ImageLayout& layout() const { return m_sLayout; }

    /// The reference of the images so far, of which there must be one at least. The recording goes on unchanged.
    /// @throws std::bad_alloc
    ReferenceImage reference() const;

private:
    static constexpr std::size_t CLASSES_MAX = 4;

    /// Empties the narrow sums into the wide ones.
    void widen();
    uint64_t sum(std::size_t iSample) const;
    /// Adds a run of samples, unpacked, whose first one is sample iFirst of the image.
    FrameFigures addRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples);
    /// Adds the frame's figures, as the sums of its classes, to those of the recording.
    void closeFrame(const std::array<int64_t, CLASSES_MAX>& rSums);

    /// What is added up for a colour class.
    struct ClassSums {
        UInt128 uSquares = 0;       // over all samples of all images of (sample - centre)^2
        UInt128 uFrameSquares = 0;  // over all images of (sum of the image)^2
    };
    eReferenceKind m_eKind;
    ImageLayout m_sLayout;
    uint64_t m_nImages = 0;
    uint64_t m_nSaturated = 0;
    uint32_t m_uLargest = 0;
    FrameMeans m_sMeans;
    std::array<ClassSums, CLASSES_MAX> m_aClasses;

    // Sums of each sample over the images. One of the narrow ones is in use, by the format; a sum of all images is the
    // narrow one and, once there are wide ones, the wide one together.
    std::vector<uint16_t, LargeAllocator<uint16_t>> m_vSums16;
    std::vector<uint32_t, LargeAllocator<uint32_t>> m_vSums32;
    std::vector<uint64_t, LargeAllocator<uint64_t>> m_vSums64;
    uint64_t m_nNarrow = 0;  // images in the narrow sums
};

}  // namespace StandIn
}  // namespace XAPEL2
