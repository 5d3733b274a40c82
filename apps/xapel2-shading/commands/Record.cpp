// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command record: records a reference.

#include "commands/Record.h"

#include <filesystem>
#include <stdexcept>

#include <unistd.h>

#include "commands/AskForScene.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Toolkit.h"
#include "toolkit/frames/SourceFiles.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Recording.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

namespace fs = std::filesystem;

// Before frames are taken: a camera may need minutes for them.
void requireWritable(const RecordOptions& rOptions) {
    const std::string& strFile = rOptions.strFile;
    CSourceFiles Sources;
    Sources.addDevice(rOptions.strDevice);
    Sources.requireOther(strFile);
    const fs::path Parent = fs::path(strFile).parent_path();
    const fs::path Folder = Parent.empty() ? "." : Parent;
    std::error_code Ignored;
    if (fs::is_directory(strFile, Ignored)) {
        throw std::runtime_error(strFile + " is a folder; give the name of a file in it");
    }
    if (!fs::is_directory(Folder, Ignored)) {
        throw std::runtime_error(Folder.string() + " is no folder; create it first");
    }
    if (access(Folder.c_str(), W_OK | X_OK) != 0) {
        throw std::runtime_error("no file can be written to " + Folder.string() + "; choose another folder");
    }
}

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
        complain("warning: " + std::to_string(rRecording.nLeftOut) +
                 " frames are left out of the reference; the first of them was " + rRecording.strLeftOut);
    }
    if (rRecording.nFrames < rOptions.nFrames) {
        complain("warning: the camera has only " + std::to_string(rRecording.nFrames) +
                 " such frames; the reference is made of them");
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
    rOutput.text() << rOptions.strFile << ": " << verdict(rJudgement.vecFindings) << ", recorded at " << fixed(fRate, 1)
                   << " fps\n"
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

}  // namespace

int runRecord(const RecordOptions& rOptions) {
    COutput Output("record", rOptions.bJson);
    requireWritable(rOptions);
    CSession Session(rOptions.strDevice, rOptions.fTimeoutS);
    Output.json()["device"] = rOptions.strDevice;
    Output.json()["kind"] = rOptions.bLight ? "light" : "dark";
    Output.json()["file"] = rOptions.strFile;
    if (!Session.hasScenes()) {
        askForScene(rOptions.bLight);
    }
    Output.text() << "Recording " << rOptions.nFrames << (rOptions.bLight ? " light" : " dark") << " frames from "
                  << rOptions.strDevice << ", " << Session.pixelFormat() << ", " << Session.width() << " x "
                  << Session.height() << std::endl;
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
