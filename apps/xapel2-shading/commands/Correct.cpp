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
    FrameOutput output{rOptions.strOut, rOptions.strFormat, false, rOptions.bOverwrite, {}, true};
    output.sources.add(rOptions.pair.strDark);
    output.sources.add(rOptions.pair.strLight);
    for (const std::string& rFile : rOptions.vecFiles) {
        output.sources.add(rFile);
    }
    return output;
}

const StandIn::PixelFormat& formatOf(const JudgedPair& rPair) {
    return *(rPair.light ? rPair.light : rPair.dark)->layout.pFormat;
}

// Before the first file is written: all can be, or none is.
void requireFree(const CorrectOptions& rOptions, const StandIn::PixelFormat& rFormat) {
    const FrameOutput output = outputOf(rOptions);
    const CFrameWriter writer(output.strFolder, output.strFormat, output.bOverwrite, output.sources);
    std::set<std::string> names;
    for (const std::string& rFile : rOptions.vecFiles) {
        const std::string strName = std::filesystem::path(rFile).stem().string();
        writer.requireFree(strName, rFormat);
        if (!names.insert(strName).second) {
            throw CUsageError(rFile + ": another file has this name but for folder and suffix; correct it by itself");
        }
    }
}

// A file has size and format, but what else the camera was set to it does not say.
CameraSettings settingsOf(const CSession& rSession) {
    CameraSettings settings;
    settings.strPixelFormat = rSession.pixelFormat();
    settings.nWidth = rSession.width();
    settings.nHeight = rSession.height();
    return settings;
}

}  // namespace

int runCorrect(const CorrectOptions& rOptions) {
    if (rOptions.pair.empty()) {
        throw CUsageError("correct takes a reference: give --dark, --light or both");
    }
    COutput output("correct", rOptions.bJson);
    JudgedPair pair = judge(rOptions.pair);
    const StandIn::PixelFormat& rFormat = formatOf(pair);
    requireFree(rOptions, rFormat);
    // A file cannot say that its samples are those of a filter array, or have fewer bits than it has room for.
    CSession session("the files", [&] { return StandIn::openFiles(rOptions.vecFiles, rFormat.pName); });
    pair.compareWith(settingsOf(session), true);
    output.json()["judgement"] = toJson(pair);
    if (!isUsable(pair, rOptions.bForce)) {
        return output.finish(eExitRefused);
    }
    session.selectScene("Scene");
    applyPair(session, rOptions.pair);
    CCorrectionRun run(session, outputOf(rOptions));
    run.run(rOptions.vecFiles.size());
    run.describe(output);
    if (run.tally().nFrames < rOptions.vecFiles.size()) {
        return output.finish(eExitInterrupted);
    }
    if (run.tally().untouched() != 0) {
        complain(counted(run.tally().untouched(), "file") + " could not be corrected; look at what is said above");
        return output.finish(eExitFailure);
    }
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
