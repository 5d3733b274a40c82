// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references for a report.

#pragma once

#include "toolkit/figures/Measurement.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Pair.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Rounds the light reference to whole DN and has the image processor correct it by the pair.
/// @param[in] rLight  what the light reference's file holds.
/// @throws std::runtime_error, Exceptions::IException  the pair cannot be applied.
/// @threads one at a time in a process.
SceneFrames selfTestFrames(const PairOptions& rPair, const StandIn::ReferenceImage& rLight);

/// judge(), and the self test of SelfTest.h where the two references fit each other.
/// @throws, @threads as selfTestFrames().
JudgedPair judgeWithSelfTest(const PairOptions& rPair);

}  // namespace Toolkit
}  // namespace XAPEL2
