// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command run: corrects a live stream.

#include "commands/Run.h"

#include <ostream>

#include "commands/CorrectionRun.h"
#include "terminal/Exit.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/figures/Measurement.h"
#include "toolkit/frames/CorrectionMark.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

// Points the camera, and tells how many frames to fetch; 0: until the user ends it. Where nobody says how many, a
// camera that has only so many frames gives each of them once. They are written once, too: then it would begin again
// under the same names.
uint64_t selectFrames(CSession& rSession, const RunOptions& rOptions) {
    if (!rSession.hasScenes()) {
        return rOptions.nFrames;
    }
    const SceneCounts counts = countFrames(rSession);
    rSession.selectScene(rOptions.strScene.c_str());
    const std::string& rScene = rOptions.strScene;
    if ((rScene == "Dark" ? counts.nDark : rScene == "Light" ? counts.nLight : counts.nScene) == 0) {
        throw CUsageError(rOptions.strDevice + " has no frames of " + rScene +
                          "; choose what it has with --scene Dark, Light or Scene");
    }
    const uint64_t nHas = rSession.frameCount();
    const bool bAll = rOptions.nFrames == 0 || (rOptions.nFrames > nHas && !rOptions.strOut.empty());
    return nHas != 0 && bAll ? nHas : rOptions.nFrames;
}

FrameOutput outputOf(const RunOptions& rOptions, const JudgedPair& rPair) {
    FrameOutput output{rOptions.strOut, rOptions.strFormat, rOptions.bRaw, rOptions.bOverwrite, {}, "", false, {}};
    output.strMark = correctionMark(rPair.dark ? &*rPair.dark : nullptr, rPair.light ? &*rPair.light : nullptr);
    output.sources.add(rOptions.pair.strDark);
    output.sources.add(rOptions.pair.strLight);
    output.sources.addDevice(rOptions.strDevice);
    return output;
}

}  // namespace

int runRun(const RunOptions& rOptions) {
    if (rOptions.pair.empty()) {
        throw CUsageError("run takes a reference: give --dark, --light or both");
    }
    if (rOptions.bRaw && rOptions.strOut.empty()) {
        throw CUsageError("--raw writes frames; name a folder for them with -o");
    }
    COutput output("run", rOptions.bJson);
    JudgedPair pair = judge(rOptions.pair);
    CSession session(rOptions.strDevice, rOptions.dTimeoutS);
    pair.compareWith(readCameraSettings(session.nodes()));
    output.json()["device"] = rOptions.strDevice;
    output.json()["geometry"] = geometryJson(session);
    output.json()["judgement"] = toJson(pair);
    if (!isUsable(pair, rOptions.bForce)) {
        return output.finish(eExitRefused);
    }
    const uint64_t nFrames = selectFrames(session, rOptions);
    output.text() << "Correcting " << (nFrames == 0 ? "frames until Ctrl-C" : counted(nFrames, "frame")) << " from "
                  << shown(rOptions.strDevice) << ", " << session.pixelFormat() << ", " << placeInWords(session)
                  << std::endl;
    applyPair(session, rOptions.pair);
    pair.requireUnchanged();
    CCorrectionRun run(session, outputOf(rOptions, pair));
    run.run(nFrames);
    run.describe(output);
    // Without a number of frames Ctrl-C is how a run ends.
    if (run.tally().nFrames < nFrames) {
        return output.finish(eExitInterrupted);
    }
    if (run.tally().nFrames > 0 && run.tally().nCorrected == 0) {
        complain("no frame could be corrected; look at what is said above");
        return output.finish(eExitFailure);
    }
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
