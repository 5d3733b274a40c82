// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What run and correct have in common: frames are corrected, written, and accounted for.

#include "commands/CorrectionRun.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <utility>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {
constexpr std::size_t SAID_MAX = 20;  // a camera in trouble must not flood the screen
}

CCorrectionRun::CCorrectionRun(CSession& rSession, const FrameOutput& rFrames)
    : m_rSession(rSession), m_frames(rFrames), m_stream(rSession, rFrames.bRaw) {
    if (m_frames.strFolder.empty()) {
        return;
    }
    const std::filesystem::path folder = m_frames.strFolder;
    m_corrected.emplace(folder, m_frames.strFormat, m_frames.bOverwrite, m_frames.sources);
    if (m_frames.bRaw) {
        m_raw.emplace(folder / "raw", m_frames.strFormat, m_frames.bOverwrite, m_frames.sources);
    }
    m_workers.emplace();
}

// A camera need not name its frames, and its names need not be those of files.
std::string CCorrectionRun::nameOf(const CCorrectedStream::Fetched& rFetched) const {
    const std::string strName = std::filesystem::path(m_rSession.frameName(rFetched.hBuffer)).filename().string();
    if (!strName.empty()) {
        return strName;
    }
    const std::string strNumber = std::to_string(tally().nFrames - 1);
    return "frame_" + std::string(6 - std::min<std::size_t>(6, strNumber.size()), '0') + strNumber;
}

// The buffer goes back to the camera from where it was written.
void CCorrectionRun::write(CCorrectedStream::Fetched& rFetched) {
    const StandIn::BufferHandle hBuffer = rFetched.hBuffer;
    if (!m_corrected || !rFetched.strUntouched.empty()) {
        m_rSession.giveBack(hBuffer);
        return;
    }
    const StandIn::ImageLayout layout = m_rSession.layoutOf(hBuffer);
    const void* const pImage = m_rSession.imageOf(hBuffer);
    const std::string strName = nameOf(rFetched);
    std::shared_ptr<Frame> pRaw;
    if (m_raw) {
        m_raw->requireFree(strName, *layout.pFormat);
        pRaw = std::make_shared<Frame>(std::move(*rFetched.raw));
        pRaw->strName = strName;
    }
    const std::filesystem::path corrected = m_corrected->reserve(strName, *layout.pFormat);
    const std::filesystem::path raw = m_raw ? m_raw->reserve(strName, *layout.pFormat) : "";
    m_workers->add(
        [=] {
            writeImage(corrected, layout, pImage, m_corrected->kind(), m_frames.strMark);
            if (pRaw) {
                writeFrame(raw.parent_path(), *pRaw, m_raw->kind());
            }
            ++m_nWritten;
        },
        [=] { m_rSession.giveBack(hBuffer); });
}

void CCorrectionRun::tellTroubles(const CCorrectedStream::Fetched& rFetched) {
    const auto fnTell = [&](const std::string& strText) {
        m_progress.clear();
        complain("warning: " + strText);
    };
    // What is wrong with a frame that the camera could not deliver differs from one to the next.
    if (rFetched.strDetail != rFetched.strUntouched && m_said.size() < SAID_MAX &&
        m_said.insert(rFetched.strDetail).second) {
        fnTell(rFetched.strDetail);
    }
    if (rFetched.bNewReason) {
        fnTell("frame " + m_rSession.frameName(rFetched.hBuffer) + " is left untouched: " + rFetched.strUntouched);
    }
}

void CCorrectionRun::fetchFrames(uint64_t nFrames) {
    // Of frames that are to be written none is used up, and none waited for longer than need be.
    m_stream.start(0, !m_corrected, nFrames == 0 ? ~0ULL : nFrames);
    while (nFrames == 0 || tally().nFrames < nFrames) {
        CCorrectedStream::Fetched fetched = m_stream.next();
        tellTroubles(fetched);
        if (m_frames.fnCorrected && fetched.strUntouched.empty()) {
            m_frames.fnCorrected(m_rSession.copyFrame(fetched.hBuffer));
        }
        write(fetched);
        m_progress.show("correcting", tally().nFrames, nFrames,
                        tally().untouched() == 0 ? "" : std::to_string(tally().untouched()) + " left untouched");
    }
    if (m_workers) {
        m_workers->finish();
    }
    m_stream.stop();
}

void CCorrectionRun::run(uint64_t nFrames) {
    try {
        fetchFrames(nFrames);
    } catch (const CInterruptedError&) {
        // What there is by then is told.
        if (m_workers) {
            m_workers->finish();
        }
    }
    m_nUnderruns = m_rSession.underruns();
    m_progress.clear();
}

void CCorrectionRun::describeTime(COutput& rOutput) const {
    const CTimes& rAdded = tally().added;
    if (rAdded.count() == 0) {
        if (tally().nCorrected != 0 && !m_frames.bFromFiles) {
            rOutput.text() << "What correction adds to a frame is told without -o, or with --raw\n";
        }
        return;
    }
    const double dMedian = rAdded.median(), dP99 = rAdded.quantile(0.99);
    rOutput.text() << "Correction adds " << duration(dMedian) << " to a frame (median), " << duration(dP99)
                   << " (p99), of " << counted(rAdded.count(), "frame");
    if (tally().nUncorrected != 0) {
        rOutput.text() << ", beside " << tally().nUncorrected << " fetched uncorrected before them";
    }
    rOutput.text() << '\n';
    rOutput.json()["addedMs"] = {
        {"median", dMedian},
        {"p99", dP99},
        {"frames", rAdded.count()},
        {"uncorrectedFrames", tally().nUncorrected},
        {"method", m_frames.bRaw ? "correction alone" : "fetch of a waiting frame, corrected less uncorrected"}};
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
    if (m_corrected) {
        rText << counted(m_nWritten, "corrected frame") << " written to " << shown(m_frames.strFolder) << '\n';
        rJson["written"] = m_nWritten.load();
        rJson["folder"] = m_frames.strFolder;
    }
}

}  // namespace App
}  // namespace XAPEL2
