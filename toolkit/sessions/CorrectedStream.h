// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames that were fetched with correction on, and what became of them.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "toolkit/sessions/Session.h"
#include "toolkit/sessions/Times.h"

namespace XAPEL2 {
namespace Toolkit {

/// What became of the frames.
struct CorrectionTally {
    uint64_t nFrames = 0, nCorrected = 0;
    std::map<std::string, uint64_t> mapUntouched;  ///< reason and number of frames left as they were
    double dSeconds = 0.0;                         ///< from the first wait to the last frame
    /// Time that a frame spends more because it is corrected, ms. It is that of the fetch of a frame that waits
    /// already, less the median of uncorrected ones; where the uncorrected frame is wanted too, that of the correction
    /// itself.
    CTimes added;
    uint64_t nUncorrected = 0;  ///< fetches that this median is of

    double rate() const { return dSeconds > 0.0 ? static_cast<double>(nFrames) / dSeconds : 0.0; }
    uint64_t untouched() const { return nFrames - nCorrected; }
};

/// Fetches the frames of a session one by one with correction on. A pair has been applied.
/// @threads that of the session.
class CCorrectedStream {
public:
    /// @param[in] bKeepRaw  give each frame as it was before correction, too.
    CCorrectedStream(CSession& rSession, bool bKeepRaw);

    /// Starts the camera at frame iFirst of its scene with correction on.
    /// @param[in] bTimed  measure what correction adds. Where no uncorrected frames are kept, up to 32 frames are
    ///                    fetched without correction first, for a second or as long as one takes.
    /// @param[in] nFrames  so many are wanted; the camera gives no more.
    void start(uint64_t iFirst, bool bTimed, uint64_t nFrames = ~0ULL);

    /// One fetched frame.
    struct Fetched {
        StandIn::BufferHandle hBuffer = nullptr;  ///< to be given back to the session
        std::string strUntouched;                 ///< why it is as it was; empty: it is corrected
        std::string strDetail;                    ///< the same of this very frame, in the host's words
        bool bNewReason = false;                  ///< no frame before had this reason
        std::optional<Frame> raw;                 ///< before correction, where that was asked for
    };
    /// @throws std::runtime_error  the stream fails, or its frames do not get to the image processor.
    Fetched next();

    void stop() { m_rSession.stop(); }
    const CorrectionTally& tally() const { return m_tally; }

private:
    void measureUncorrected();
    void correctInPlace(Fetched& rFetched);
    void judge(Fetched& rFetched) const;

    CSession& m_rSession;
    bool m_bKeepRaw;
    bool m_bTimed = false;
    double m_dUncorrectedMs = 0.0;
    Clock::time_point m_tBegin;
    CorrectionTally m_tally;
};

}  // namespace Toolkit
}  // namespace XAPEL2
