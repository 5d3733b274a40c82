// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct: corrects image files.

#include "commands/Correct.h"

#include <algorithm>
#include <future>
#include <optional>
#include <set>

#include "commands/CorrectPipe.h"
#include "commands/CorrectionRun.h"
#include "commands/Uncertainty.h"
#include "standin/files/ImageFile.h"
#include "terminal/Exit.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/frames/CorrectionMark.h"
#include "toolkit/frames/FileList.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

FrameOutput outputOf(const CorrectOptions& rOptions) {
    FrameOutput output{rOptions.strOut, rOptions.strFormat, false, rOptions.bOverwrite, {}, "", true, {}};
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

// Before the first file is written: all can be, or none is. The names of what is to be written.
std::set<std::string> freeNames(const CorrectOptions& rOptions, const FrameOutput& rOutput,
                                const StandIn::PixelFormat& rFormat) {
    const CFrameWriter writer(rOutput.strFolder, rOutput.strFormat, rOutput.bOverwrite, rOutput.sources);
    std::set<std::string> names;
    for (const std::string& rFile : rOptions.vecFiles) {
        const std::size_t nPages = StandIn::imageLayout(rFile).pages();
        for (std::size_t i = 0; i < nPages; ++i) {
            const std::string strName = StandIn::imageName(rFile, i, nPages);
            writer.requireFree(strName, rFormat);
            if (!names.insert(strName).second) {
                throw CUsageError(rFile +
                                  ": another file has this name but for folder and suffix; correct it by itself");
            }
        }
    }
    return names;
}

// What is corrected twice is wrong, and looks right. False where that is refused.
bool areUncorrected(const CorrectOptions& rOptions) {
    for (const std::string& rFile : rOptions.vecFiles) {
        const std::string strMark = markOf(rFile);
        if (!strMark.empty()) {
            complain((rOptions.bForce ? "warning: " : "refused: ") + rFile + " is corrected already (" + strMark + ")" +
                     (rOptions.bForce ? "" : "; --force corrects it again"));
            return rOptions.bForce;
        }
    }
    return true;
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

int runCorrect(const CorrectOptions& rGiven) {
    if (rGiven.pair.empty()) {
        throw CUsageError("correct takes a reference: give --dark, --light or both");
    }
    if (rGiven.strOut == PIPE || std::count(rGiven.vecFiles.begin(), rGiven.vecFiles.end(), PIPE) != 0) {
        return runCorrectPipe(rGiven);
    }
    if (!rGiven.strStream.empty()) {
        throw CUsageError("--stream tells what raw frames from standard input are; files tell it themselves");
    }
    CorrectOptions options = rGiven;
    CSourceFiles references;
    references.add(options.pair.strDark);
    references.add(options.pair.strLight);
    options.vecFiles = listFiles(options.vecFiles, references);
    COutput output("correct", options.bJson);
    JudgedPair pair = readPair(options.pair);
    const StandIn::PixelFormat& rFormat = formatOf(pair);
    // A file cannot say that its samples are those of a filter array, or have fewer bits than it has room for.
    CSession session("the files", [&] { return StandIn::openFiles(options.vecFiles, rFormat.pName); });
    const CameraSettings settings = settingsOf(session);
    FrameOutput frames = outputOf(options);
    const std::set<std::string> names = freeNames(options, frames, rFormat);
    // Judging and getting ready take as long as some ten files do, and do not wait for each other.
    auto ready = std::async(std::launch::async, [&] {
        session.selectScene("Scene");
        applyPair(session, options.pair);
        frames.strMark = correctionMark(pair.dark ? &*pair.dark : nullptr, pair.light ? &*pair.light : nullptr);
    });
    judge(pair);
    std::optional<CUncertaintyWriter> uncertainty;
    if (options.bUncertainty) {
        uncertainty.emplace(pair, options.pair, options.strOut, options.bOverwrite, frames.sources);
        for (const std::string& rName : names) {
            uncertainty->requireFree(rName);
        }
        frames.fnCorrected = [&](const Frame& rFrame) { uncertainty->write(rFrame); };
    }
    pair.compareWith(settings, true);
    output.json()["judgement"] = toJson(pair);
    if (!isUsable(pair, options.bForce) || !areUncorrected(options)) {
        return output.finish(eExitRefused);
    }
    if (uncertainty) {
        uncertainty->requireSize(settings.nWidth, settings.nHeight);
    }
    // What keeps the pair from being applied is told only where judging found nothing that says more.
    ready.get();
    pair.requireUnchanged();
    const uint64_t nFrames = session.frameCount();
    CCorrectionRun run(session, frames);
    run.run(nFrames);
    run.describe(output);
    if (run.tally().nFrames < nFrames) {
        return output.finish(eExitInterrupted);
    }
    if (run.tally().untouched() != 0) {
        complain(counted(run.tally().untouched(), "frame") + " could not be corrected; look at what is said above");
        return output.finish(eExitFailure);
    }
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
