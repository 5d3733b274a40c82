// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Recording a reference from the live stream.

#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "toolkit/sessions/Progress.h"
#include "toolkit/sessions/Session.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// How a recording went.
struct Recording {
    uint64_t nFrames = 0;          ///< frames in the mean
    uint64_t nLeftOut = 0;         ///< frames that came incomplete
    std::string strLeftOut;        ///< why, of the first of them
    uint64_t nUnderruns = 0;       ///< frames that found no buffer free
    double dSeconds = 0.0;         ///< that fetching took
    double dSaturatedShare = 0.0;  ///< share of samples at full scale, 0 to 1
    std::string strNoSettings;     ///< why the camera's settings are not in the file; empty: they are
};

/// Points a camera that has scenes at the dark or light one, averages nFrames of its frames, from its first one on, and
/// writes the reference. Frames that come incomplete are left out, and others taken. A camera with fewer frames gives
/// those that it has. The file appears whole or not at all. It tells the camera's settings, where they can be read.
/// @throws std::runtime_error  the camera or the file cannot be used; an older file of this name is as it was.
/// @throws CInterruptedError   the same.
/// What left the other frames stays out of the mean of 8 frames or more, and is told in the file, see
/// StandIn::RecordingOutliers.
/// With its settings the file tells when it was recorded, how many frames the recording took, those that were left out
/// included, and of a camera that has only so many frames which these were.
/// @param[in] bKeepOutliers  what left the others stays in.
Recording recordReference(CSession& rSession, bool bLight, uint64_t nFrames, const std::string& strFile,
                          IProgress& rProgress, bool bKeepOutliers = false);

/// Makes a reference of one row of a reference: the mean of its rows, whose number it tells.
/// @throws std::runtime_error  it is of a filter array, or the file cannot be used.
void foldToLine(const std::string& strFile);

/// How many frames of its scene, from the first one on, a recording took for this reference; where the file does not
/// tell, as many as it is the mean of.
uint64_t framesTaken(const StandIn::ReferenceImage& rReference);

/// The hashes of the frames that the reference is made of, see frameHash(); none where the file does not tell. Then
/// only framesTaken() does.
std::multiset<std::string> frameHashes(const StandIn::ReferenceImage& rReference);

}  // namespace Toolkit
}  // namespace XAPEL2
