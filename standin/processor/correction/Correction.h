// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Correction tables built from references, and the kernels that correct an image with them.

#pragma once

#include <algorithm>
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

/// Builds the correction for a layout: result = clamp(round((in - D) * G), 0, full scale), where a sample at full scale
/// stays as it is. Per colour class c (mono 1, colour filter array 4 sites, RGB 3 channels) T_c = mean of (L - D) and
/// G = T_c / (L - D), limited to [0, 16); G = 1 where L - D is not above 0 (flat-field correction: dark frame
/// subtracted, then multiplied by the normalised gain). Against this formula in double precision a result is off by at
/// most 1 DN up to 12 bits, by at most 1 + G/2 DN at 14 and 16 bits.
/// @param[in] pDark   D in DN, sLayout.samples() values of 0 to full scale, borrowed; null: D = 0.
/// @param[in] pLight  L in DN, as pDark; null: G = 1.
/// @param[in] pTarget  one of correctionTargets(), for tests and benches; null: the fastest. Another text acts as null.
/// @throws std::bad_alloc
std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget = nullptr);

/// Names of the kinds of vectors that this processor can correct with, fastest first; the last is "scalar", the
/// definition itself. All give the same bytes. @throws std::bad_alloc  @threads any.
std::vector<const char*> correctionTargets();

/// Fraction bits of a table.
struct FixedPoint {
    unsigned nOffsetBits;
    unsigned nGainBits;
};

/// The definition of a corrected sample; every kernel gives its result exactly. A product half way between two values
/// is rounded up. Offset and input stay below 2^28, the gain below 2^30, so 64 bits hold the product.
/// @param[in] uOffset  D in 2^-nOffsetBits DN.   @param[in] uGain  G in 2^-nGainBits.
inline uint16_t correctSample(uint32_t uIn, uint32_t uOffset, uint32_t uGain, const FixedPoint& rPoint,
                              uint32_t uFull) noexcept {
    if (uIn >= uFull)
        return static_cast<uint16_t>(uFull);
    const uint32_t uScaled = uIn << rPoint.nOffsetBits;
    const uint64_t uSignal = uScaled > uOffset ? uScaled - uOffset : 0;
    const unsigned nBits = rPoint.nOffsetBits + rPoint.nGainBits;
    const uint64_t uResult = (uSignal * uGain + (1ULL << nBits >> 1)) >> nBits;
    return static_cast<uint16_t>(std::min<uint64_t>(uResult, uFull));
}

}  // namespace StandIn
}  // namespace XAPEL2
