// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What run and correct have in common: frames are corrected, written, and accounted for.

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Toolkit.h"
#include "toolkit/frames/FrameWorkers.h"
#include "toolkit/frames/FrameWriter.h"
#include "toolkit/sessions/CorrectedStream.h"

namespace XAPEL2 {
namespace App {

/// Where corrected frames go.
struct FrameOutput {
    std::string strFolder;  ///< empty: nowhere
    std::string strFormat;  ///< "pgm" or "tiff"
    bool bRaw = false;      ///< the uncorrected ones too, to FOLDER/raw
    bool bOverwrite = false;
    CSourceFiles sources;                             ///< never written over
    std::string strMark;                              ///< what each corrected one says of itself
    bool bFromFiles = false;                          ///< the frames come from files, and no one waits for them
    std::function<void(const Frame&)> fnCorrected{};  ///< what else is done with each corrected frame, by its name
};

/// Corrects the frames of a session.
/// @threads that of the session.
class CCorrectionRun {
public:
    /// @param[in] rSession  borrowed; a pair has been applied.
    CCorrectionRun(CSession& rSession, const FrameOutput& rFrames);

    /// Fetches this many frames of the scene, from the first one on; 0: until the user ends it. Each reason why frames
    /// are left as they are, and each trouble of the camera, is said once on stderr. Ends early, and without an
    /// exception, when the user wants to. Other frames, fetched before them, tell how long a fetch takes without
    /// correction; where the uncorrected frames are written too, that takes none, and where only corrected ones are, it
    /// is left out. Frames are written beside this thread, out of the session's own buffers.
    void run(uint64_t nFrames);

    const CorrectionTally& tally() const { return m_stream.tally(); }

    /// Tells how many frames came, how fast, what became of them, and what correction added to their time.
    void describe(COutput& rOutput) const;

private:
    void fetchFrames(uint64_t nFrames);
    void tellTroubles(const CCorrectedStream::Fetched& rFetched);
    std::string nameOf(const CCorrectedStream::Fetched& rFetched) const;
    void write(CCorrectedStream::Fetched& rFetched);
    void describeTime(COutput& rOutput) const;

    CSession& m_rSession;
    FrameOutput m_frames;
    CCorrectedStream m_stream;
    CProgress m_progress;
    std::optional<CFrameWriter> m_corrected, m_raw;
    std::set<std::string> m_said;  // traces of the camera
    std::atomic<uint64_t> m_nWritten{0};
    uint64_t m_nUnderruns = 0;
    std::optional<CFrameWorkers> m_workers;  // last: its work is on the members above
};

}  // namespace App
}  // namespace XAPEL2
