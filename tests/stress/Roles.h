// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the threads do to the cameras.

#pragma once

#include <vector>

#include "Camera.h"
#include "Worker.h"

namespace XapelStress {

/// A part that a thread plays on one camera, step after step until the episode ends.
struct Role {
    const char* pName;
    unsigned iInstance;  ///< tells two of one kind apart
    void (*pfnStep)(CWorker&, CCamera&, unsigned iInstance);
};

/// All may run at the same time, on one camera or on several. Those that fetch come first.
constexpr unsigned FETCHES = 2;
const std::vector<Role>& roles();
void reopenStep(CWorker& rWorker, CCamera& rCamera, unsigned);

/// Ends every fetch that waits, as the application's cancel does.
void cancelFetches(CWorker& rWorker, CCamera& rCamera);

}  // namespace XapelStress
