// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Samples that have fewer bits than their format.

#pragma once

#include "toolkit/judgement/Judgement.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// "fewer-bits": a light reference of 16 bits in which no sample needs them, and the format that would do. "saturated":
/// many samples stand at the largest value of all in every frame, which refuses the reference as full scale does: at
/// the full scale of fewer bits, or at any value where samples have noise, such as that of 12 bits moved to the left by
/// four. Nothing where the file does not tell the largest sample.
Findings judgeBits(const StandIn::ReferenceImage& rReference);

}  // namespace Toolkit
}  // namespace XAPEL2
