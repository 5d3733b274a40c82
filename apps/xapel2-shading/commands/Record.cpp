// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command record: records a reference.

#include "commands/Record.h"

#include <algorithm>
#include <filesystem>

#include <unistd.h>

#include "commands/AskForScene.h"
#include "commands/OutputFile.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Toolkit.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Recording.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

namespace fs = std::filesystem;

/// Where a recording goes until it has been judged: a file that is there already must not make way for a useless one.
class CPendingFile {
public:
    explicit CPendingFile(const std::string& strFile) : m_File(strFile), m_Pending(strFile) {
        std::error_code Ignored;
        if (fs::exists(m_File, Ignored)) {
            m_Pending.replace_filename("." + m_File.filename().string() + "." + std::to_string(getpid()) + ".tmp");
        }
    }
    ~CPendingFile() {
        std::error_code Ignored;
        if (replaces()) {
            fs::remove(m_Pending, Ignored);
        }
    }
    CPendingFile(const CPendingFile&) = delete;
    CPendingFile& operator=(const CPendingFile&) = delete;

    std::string path() const { return m_Pending.string(); }
    bool replaces() const { return m_Pending != m_File; }
    void accept() {
        if (replaces()) {
            fs::rename(m_Pending, m_File);
        }
    }

private:
    fs::path m_File, m_Pending;
};

void warnAboutRecording(const Recording& rRecording, const RecordOptions& rOptions) {
    if (rRecording.nLeftOut != 0) {
        complain("warning: left out of the reference: " + counted(rRecording.nLeftOut, "frame") +
                 ", of which the first was " + rRecording.strLeftOut);
    }
    if (rRecording.nFrames < rOptions.nFrames) {
        complain("warning: the reference is made of " + counted(rRecording.nFrames, "frame") +
                 ", which is all that there is of this kind");
    }
    if (rRecording.nUnderruns != 0) {
        complain("warning: " + underrunText(rRecording.nUnderruns));
    }
    if (!rRecording.strNoSettings.empty()) {
        complain("warning: the settings of the camera are not in " + rOptions.strFile + ": " +
                 rRecording.strNoSettings +
                 "; the reference itself is whole, but nothing can tell later when the camera is set otherwise");
    }
}

void describe(COutput& rOutput, const RecordOptions& rOptions, const Recording& rRecording,
              const ReferenceJudgement& rJudgement) {
    const double fRate =
        rRecording.fSeconds > 0.0 ? static_cast<double>(rRecording.nFrames) / rRecording.fSeconds : 0.0;
    rOutput.text() << shown(rOptions.strFile) << ": " << verdict(rJudgement.vecFindings) << ", recorded at "
                   << fixed(fRate, 1) << " fps\n"
                   << App::describe(rJudgement);
    nlohmann::ordered_json& rJson = rOutput.json();
    rJson["frames"] = rRecording.nFrames;
    rJson["leftOut"] = rRecording.nLeftOut;
    rJson["underruns"] = rRecording.nUnderruns;
    rJson["rate"] = fRate;
    rJson["saturatedShare"] = rRecording.fSaturatedShare;
    rJson["settingsFiled"] = rRecording.strNoSettings.empty();
    rJson["judgement"] = toJson(rJudgement);
}

// Those that were asked for, as far as the camera has them.
uint64_t framesToTake(CSession& rSession, const RecordOptions& rOptions) {
    if (rSession.hasScenes()) {
        rSession.selectScene(rOptions.bLight ? "Light" : "Dark");
    }
    const uint64_t nHas = rSession.frameCount();
    return nHas == 0 ? rOptions.nFrames : std::min(nHas, rOptions.nFrames);
}

}  // namespace

int runRecord(const RecordOptions& rOptions) {
    COutput Output("record", rOptions.bJson);
    CSourceFiles Sources;
    Sources.addDevice(rOptions.strDevice);
    requireWritable(rOptions.strFile, Sources);
    CSession Session(rOptions.strDevice, rOptions.fTimeoutS);
    Output.json()["device"] = rOptions.strDevice;
    Output.json()["kind"] = rOptions.bLight ? "light" : "dark";
    Output.json()["file"] = rOptions.strFile;
    if (!Session.hasScenes()) {
        askForScene(rOptions.bLight);
    }
    Output.text() << "Recording "
                  << counted(framesToTake(Session, rOptions), rOptions.bLight ? "light frame" : "dark frame")
                  << " from " << shown(rOptions.strDevice) << ", " << Session.pixelFormat() << ", " << Session.width()
                  << " x " << Session.height() << std::endl;
    CPendingFile File(rOptions.strFile);
    Recording Result;
    try {
        CProgress Progress;
        Result = recordReference(Session, rOptions.bLight, rOptions.nFrames, File.path(), Progress);
    } catch (const CInterruptedError&) {
        throw CInterruptedError("interrupted; " + rOptions.strFile + " is not written");
    }
    warnAboutRecording(Result, rOptions);
    const ReferenceJudgement Judgement = judgeReference(readReference(File.path()));
    describe(Output, rOptions, Result, Judgement);
    const bool bRefused = refused(Judgement.vecFindings, rOptions.bForce);
    if (bRefused) {
        for (const Finding& rFinding : Judgement.vecFindings) {
            if (rFinding.eLevel == eRefusal) {
                complain(rOptions.strFile + " is refused: " + rFinding.strText + " " + rFinding.strAdvice);
            }
        }
        if (File.replaces()) {
            complain(rOptions.strFile + " stays as it was; --force replaces it");
        }
    } else {
        File.accept();
    }
    return Output.finish(bRefused ? eExitRefused : eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
