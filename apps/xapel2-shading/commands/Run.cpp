// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command run: corrects a live stream.

#include "commands/Run.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>

#include "commands/Exit.h"
#include "commands/JudgedPair.h"
#include "commands/Output.h"
#include "device/CorrectedStream.h"
#include "device/Interrupt.h"
#include "device/Progress.h"
#include "images/FrameWriter.h"
#include "judge/JudgementText.h"

namespace XAPEL2 {
namespace App {

namespace {

class CRun {
public:
    explicit CRun(const RunOptions& rOptions);
    int run();

private:
    void selectScene();
    void openFolder();
    void fetchFrames();
    void write(CCorrectedStream::Fetched& rFetched);
    void describe();

    const RunOptions& m_rOptions;
    COutput m_Output;
    JudgedPair m_Pair;
    CSession m_Session;
    CProgress m_Progress;
    std::optional<CFrameWriter> m_Corrected, m_Raw;
    CCorrectedStream m_Stream;
    uint64_t m_nFrames = 0;  // to fetch; 0: until the user ends it
    uint64_t m_nWritten = 0;
};

const RunOptions& checked(const RunOptions& rOptions) {
    if (rOptions.Pair.empty()) {
        throw CUsageError("run takes a reference: give --dark, --light or both");
    }
    return rOptions;
}

CRun::CRun(const RunOptions& rOptions)
    : m_rOptions(checked(rOptions)),
      m_Output("run", rOptions.bJson),
      m_Pair(judge(rOptions.Pair)),
      m_Session(rOptions.strDevice, rOptions.fTimeoutS),
      m_Stream(m_Session, rOptions.bRaw) {
    m_Pair.compareWith(readCameraSettings(m_Session.nodes()));
}

// Where nobody says how many, a camera that has only so many frames gives each of them once. They are written once,
// too: then it would begin again under the same names.
void CRun::selectScene() {
    m_nFrames = m_rOptions.nFrames;
    if (!m_Session.hasScenes()) {
        return;
    }
    m_Session.selectScene(m_rOptions.strScene.c_str());
    const uint64_t nHas = m_Session.frameCount();
    if (nHas != 0 && (m_nFrames == 0 || (m_nFrames > nHas && !m_rOptions.strOut.empty()))) {
        m_nFrames = nHas;
    }
}

void CRun::openFolder() {
    if (m_rOptions.strOut.empty()) {
        return;
    }
    const std::filesystem::path Out = m_rOptions.strOut;
    const std::string& rDevice = m_rOptions.strDevice;
    m_Corrected.emplace(Out, m_rOptions.strFormat, m_rOptions.bOverwrite);
    if (m_rOptions.bRaw) {
        m_Raw.emplace(Out / "raw", m_rOptions.strFormat, m_rOptions.bOverwrite);
    }
    for (std::optional<CFrameWriter>* pWriter : {&m_Corrected, &m_Raw}) {
        if (*pWriter) {
            (*pWriter)->protect(m_rOptions.Pair.strDark);
            (*pWriter)->protect(m_rOptions.Pair.strLight);
            if (rDevice.rfind("replay:", 0) == 0) {
                (*pWriter)->protect(rDevice.substr(7));
            }
        }
    }
}

void CRun::write(CCorrectedStream::Fetched& rFetched) {
    if (!m_Corrected || !rFetched.strUntouched.empty()) {
        return;
    }
    Frame Corrected = m_Session.copyFrame(rFetched.hBuffer);
    // A camera need not name its frames, and its names need not be those of files.
    Corrected.strName = std::filesystem::path(Corrected.strName).filename().string();
    if (Corrected.strName.empty()) {
        const std::string strNumber = std::to_string(m_Stream.tally().nFrames - 1);
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

void CRun::fetchFrames() {
    const CorrectionTally& rTally = m_Stream.tally();
    while (m_nFrames == 0 || rTally.nFrames < m_nFrames) {
        CCorrectedStream::Fetched Fetched = m_Stream.next();
        if (Fetched.bNewReason) {
            m_Progress.clear();
            complain("warning: frame " + m_Session.frameName(Fetched.hBuffer) +
                     " is left untouched: " + Fetched.strUntouched);
        }
        write(Fetched);
        m_Session.giveBack(Fetched.hBuffer);
        m_Progress.show("correcting", rTally.nFrames, m_nFrames,
                        rTally.untouched() == 0 ? "" : std::to_string(rTally.untouched()) + " left untouched");
    }
    m_Stream.stop();
}

void CRun::describe() {
    const CorrectionTally& rTally = m_Stream.tally();
    std::ostream& rText = m_Output.text();
    nlohmann::ordered_json& rJson = m_Output.json();
    rText << rTally.nFrames << " frames at " << fixed(rTally.rate(), 1) << " fps, " << rTally.nCorrected
          << " corrected, " << rTally.untouched() << " left untouched\n";
    rJson["frames"] = rTally.nFrames;
    rJson["rate"] = rTally.rate();
    rJson["corrected"] = rTally.nCorrected;
    rJson["untouched"] = nlohmann::ordered_json::array();
    for (const auto& [strReason, nFrames] : rTally.mapUntouched) {
        rText << "  " << nFrames << " left untouched: " << strReason << '\n';
        rJson["untouched"].push_back({{"reason", strReason}, {"frames", nFrames}});
    }
    if (rTally.Added.count() != 0) {
        const double fMedian = rTally.Added.median(), fP99 = rTally.Added.quantile(0.99);
        rText << "correction adds " << fixed(fMedian, 3) << " ms to a frame (median), " << fixed(fP99, 3)
              << " ms (p99), of " << rTally.Added.count() << " frames\n";
        rJson["addedMs"] = {
            {"median", fMedian},
            {"p99", fP99},
            {"frames", rTally.Added.count()},
            {"uncorrectedFrames", rTally.nUncorrected},
            {"method", m_rOptions.bRaw ? "correction alone" : "fetch of a waiting frame, on minus off"}};
    }
    if (m_Corrected) {
        rText << m_nWritten << " frames written to " << m_rOptions.strOut << '\n';
        rJson["written"] = m_nWritten;
        rJson["folder"] = m_rOptions.strOut;
    }
}

int CRun::run() {
    m_Output.json()["device"] = m_rOptions.strDevice;
    m_Output.json()["judgement"] = toJson(m_Pair);
    if (!m_Pair.isUsable(m_rOptions.bForce)) {
        return m_Output.finish(eExitRefused);
    }
    selectScene();
    openFolder();
    applyPair(m_Session, m_rOptions.Pair);
    try {
        m_Stream.start(0);
        fetchFrames();
    } catch (const CInterruptedError&) {
        // What there is by then is told.
    }
    m_Progress.clear();
    describe();
    // Without a number of frames Ctrl-C is how a run ends.
    const bool bShort = m_nFrames != 0 && m_Stream.tally().nFrames < m_nFrames;
    return m_Output.finish(bShort ? eExitInterrupted : eExitDone);
}

}  // namespace

int runRun(const RunOptions& rOptions) {
    return CRun(rOptions).run();
}

}  // namespace App
}  // namespace XAPEL2
