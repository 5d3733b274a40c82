// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Runs a check once with each set of instructions that this machine supports, and without any.

#pragma once

#include <gtest/gtest.h>

#include "hwy/highway.h"

namespace XAPEL2 {
namespace StandIn {

template <class F>
void forEachTarget(F fnCheck) {
    hwy::SetSupportedTargetsForTest(0);
    int64_t iTargets = hwy::SupportedTargets() | HWY_STATIC_TARGET;
#ifdef __SANITIZE_THREAD__
    // To threads all sets are alike: the best will do, the others take minutes when each access is watched.
    iTargets &= -iTargets;
#endif
    for (; iTargets != 0; iTargets &= iTargets - 1) {
        const int64_t iTarget = iTargets & -iTargets;
        SCOPED_TRACE(hwy::TargetName(iTarget));
        hwy::GetChosenTarget().Update(iTarget);
        fnCheck();
    }
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

}  // namespace StandIn
}  // namespace XAPEL2
