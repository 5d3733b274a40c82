// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether corrected images fit into their samples.

#pragma once

#include "toolkit/judgement/Judgement.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// What the target and the pedestal of a light reference make of an even image as bright as it: "output-clipped", a
/// refusal, where a colour comes to full scale; "output-bright", a warning, where it comes to 80 % or more, and
/// "output-dim" where one comes to less than 1 % above the pedestal. Nothing where they say nothing, as the reference's
/// own mean is judged by itself.
/// @param[in] rDark,rLight  of one layout. @throws std::bad_alloc
Findings judgeOutputLevel(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight);

}  // namespace Toolkit
}  // namespace XAPEL2
