// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Correction tables built from references, and the kernels that correct an image with them.

#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Corrects images of one format and size.
class ICorrection {
public:
    virtual ~ICorrection() = default;
    /// Corrects an image in place; allocates nothing. @param[in,out] pImage  sLayout.bytes() bytes of the layout that
    /// the correction was built for, any alignment. @threads any, for different images at once too.
    virtual void correct(void* pImage) const noexcept = 0;
    /// Table layout and vector target in words, for benches and bug reports; no fixed form.
    /// @throws std::bad_alloc  @threads any.
    virtual std::string description() const = 0;
};

/// T_c of each colour class (ImageLayout::classOf()).
typedef std::array<double, 4> ClassTargets;

/// How corrected images come out.
struct CorrectionOutput {
    ReferenceOutput output;
    const std::vector<uint8_t>* pDefects = nullptr;  ///< as ReferenceImage::vecDefects, borrowed; null: none
    /// T_c by class, DN, where they are not those of this image, borrowed for the call; null: as the output says.
    const ClassTargets* pTargets = nullptr;
    /// Where the image is a part of the references, which then is taken from them without a copy; goes with pTargets.
    struct Crop {
        std::size_t iFirst = 0;    ///< sample of the references that is the image's first one
        std::size_t nRowStep = 0;  ///< samples from a row of the references to the next; 0: the image is all of them
    } crop{};
};

/// Builds the correction for a layout: result = clamp(round((in - D) * G + P), 0, full scale), where a sample at full
/// scale stays as it is. P is the pedestal, 0 unless the output says otherwise: with it noise around black survives,
/// as in - D may be negative. Per colour class c (mono 1, colour filter array 4 sites, RGB 3 channels) the target T_c
/// is
/// - the mean of (L - D) over the class (eTargetMean);
/// - its largest mean over a cell of 16 x 16 pixels, marked pixels left out (eTargetMax): the brightest place has gain
///   1 and all else is lifted to it. A cell and not a pixel, as the brightest of millions lies some standard deviations
///   above its place, by which the whole image would be too bright. Cells with less than half of their pixels good
///   and those cut off at the right and bottom edges do not count; where no cell does, the mean stands in;
/// - the value in DN (eTargetValue).
/// G = T_c / (L - D), limited to [0, 16); G = 1 where L - D is not above 0 (flat-field correction: dark frame
/// subtracted, then multiplied by the normalised gain). Against this formula in double precision, not rounded, a result
/// is off by at most 1 DN up to 12 bits, by at most 1 + G/2 DN at 14 and 16 bits.
/// @param[in] pDark   D in DN, sLayout.samples() values of 0 to full scale, borrowed; null: D = 0.
///                    Of binned pixels that are added up D and L may lie above full scale.
/// @param[in] pLight  L in DN, as pDark; null: G = 1.
/// At last each pixel that the output marks is replaced: see defectNeighbours(). Its neighbours are all corrected
/// before, also those of the rows below. A marked pixel counts in the mean, so that marking it changes no other.
/// @param[in] pTarget  one of correctionTargets(), for tests and benches; null: the fastest, which is found out once
/// for
///                     each width and size class by measuring for at most 3 ms. Another text acts as null.
/// @throws std::bad_alloc
std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget = nullptr,
                                            const CorrectionOutput& rOutput = {});

/// T_c that makeCorrection() takes for this pair; of no meaning without a light reference. @throws std::bad_alloc
ClassTargets classTargets(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
                          const CorrectionOutput& rOutput);

/// Names of the ways to correct on this processor: kind of vectors, their steps, how far ahead memory is asked for. The
/// first have the widest vectors, the last is "scalar", the definition itself. All give the same bytes. @throws
/// std::bad_alloc  @threads any.
std::vector<const char*> correctionTargets();

/// Fraction bits of a table.
struct FixedPoint {
    unsigned nOffsetBits;
    unsigned nGainBits;
};

/// The definition of a corrected sample; every kernel gives its result exactly. A product half way between two values
/// is rounded up. Offset and input stay within 2^28, the gain below 2^30, so 64 bits hold the product.
/// @param[in] iOffset  D in 2^-nOffsetBits DN.   @param[in] uGain  G in 2^-nGainBits.
/// @param[in] uPedestal  P in the unit of the product, at most full scale.
inline uint16_t correctSample(uint32_t uIn, int32_t iOffset, uint32_t uGain, const FixedPoint& rPoint, uint32_t uFull,
                              uint64_t uPedestal = 0) noexcept {
    if (uIn >= uFull) {
        return static_cast<uint16_t>(uFull);
    }
    const int64_t iSignal = int64_t{uIn << rPoint.nOffsetBits} - int64_t{iOffset};
    const unsigned nBits = rPoint.nOffsetBits + rPoint.nGainBits;
    const auto iRaise = static_cast<int64_t>(uPedestal + (1ULL << nBits >> 1));
    const int64_t iResult = std::max<int64_t>(iSignal * int64_t{uGain} + iRaise, 0) >> nBits;
    return static_cast<uint16_t>(std::min<int64_t>(iResult, int64_t{uFull}));
}

}  // namespace StandIn
}  // namespace XAPEL2
