// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What run and correct have in common: frames are corrected, written, and accounted for.

#include "commands/CorrectionRun.h"

#include <algorithm>
#include <filesystem>
#include <ostream>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {
constexpr std::size_t SAID_MAX = 20;  // a camera in trouble must not flood the screen
}

CCorrectionRun::CCorrectionRun(CSession& rSession, const FrameOutput& rFrames)
    : m_rSession(rSession), m_Frames(rFrames), m_Stream(rSession, rFrames.bRaw) {
    if (m_Frames.strFolder.empty()) {
        return;
    }
    const std::filesystem::path Folder = m_Frames.strFolder;
    m_Corrected.emplace(Folder, m_Frames.strFormat, m_Frames.bOverwrite, m_Frames.Sources);
    if (m_Frames.bRaw) {
        m_Raw.emplace(Folder / "raw", m_Frames.strFormat, m_Frames.bOverwrite, m_Frames.Sources);
    }
}

void CCorrectionRun::write(CCorrectedStream::Fetched& rFetched) {
    if (!m_Corrected || !rFetched.strUntouched.empty()) {
        return;
    }
    Frame Corrected = m_rSession.copyFrame(rFetched.hBuffer);
    // A camera need not name its frames, and its names need not be those of files.
    Corrected.strName = std::filesystem::path(Corrected.strName).filename().string();
    if (Corrected.strName.empty()) {
        const std::string strNumber = std::to_string(tally().nFrames - 1);
        Corrected.strName = "frame_" + std::string(6 - std::min<std::size_t>(6, strNumber.size()), '0') + strNumber;
    }
    if (m_Raw) {
        rFetched.Raw->strName = Corrected.strName;
        m_Raw->requireFree(*rFetched.Raw);
    }
    m_Corrected->write(Corrected);
    if (m_Raw) {
        m_Raw->write(*rFetched.Raw);
    }
    ++m_nWritten;
}

void CCorrectionRun::tellTroubles(const CCorrectedStream::Fetched& rFetched) {
    const auto fnTell = [&](const std::string& strText) {
        m_Progress.clear();
        complain("warning: " + strText);
    };
    // What is wrong with a frame that the camera could not deliver differs from one to the next.
    if (rFetched.strDetail != rFetched.strUntouched && m_Said.size() < SAID_MAX &&
        m_Said.insert(rFetched.strDetail).second) {
        fnTell(rFetched.strDetail);
    }
    if (rFetched.bNewReason) {
        fnTell("frame " + m_rSession.frameName(rFetched.hBuffer) + " is left untouched: " + rFetched.strUntouched);
    }
}

void CCorrectionRun::fetchFrames(uint64_t nFrames) {
    // The frames of a camera without scenes come but once: of those that are to be written none is used up.
    m_Stream.start(0, m_rSession.hasScenes() || !m_Corrected);
    while (nFrames == 0 || tally().nFrames < nFrames) {
        CCorrectedStream::Fetched Fetched = m_Stream.next();
        tellTroubles(Fetched);
        write(Fetched);
        m_rSession.giveBack(Fetched.hBuffer);
        m_Progress.show("correcting", tally().nFrames, nFrames,
                        tally().untouched() == 0 ? "" : std::to_string(tally().untouched()) + " left untouched");
    }
    m_Stream.stop();
}

void CCorrectionRun::run(uint64_t nFrames) {
    try {
        fetchFrames(nFrames);
    } catch (const CInterruptedError&) {
        // What there is by then is told.
    }
    m_nUnderruns = m_rSession.underruns();
    m_Progress.clear();
}

void CCorrectionRun::describeTime(COutput& rOutput) const {
    const CTimes& rAdded = tally().Added;
    if (rAdded.count() == 0) {
        if (tally().nCorrected != 0) {
            rOutput.text() << "What correction adds to a frame is told without -o, or with --raw\n";
        }
        return;
    }
    const double fMedian = rAdded.median(), fP99 = rAdded.quantile(0.99);
    rOutput.text() << "Correction adds " << fixed(fMedian, 3) << " ms to a frame (median), " << fixed(fP99, 3)
                   << " ms (p99), of " << counted(rAdded.count(), "frame");
    if (tally().nUncorrected != 0) {
        rOutput.text() << ", beside " << tally().nUncorrected << " fetched uncorrected before them";
    }
    rOutput.text() << '\n';
    rOutput.json()["addedMs"] = {
        {"median", fMedian},
        {"p99", fP99},
        {"frames", rAdded.count()},
        {"uncorrectedFrames", tally().nUncorrected},
        {"method", m_Frames.bRaw ? "correction alone" : "fetch of a waiting frame, corrected less uncorrected"}};
}

void CCorrectionRun::describe(COutput& rOutput) const {
    const CorrectionTally& rTally = tally();
    std::ostream& rText = rOutput.text();
    nlohmann::ordered_json& rJson = rOutput.json();
    rText << counted(rTally.nFrames, "frame") << " at " << fixed(rTally.rate(), 1) << " fps, " << rTally.nCorrected
          << " corrected, " << rTally.untouched() << " left untouched\n";
    rJson["frames"] = rTally.nFrames;
    rJson["rate"] = rTally.rate();
    rJson["corrected"] = rTally.nCorrected;
    rJson["untouched"] = nlohmann::ordered_json::array();
    for (const auto& [strReason, nFrames] : rTally.mapUntouched) {
        rText << "  " << nFrames << " left untouched: " << strReason << '\n';
        rJson["untouched"].push_back({{"reason", strReason}, {"frames", nFrames}});
    }
    if (m_nUnderruns != 0) {
        rText << underrunText(m_nUnderruns) << '\n';
    }
    rJson["underruns"] = m_nUnderruns;
    describeTime(rOutput);
    if (m_Corrected) {
        rText << counted(m_nWritten, "corrected frame") << " written to " << shown(m_Frames.strFolder) << '\n';
        rJson["written"] = m_nWritten;
        rJson["folder"] = m_Frames.strFolder;
    }
}

}  // namespace App
}  // namespace XAPEL2
