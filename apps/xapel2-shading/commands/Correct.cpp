// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct: corrects image files.

#include "commands/Correct.h"

#include <filesystem>
#include <set>

#include "commands/CorrectionRun.h"
#include "terminal/Exit.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

FrameOutput outputOf(const CorrectOptions& rOptions) {
    FrameOutput Output{rOptions.strOut, rOptions.strFormat, false, rOptions.bOverwrite, {}};
    Output.Sources.add(rOptions.Pair.strDark);
    Output.Sources.add(rOptions.Pair.strLight);
    for (const std::string& rFile : rOptions.vecFiles) {
        Output.Sources.add(rFile);
    }
    return Output;
}

const StandIn::PixelFormat& formatOf(const JudgedPair& rPair) {
    return *(rPair.Light ? rPair.Light : rPair.Dark)->sLayout.pFormat;
}

// Before the first file is written: all can be, or none is.
void requireFree(const CorrectOptions& rOptions, const StandIn::PixelFormat& rFormat) {
    const FrameOutput Output = outputOf(rOptions);
    const CFrameWriter Writer(Output.strFolder, Output.strFormat, Output.bOverwrite, Output.Sources);
    std::set<std::string> Names;
    for (const std::string& rFile : rOptions.vecFiles) {
        Frame Named;
        Named.strName = std::filesystem::path(rFile).stem().string();
        Named.pFormat = &rFormat;
        Writer.requireFree(Named);
        if (!Names.insert(Named.strName).second) {
            throw CUsageError(rFile + ": another file has this name but for folder and suffix; correct it by itself");
        }
    }
}

// A file has size and format, but what else the camera was set to it does not say.
CameraSettings settingsOf(const CSession& rSession) {
    CameraSettings Settings;
    Settings.strPixelFormat = rSession.pixelFormat();
    Settings.nWidth = rSession.width();
    Settings.nHeight = rSession.height();
    return Settings;
}

}  // namespace

int runCorrect(const CorrectOptions& rOptions) {
    if (rOptions.Pair.empty()) {
        throw CUsageError("correct takes a reference: give --dark, --light or both");
    }
    COutput Output("correct", rOptions.bJson);
    JudgedPair Pair = judge(rOptions.Pair);
    const StandIn::PixelFormat& rFormat = formatOf(Pair);
    requireFree(rOptions, rFormat);
    // A file cannot say that its samples are those of a filter array, or have fewer bits than it has room for.
    CSession Session("the files", [&] { return StandIn::openFiles(rOptions.vecFiles, rFormat.pName); });
    Pair.compareWith(settingsOf(Session), true);
    Output.json()["judgement"] = toJson(Pair);
    if (!isUsable(Pair, rOptions.bForce)) {
        return Output.finish(eExitRefused);
    }
    Session.selectScene("Scene");
    applyPair(Session, rOptions.Pair);
    CCorrectionRun Run(Session, outputOf(rOptions));
    Run.run(rOptions.vecFiles.size());
    Run.describe(Output);
    if (Run.tally().nFrames < rOptions.vecFiles.size()) {
        return Output.finish(eExitInterrupted);
    }
    if (Run.tally().untouched() != 0) {
        complain(counted(Run.tally().untouched(), "file") + " could not be corrected; look at what is said above");
        return Output.finish(eExitFailure);
    }
    return Output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
