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
    const SceneCounts Counts = countFrames(rSession);
    rSession.selectScene(rOptions.strScene.c_str());
    const std::string& rScene = rOptions.strScene;
    if ((rScene == "Dark" ? Counts.nDark : rScene == "Light" ? Counts.nLight : Counts.nScene) == 0) {
        throw CUsageError(rOptions.strDevice + " has no frames of " + rScene +
                          "; choose what it has with --scene Dark, Light or Scene");
    }
    const uint64_t nHas = rSession.frameCount();
    const bool bAll = rOptions.nFrames == 0 || (rOptions.nFrames > nHas && !rOptions.strOut.empty());
    return nHas != 0 && bAll ? nHas : rOptions.nFrames;
}

FrameOutput outputOf(const RunOptions& rOptions) {
    FrameOutput Output{rOptions.strOut, rOptions.strFormat, rOptions.bRaw, rOptions.bOverwrite, {}};
    Output.Sources.add(rOptions.Pair.strDark);
    Output.Sources.add(rOptions.Pair.strLight);
    Output.Sources.addDevice(rOptions.strDevice);
    return Output;
}

}  // namespace

int runRun(const RunOptions& rOptions) {
    if (rOptions.Pair.empty()) {
        throw CUsageError("run takes a reference: give --dark, --light or both");
    }
    if (rOptions.bRaw && rOptions.strOut.empty()) {
        throw CUsageError("--raw writes frames; name a folder for them with -o");
    }
    COutput Output("run", rOptions.bJson);
    JudgedPair Pair = judge(rOptions.Pair);
    CSession Session(rOptions.strDevice, rOptions.fTimeoutS);
    Pair.compareWith(readCameraSettings(Session.nodes()));
    Output.json()["device"] = rOptions.strDevice;
    Output.json()["judgement"] = toJson(Pair);
    if (!isUsable(Pair, rOptions.bForce)) {
        return Output.finish(eExitRefused);
    }
    const uint64_t nFrames = selectFrames(Session, rOptions);
    Output.text() << "Correcting " << (nFrames == 0 ? "frames until Ctrl-C" : counted(nFrames, "frame")) << " from "
                  << shown(rOptions.strDevice) << ", " << Session.pixelFormat() << ", " << Session.width() << " x "
                  << Session.height() << std::endl;
    applyPair(Session, rOptions.Pair);
    CCorrectionRun Run(Session, outputOf(rOptions));
    Run.run(nFrames);
    Run.describe(Output);
    // Without a number of frames Ctrl-C is how a run ends.
    if (Run.tally().nFrames < nFrames) {
        return Output.finish(eExitInterrupted);
    }
    if (Run.tally().nFrames > 0 && Run.tally().nCorrected == 0) {
        complain("no frame could be corrected; look at what is said above");
        return Output.finish(eExitFailure);
    }
    return Output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
