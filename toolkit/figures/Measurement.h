// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a camera with correction off and on, for a report.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "toolkit/judgement/FrameStack.h"
#include "toolkit/sessions/Progress.h"
#include "toolkit/sessions/Session.h"

namespace XAPEL2 {
namespace Toolkit {

/// One frame, fetched with correction off and on.
struct FramePair {
    Frame Raw, Corrected;
};

/// The frames of one scene.
struct SceneFrames {
    std::optional<MeanImage> Before, After;  ///< empty where there is no frame
    std::optional<FramePair> Shown;          ///< the last frame
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

/// Fetches frames and times them.
/// @threads those of the session.
class CMeasurement {
public:
    /// What else is done with each pair of frames.
    using PairSink = std::function<void(const FramePair&)>;

    /// @param[in] rSession   borrowed; its references are applied.
    /// @param[in] rProgress  borrowed.
    CMeasurement(CSession& rSession, IProgress& rProgress) : m_rSession(rSession), m_rProgress(rProgress) {}

    /// Fetches nFrames frames of a scene from frame iFirst on, each twice: a camera with scenes delivers the same frame
    /// again, another one the next two.
    /// @param[in] pScene  "Dark", "Light", "Scene"; a camera without scenes shows what it is pointed at.
    /// @throws std::runtime_error  a frame cannot be fetched, or the camera delivers another one than asked for.
    SceneFrames measure(const char* pScene, uint64_t iFirst, uint64_t nFrames, const PairSink& fnPair = {});

    /// Time of each fetch of a waiting frame, ms, with correction off and on.
    const std::vector<double>& plainMs() const { return m_vecPlainMs; }
    const std::vector<double>& correctedMs() const { return m_vecCorrectedMs; }

private:
    FramePair fetchPair(uint64_t iFrame);

    CSession& m_rSession;
    IProgress& m_rProgress;
    std::vector<double> m_vecPlainMs, m_vecCorrectedMs;
};

}  // namespace Toolkit
}  // namespace XAPEL2
