// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrects every row of an image with the table of one row.

#pragma once

#include <memory>
#include <vector>

#include "standin/processor/correction/Correction.h"

namespace XAPEL2 {
namespace StandIn {

/// As makeCorrection(), from references and a map of one row, for images of any height. Not for filter arrays. Where
/// rows of a packed format end within a byte, the table has as many rows as fill whole bytes, 4 at most.
/// @param[in] rLayout  of the image.
/// @throws std::bad_alloc
std::unique_ptr<ICorrection> makeLineCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                                const std::vector<float>* pLight, const CorrectionOutput& rOutput);

}  // namespace StandIn
}  // namespace XAPEL2
