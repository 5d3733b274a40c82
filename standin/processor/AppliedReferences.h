// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References that have been applied, and what corrects an image with them, wherever on the sensor it lies.

#pragma once

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "standin/processor/correction/Correction.h"
#include "standin/processor/filters/ReferenceFilter.h"
#include "standin/processor/references/DerivedReference.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// A pair of references; one may be null, not both. By eReferenceKind.
typedef std::array<std::shared_ptr<const ReferenceImage>, 2> ReferencePair;

/// What is used for an image.
struct CorrectionInUse {
    std::unique_ptr<ICorrection> pCorrection;
    std::shared_ptr<const std::string> pDescription;  ///< with the place on the sensor
};

/// Keeps the pair, filtered on all of its sensor, and its targets, so that brightness does not depend on the window.
/// What corrects images of one format, size and place is built when the first of them comes; the last four are kept,
/// and so are the last four places that were refused.
/// @threads one at a time.
class CAppliedReferences {
public:
    static constexpr std::size_t KEPT = 4;
    static constexpr std::size_t REFUSED = 4;

    /// @throws std::bad_alloc  @throws CUnfitPair
    explicit CAppliedReferences(const ReferencePair& rPair);

    /// Two references that do not belong together.
    class CUnfitPair : public std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    /// True where a reference tells where it lies. Where none does, images are taken as they come; where one of two
    /// does, those that lie there.
    bool isPlaced() const { return m_bPlaced; }
    /// Whether the samples of the format are those of the references, whatever the colour phase.
    bool hasSamplesLike(const PixelFormat& rFormat) const;
    /// The reference that decides about brightness.
    const ReferenceImage& main() const { return *(m_pair[eReferenceLight] ? m_pair[eReferenceLight] : m_pair[0]); }
    /// True for the size of an image of which nobody knows where it lies: that of the references.
    bool isOwnSize(const ImageLayout& rLayout) const;
    /// True where an image of the size can lie in the references.
    bool takesSize(const ImageLayout& rLayout) const;
    /// True where the references are a window, so that an image of their size may be another one.
    bool isWindow() const;

    /// Why the pair says nothing about an image.
    /// @param[in] rGeometry  not known: taken for that of the main reference. @throws std::bad_alloc
    ePlaceObstacle obstacle(const ImageLayout& rLayout, const ImageGeometry& rGeometry) const;
    /// The same, remembered where there is one: every frame of a stream asks. @throws std::bad_alloc
    ePlaceObstacle obstacleOnce(const ImageLayout& rLayout, const ImageGeometry& rGeometry);

    /// Filters the pair and takes its targets, before anything is built. @throws std::bad_alloc
    void prepare(const std::array<FilterRadii, 2>& rRadii);

    /// What corrects images of this layout and place: one of those kept, else null.
    /// @param[in] rGeometry  not known: taken for that of the main reference.
    const CorrectionInUse* find(const ImageLayout& rLayout, const ImageGeometry& rGeometry);
    /// Builds it. The image has no obstacle; of one whose place is not known isOwnSize() holds. @throws std::bad_alloc
    const CorrectionInUse& build(const ImageLayout& rLayout, const ImageGeometry& rGeometry);

private:
    struct Kept : CorrectionInUse {
        ImageLayout layout;
        ImageGeometry geometry;
        uint64_t iLastUse = 0;
    };
    struct Refused {
        ePlaceObstacle eWhy = eNoObstacle;  // none: not used yet
        ImageLayout layout;
        ImageGeometry geometry;
    };
    /// What of the pair an image takes.
    struct Derived {
        std::array<std::vector<float>, 2> aOwned;
        std::array<const std::vector<float>*, 2> apSamples = {};
        std::vector<uint8_t> vecDefects;
        ClassTargets aTargets{};
        CorrectionOutput::Crop crop{};
    };

    bool isPlainCrop(const ImageLayout& rLayout, const ImageGeometry& rGeometry) const;
    CDerivation derivation(eReferenceKind eKind, const ImageLayout& rLayout, const ImageGeometry& rGeometry) const;
    const std::vector<float>& samplesOf(eReferenceKind eKind) const;
    CorrectionOutput output() const;
    void setTargets();
    void derive(const ImageLayout& rLayout, const ImageGeometry& rGeometry);

    const ImageGeometry& place() const { return m_aPlaces[m_pair[eReferenceLight] ? eReferenceLight : eReferenceDark]; }

    const ReferencePair m_pair;
    std::array<ImageGeometry, 2> m_aPlaces{};
    std::array<std::vector<float>, 2> m_aFiltered;  // empty: not filtered
    bool m_bPlaced = false;
    bool m_bHalfPlaced = false;
    ClassTargets m_aTargets{};  // of the light reference
    Derived m_derived;          // of the image that was built for last; its memory is used again
    std::vector<Kept> m_vecKept;
    std::array<Refused, REFUSED> m_aRefused{};
    std::size_t m_iNextRefused = 0;  // the oldest
    uint64_t m_nUses = 0;
};

}  // namespace StandIn
}  // namespace XAPEL2
