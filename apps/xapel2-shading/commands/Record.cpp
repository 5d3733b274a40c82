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
#include "terminal/Warnings.h"
#include "toolkit/frames/FloatImage.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Recording.h"
#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace App {

namespace {

namespace fs = std::filesystem;

/// Where a recording goes until it has been judged: a file that is there already must not make way for a useless one.
class CPendingFile {
public:
    explicit CPendingFile(const std::string& strFile) : m_file(strFile), m_pending(strFile) {
        std::error_code ignored;
        if (fs::exists(m_file, ignored)) {
            m_pending.replace_filename("." + m_file.filename().string() + "." + std::to_string(getpid()) + ".tmp");
        }
    }
    ~CPendingFile() {
        std::error_code ignored;
        if (replaces()) {
            fs::remove(m_pending, ignored);
        }
    }
    CPendingFile(const CPendingFile&) = delete;
    CPendingFile& operator=(const CPendingFile&) = delete;

    std::string path() const { return m_pending.string(); }
    bool replaces() const { return m_pending != m_file; }
    void accept() {
        if (replaces()) {
            fs::rename(m_pending, m_file);
        }
    }

private:
    fs::path m_file, m_pending;
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
    const double dRate =
        rRecording.dSeconds > 0.0 ? static_cast<double>(rRecording.nFrames) / rRecording.dSeconds : 0.0;
    rOutput.text() << shown(rOptions.strFile) << ": " << verdict(rJudgement.vecFindings) << ", recorded at "
                   << fixed(dRate, 1) << " fps\n"
                   << App::describe(rJudgement);
    nlohmann::ordered_json& rJson = rOutput.json();
    rJson["frames"] = rRecording.nFrames;
    rJson["leftOut"] = rRecording.nLeftOut;
    rJson["underruns"] = rRecording.nUnderruns;
    rJson["rate"] = dRate;
    rJson["saturatedShare"] = rRecording.dSaturatedShare;
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

// A mean image of somebody else's becomes a reference; judged before it takes the place of an older one.
int importReference(const RecordOptions& rOptions) {
    if (!rOptions.strDevice.empty()) {
        throw CUsageError("--device and --from name two sources; record takes one of them");
    }
    if (rOptions.bLine || rOptions.bKeepOutliers || rOptions.bTimeoutNamed) {
        throw CUsageError("--line, --keep-outliers and --timeout go with a camera, not with --from");
    }
    const StandIn::PixelFormat* const pFormat = StandIn::findPixelFormat(rOptions.strFormat);
    if (pFormat == nullptr) {
        throw CUsageError(rOptions.strFormat.empty()
                              ? "the image does not tell what its frames were: say so, such as --pixel-format Mono12"
                              : "--pixel-format: there is no format " + rOptions.strFormat);
    }
    COutput output("record", rOptions.bJson);
    CSourceFiles sources;
    sources.add(rOptions.strFrom);
    requireWritable(rOptions.strFile, sources);
    const auto eKind = rOptions.bLight ? StandIn::eReferenceLight : StandIn::eReferenceDark;
    const StandIn::ReferenceImage reference = referenceFromFloat(rOptions.strFrom, eKind, *pFormat, rOptions.nFrames);
    const ReferenceJudgement judgement = judgeReference(reference);
    output.text() << shown(rOptions.strFile) << ": " << verdict(judgement.vecFindings) << '\n'
                  << App::describe(judgement);
    output.json()["from"] = rOptions.strFrom;
    output.json()["kind"] = rOptions.bLight ? "light" : "dark";
    output.json()["file"] = rOptions.strFile;
    output.json()["frames"] = rOptions.nFrames;
    output.json()["saturatedShare"] = reference.dSaturatedShare;
    output.json()["settingsFiled"] = false;
    output.json()["judgement"] = toJson(judgement);
    const bool bRefused = refused(judgement.vecFindings, rOptions.bForce);
    warnBeside(judgement.vecFindings, bRefused);
    if (bRefused) {
        return output.finish(eExitRefused);
    }
    try {
        StandIn::writeReferenceFile(rOptions.strFile, reference);
    } catch (const std::runtime_error& rError) {
        throw std::runtime_error(rOptions.strFile + ": " + rError.what());
    }
    return output.finish(eExitDone);
}

}  // namespace

int runRecord(const RecordOptions& rOptions) {
    if (!rOptions.strFrom.empty()) {
        return importReference(rOptions);
    }
    if (rOptions.strDevice.empty()) {
        throw CUsageError("record: name a camera with --device, or a mean image with --from");
    }
    if (!rOptions.strFormat.empty()) {
        throw CUsageError("--pixel-format goes with --from; a camera tells its format, or takes it behind its name");
    }
    COutput output("record", rOptions.bJson);
    CSourceFiles sources;
    sources.addDevice(rOptions.strDevice);
    CPendingFile file(requireWritable(rOptions.strFile, sources));
    CSession session(rOptions.strDevice, rOptions.dTimeoutS);
    const StandIn::PixelFormat* const pFormat = StandIn::findPixelFormat(session.pixelFormat());
    if (rOptions.bLine && pFormat != nullptr && pFormat->isCfa()) {
        throw CUsageError("rows of a filter array differ in colour; record " + session.pixelFormat() +
                          " without --line");
    }
    output.json()["device"] = rOptions.strDevice;
    output.json()["kind"] = rOptions.bLight ? "light" : "dark";
    output.json()["file"] = rOptions.strFile;
    output.json()["geometry"] = geometryJson(session);
    if (!session.hasScenes()) {
        askForScene(rOptions.bLight);
    }
    output.text() << "Recording "
                  << counted(framesToTake(session, rOptions), rOptions.bLight ? "light frame" : "dark frame")
                  << " from " << shown(rOptions.strDevice) << ", " << session.pixelFormat() << ", "
                  << placeInWords(session) << std::endl;
    Recording result;
    try {
        CProgress progress;
        result =
            recordReference(session, rOptions.bLight, rOptions.nFrames, file.path(), progress, rOptions.bKeepOutliers);
        if (rOptions.bLine) {
            foldToLine(file.path());
        }
    } catch (const CInterruptedError&) {
        throw CInterruptedError("interrupted; " + rOptions.strFile + " is not written");
    }
    warnAboutRecording(result, rOptions);
    const ReferenceJudgement judgement = judgeReference(readReference(file.path()));
    describe(output, rOptions, result, judgement);
    const bool bRefused = refused(judgement.vecFindings, rOptions.bForce);
    warnBeside(judgement.vecFindings, bRefused);
    if (bRefused) {
        complain(rOptions.strFile + " is refused");
        if (file.replaces()) {
            complain(rOptions.strFile + " stays as it was; --force replaces it");
        }
    } else {
        file.accept();
    }
    return output.finish(bRefused ? eExitRefused : eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
