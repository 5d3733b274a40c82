// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "standin/processor/references/FrameGroup.h"
#include "standin/processor/references/FrameLook.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// A running recording. All sums are integers, so the order of the images does not change a bit of the result.
/// Takes 2 bytes a sample for 8-bit formats and 4 for others, so that adding an image moves little memory; beyond 128
/// or 65537 images at full scale (more where the full scale is lower) 8 more.
///
/// Each image is looked at before it is added. One whose brightness or shape is not that of the others goes to sums of
/// its own (once again the memory of the sums, twice at most), and a sample that lies far from the mean of its pixel's
/// earlier ones has its pixel watched: from then on what it holds is kept by itself. So no image needs to be kept, any
/// of them may be the odd one, the first, too, and what is done about it is decided at the end. @threads one at a time.
class CReferenceRecorder {
public:
    explicit CReferenceRecorder(eReferenceKind eKind) : m_eKind(eKind) {}

    /// Adds an image; the first one fixes format and size.
    /// @param[in] rLayout  a possible layout, after the first image the same one.
    /// @param[in] pImage   borrowed for the call, rLayout.bytes() bytes.
    /// @throws std::bad_alloc  the recording is as before.
    void add(const ImageLayout& rLayout, const void* pImage);

    eReferenceKind kind() const { return m_eKind; }
    uint64_t images() const { return m_nImages; }
    /// Layout of the recording; meaningful once it has an image.
    const ImageLayout& layout() const { return m_layout; }

    /// The reference of the images so far, of which there must be one at least. The recording goes on unchanged. From
    /// eight images on what left the others stays out, unless the images are of so many kinds (more than a quarter is
    /// not of the most frequent one) that nobody can tell which are right.
    /// @param[in] bKeepOutliers  it stays in, and is told.
    /// @throws std::bad_alloc
    ReferenceImage reference(bool bKeepOutliers = false) const;

private:
    const CFrameGroup& mostFrequent() const;
    bool belongsTo(const CFrameGroup& rGroup, const CFrameGroup& rTo) const;
    void tellFrames(const CFrameGroup& rGroup, const CFrameGroup& rOthers, bool bLeftOut,
                    std::vector<FrameOutlier>& rPlaces) const;
    void tellBrightness(const CFrameGroup& rGroup, std::vector<FrameOutlier>& rPlaces) const;

    eReferenceKind m_eKind;
    ImageLayout m_layout;
    uint64_t m_nImages = 0;
    std::unique_ptr<CFrameLook> m_pLook;
    // Kinds of frames: two, and one for all that is neither.
    std::vector<std::unique_ptr<CFrameGroup>> m_vecGroups;
};

}  // namespace StandIn
}  // namespace XAPEL2
