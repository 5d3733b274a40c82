// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a camera with correction off and on, for a report.

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Progress.h"
#include "toolkit/sessions/Session.h"

namespace XAPEL2 {
namespace Toolkit {

/// One frame, fetched with correction off and on.
struct FramePair {
    Frame raw, corrected;
};

/// The frames of one scene.
struct SceneFrames {
    std::optional<MeanImage> before, after;  ///< empty where there is no frame
    std::optional<FramePair> shown;          ///< the last frame

    uint64_t frames() const { return before ? before->nFrames : 0; }
    /// Two frames or more tell fixed pattern and noise apart.
    bool isMeasured() const { return frames() >= 2; }
};

/// Which frames of a camera go into a reference, and which are left to judge it by.
struct FramePlan {
    uint64_t nReference = 0;
    uint64_t nTest = 0;  ///< those that follow
};

/// Frames of each scene of a camera.
struct SceneCounts {
    static constexpr uint64_t ENDLESS = ~0ULL;
    uint64_t nDark = ENDLESS, nLight = ENDLESS, nScene = ENDLESS;
};

/// Of a camera with scenes; selects them in turn. A camera that has frames of one scene has none of another whose count
/// is 0.
SceneCounts countFrames(CSession& rSession);

/// Divides nFrames frames of a scene. Of a camera without end both get what they ask for. Otherwise a quarter of the
/// frames is for the test, no fewer than two and no more than asked for, as long as the reference keeps one.
FramePlan planFrames(uint64_t nFrames, uint64_t nReference, uint64_t nTest);

/// Of a scene with nFrames frames, how many are left after the first nReference ones, nTest at most.
uint64_t framesLeft(uint64_t nFrames, uint64_t nReference, uint64_t nTest);

/// What a camera shows of each scene with correction off and on.
struct MeasuredFrames {
    SceneFrames dark, light, scene;
    std::vector<double> vecPlainMs,
        vecCorrectedMs;  ///< time of each fetch of a waiting frame, off and on; may be empty
};

/// Frames of each reference where nobody names a number and the camera delivers without end.
constexpr uint64_t REFERENCE_FRAMES = 16;

/// Records the references of a camera with scenes into rFolder, each from the frames that planFrames() gives it.
/// @return the files, "reference-dark.tif" and "reference-light.tif"; one for which there is no frame has no name.
/// @throws as recordReference().
PairOptions recordPair(CSession& rSession, uint64_t nReference, uint64_t nTest, const std::filesystem::path& rFolder,
                       IProgress& rProgress);

/// What else is done with each pair of frames of the light and the scene.
using PairSink = std::function<void(const FramePair&)>;

/// Fetches the dark and the light frames that are not in the references, nTest at most: of recorded frames those that
/// no reference tells of by their content (a reference that tells of none took the first ones), of an endless camera
/// later ones; and the first nScene of the
/// scene, each twice: a camera with scenes delivers the same frame again, another one the next two. A camera without
/// scenes shows what it is pointed at, an even target.
/// @param[in] rPair  applied to the session.
/// @throws std::runtime_error  a frame cannot be fetched, or the camera delivers another one than asked for.
MeasuredFrames measureFrames(CSession& rSession, const JudgedPair& rPair, uint64_t nTest, uint64_t nScene,
                             IProgress& rProgress, const PairSink& fnPair = {});

}  // namespace Toolkit
}  // namespace XAPEL2
