// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images of floating-point samples: masters that other programs made, and maps for them.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A reference from the mean image that somebody else made: a plain TIFF of 32-bit floating-point samples in DN.
/// @param[in] rFormat  of the frames that it is the mean of. @param[in] nImages  how many these were.
/// Nothing is known of their noise.
/// @throws std::runtime_error  the file cannot be used, or a sample is no number from 0 to full scale; names it.
StandIn::ReferenceImage referenceFromFloat(const std::string& strFile, StandIn::eReferenceKind eKind,
                                           const StandIn::PixelFormat& rFormat, uint64_t nImages);

/// Writes samples as such a TIFF, as references are written.
/// @throws std::runtime_error  it cannot be written; names it.
void writeFloatImage(const std::string& strFile, const StandIn::ImageLayout& rLayout,
                     const std::vector<float>& vecSamples);

}  // namespace Toolkit
}  // namespace XAPEL2
