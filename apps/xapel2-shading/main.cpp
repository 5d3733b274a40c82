// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line of xapel2-shading.

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "commands/Check.h"
#include "commands/Correct.h"
#include "commands/Devices.h"
#include "commands/Record.h"
#include "commands/Report.h"
#include "commands/Run.h"
#include "demo/Demo.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "toolkit/sessions/Interrupt.h"
#include "xapel2/XapelExceptions.h"

namespace {

using namespace XAPEL2::App;

/// The options of all sub-commands, and the one that was chosen.
struct CommandLine {
    DevicesOptions Devices;
    RecordOptions Record;
    CheckOptions Check;
    RunOptions Run;
    CorrectOptions Correct;
    ReportOptions Report;
    DemoOptions Demo;
    std::string strFrames;
    std::string strKind;
    std::function<int()> fnRun;
    std::string strCommand;
    bool bJson = false;
};

CLI::App* addCommand(CLI::App& rCli, CommandLine& rLine, const char* pName, const char* pWhat,
                     std::function<int()> fnRun) {
    CLI::App* pCommand = rCli.add_subcommand(pName, pWhat);
    pCommand->callback([&rLine, pName, fnRun = std::move(fnRun)] {
        rLine.strCommand = pName;
        rLine.fnRun = fnRun;
    });
    return pCommand;
}

void addJson(CLI::App* pCommand, CommandLine& rLine, bool& rJson) {
    pCommand->add_flag_function(
        "--json",
        [&](int64_t) {
            rLine.bJson = true;
            rJson = true;
        },
        "Print one JSON object on standard output, nothing else");
}

void addForce(CLI::App* pCommand, bool& rForce) {
    pCommand->add_flag("--force", rForce, "Go on where judgement refuses; it warns all the same");
}

CLI::Option* addDevice(CLI::App* pCommand, std::string& rDevice) {
    return pCommand->add_option("-d,--device", rDevice,
                                "Camera, such as sim, sim:7?width=320&format=Mono8, replay:DIR, aravis:ID");
}

void addTimeout(CLI::App* pCommand, double& rTimeout) {
    pCommand->add_option("--timeout", rTimeout, "Longest wait for a frame beyond its exposure time, in seconds")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
}

void addPair(CLI::App* pCommand, PairOptions& rPair) {
    constexpr unsigned RADIUS_MAX = 31;
    pCommand->add_option("--dark", rPair.strDark, "Dark reference");
    pCommand->add_option("--light", rPair.strLight, "Light reference");
    const auto fnRadius = [&](const char* pName, unsigned& rRadius, const char* pWhat) {
        pCommand->add_option(pName, rRadius, pWhat)->check(CLI::Range(0U, RADIUS_MAX))->type_name("RADIUS");
    };
    fnRadius("--box-light", rPair.nBoxLight, "Box filter on the light reference, radius in pixels, 0 to 31");
    fnRadius("--box-dark", rPair.nBoxDark, "Box filter on the dark reference");
    fnRadius("--median-light", rPair.nMedianLight, "Median filter on the light reference, before the box filter");
    fnRadius("--median-dark", rPair.nMedianDark, "Median filter on the dark reference, before the box filter");
}

void addFileFormat(CLI::App* pCommand, std::string& rFormat, bool& rOverwrite) {
    pCommand->add_option("--format", rFormat, "Files to write: pgm (ppm for colour) or tiff")
        ->check(CLI::IsMember({"pgm", "tiff"}))
        ->capture_default_str();
    pCommand->add_flag("--overwrite", rOverwrite, "Replace files that exist");
}

void addDevicesAndRecord(CLI::App& rCli, CommandLine& rLine) {
    CLI::App* pDevices =
        addCommand(rCli, rLine, "devices", "List what can be opened", [&] { return runDevices(rLine.Devices); });
    addJson(pDevices, rLine, rLine.Devices.bJson);

    RecordOptions& rRecord = rLine.Record;
    CLI::App* pRecord = addCommand(rCli, rLine, "record", "Record a dark or a light reference from a camera", [&] {
        rRecord.bLight = rLine.strKind == "light";
        return runRecord(rRecord);
    });
    pRecord->add_option("KIND", rLine.strKind, "dark (lens covered) or light (an even, evenly lit target)")
        ->required()
        ->check(CLI::IsMember({"dark", "light"}));
    addDevice(pRecord, rRecord.strDevice)->required();
    pRecord->add_option("-n,--frames", rRecord.nFrames, "Frames to average")
        ->check(CLI::Range(1U, 1000000U))
        ->capture_default_str();
    pRecord->add_option("-o,--out", rRecord.strFile, "Reference file to write; replaced when it exists")->required();
    addTimeout(pRecord, rRecord.fTimeoutS);
    addForce(pRecord, rRecord.bForce);
    addJson(pRecord, rLine, rRecord.bJson);
}

void addCheck(CLI::App& rCli, CommandLine& rLine) {
    CheckOptions& rCheck = rLine.Check;
    CLI::App* pCheck =
        addCommand(rCli, rLine, "check", "Judge a dark and a light reference", [&] { return runCheck(rCheck); });
    pCheck->add_option("DARK", rCheck.strDark, "Dark reference")->required();
    pCheck->add_option("LIGHT", rCheck.strLight, "Light reference")->required();
    pCheck->add_flag("--list", rCheck.bList, "List each hot and dead pixel");
    addForce(pCheck, rCheck.bForce);
    addJson(pCheck, rLine, rCheck.bJson);
}

void addRun(CLI::App& rCli, CommandLine& rLine) {
    RunOptions& rRun = rLine.Run;
    CLI::App* pRun =
        addCommand(rCli, rLine, "run", "Correct the live stream of a camera", [&] { return runRun(rRun); });
    addDevice(pRun, rRun.strDevice)->required();
    addPair(pRun, rRun.Pair);
    pRun->add_option("-n,--frames", rRun.nFrames, "Frames to correct; without it until Ctrl-C, or all of a replay")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1000000000}));
    pRun->add_option("--scene", rRun.strScene, "What a simulated or replayed camera shows: Dark, Light or Scene")
        ->transform(CLI::IsMember({"Dark", "Light", "Scene"}, CLI::ignore_case))
        ->capture_default_str();
    CLI::Option* pOut = pRun->add_option("-o,--out", rRun.strOut, "Folder to write the frames to");
    pRun->add_flag("--raw", rRun.bRaw, "Write the uncorrected frames too, to OUT/raw")->needs(pOut);
    addFileFormat(pRun, rRun.strFormat, rRun.bOverwrite);
    addTimeout(pRun, rRun.fTimeoutS);
    addForce(pRun, rRun.bForce);
    addJson(pRun, rLine, rRun.bJson);
}

void addCorrect(CLI::App& rCli, CommandLine& rLine) {
    CorrectOptions& rCorrect = rLine.Correct;
    CLI::App* pCorrect =
        addCommand(rCli, rLine, "correct", "Correct image files", [&] { return runCorrect(rCorrect); });
    pCorrect->add_option("FILES", rCorrect.vecFiles, "Image files (PGM, PPM, TIFF)")->required();
    addPair(pCorrect, rCorrect.Pair);
    pCorrect->add_option("-o,--out", rCorrect.strOut, "Folder to write to; a source is never overwritten")->required();
    addFileFormat(pCorrect, rCorrect.strFormat, rCorrect.bOverwrite);
    addForce(pCorrect, rCorrect.bForce);
    addJson(pCorrect, rLine, rCorrect.bJson);
}

void addReport(CLI::App& rCli, CommandLine& rLine) {
    ReportOptions& rReport = rLine.Report;
    CLI::App* pReport = addCommand(rCli, rLine, "report", "Write an HTML report on a pair of references",
                                   [&] { return runReport(rReport); });
    addDevice(pReport, rReport.strDevice);
    addPair(pReport, rReport.Pair);
    pReport->add_option("-n,--frames", rReport.nFrames, "Frames of each kind for the figures after correction")
        ->check(CLI::Range(2U, 100000U))
        ->capture_default_str();
    pReport->add_option("-o,--out", rReport.strFile, "HTML file to write; replaced when it exists")
        ->capture_default_str();
    addTimeout(pReport, rReport.fTimeoutS);
    addForce(pReport, rReport.bForce);
    addJson(pReport, rLine, rReport.bJson);
}

void addDemo(CLI::App& rCli, CommandLine& rLine) {
    DemoOptions& rDemo = rLine.Demo;
    CLI::App* pDemo =
        addCommand(rCli, rLine, "demo",
                   "Record a dark and a light reference, correct frames with them, and write both for comparison", [&] {
                       if (!rLine.strFrames.empty()) {
                           rDemo.strCamera = "replay:" + rLine.strFrames;
                       }
                       return runDemo(rDemo);
                   });
    CLI::Option* pFrames =
        pDemo->add_option("--frames", rLine.strFrames,
                          "Folder of recorded frames dark_*, light_*, scene_* (PGM, PPM or TIFF) in place of the "
                          "simulated camera");
    pDemo->add_option("--camera", rDemo.strCamera, "Camera to open, such as sim:7?width=320&height=240&format=Mono8")
        ->capture_default_str()
        ->excludes(pFrames);
    pDemo->add_option("-o,--out", rDemo.strOut, "Folder to write to; files of an earlier demo are replaced")
        ->capture_default_str();
    pDemo->add_flag("--overwrite", rDemo.bOverwrite, "Replace other files of these names, too");
    addJson(pDemo, rLine, rDemo.bJson);
}

int tellJson(const CommandLine& rLine, int iExit, const std::string& strWhat) {
    if (rLine.bJson) {
        COutput Output(rLine.strCommand.c_str(), true);
        Output.json()["error"] = strWhat;
        Output.finish(iExit);
    }
    return iExit;
}

int fail(const CommandLine& rLine, int iExit, const std::string& strWhat) {
    std::cerr << "xapel2-shading: " << strWhat << '\n';
    return tellJson(rLine, iExit, strWhat);
}

int runCommand(const CommandLine& rLine) {
    try {
        return rLine.fnRun();
    } catch (const CInterruptedError& rError) {
        return fail(rLine, eExitInterrupted, rError.what());
    } catch (const CRefusedError& rError) {
        return fail(rLine, eExitRefused, rError.what());
    } catch (const CFileExistsError& rError) {
        return fail(rLine, eExitUsage,
                    rError.what() + std::string("; choose another place with -o, or replace it with --overwrite"));
    } catch (const CWrongKindError& rError) {
        return fail(
            rLine, eExitUsage,
            rError.what() + std::string("; the dark reference stands behind --dark, the light one behind --light"));
    } catch (const CUsageError& rError) {
        return fail(rLine, eExitUsage, rError.what());
    } catch (const XAPEL2::Exceptions::IException& rError) {
        return fail(rLine, eExitFailure, rError.GetErrorDescription().get());
    } catch (const std::exception& rError) {
        return fail(rLine, eExitFailure, rError.what());
    }
}

int run(int argc, char** argv) {
    CommandLine Line;
    CLI::App Cli("Shading correction of camera images.", "xapel2-shading");
    Cli.set_version_flag("--version", "xapel2-shading " XAPEL2_SHADING_VERSION);
    Cli.require_subcommand(1);
    Cli.footer(
        "Exit codes: 0 done, 1 refused by judgement, 2 wrong use, 3 the camera or a file cannot be used.\n"
        "Ctrl-C ends a run in order, a second one at once.");
    addDevicesAndRecord(Cli, Line);
    addCheck(Cli, Line);
    addRun(Cli, Line);
    addCorrect(Cli, Line);
    addReport(Cli, Line);
    addDemo(Cli, Line);
    try {
        Cli.parse(argc, argv);
    } catch (const CLI::ParseError& rError) {
        if (Cli.exit(rError) == 0) {
            return eExitDone;
        }
        for (const CLI::App* pCommand : Cli.get_subcommands()) {
            Line.strCommand = pCommand->get_name();
        }
        Line.bJson = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
        return tellJson(Line, eExitUsage, rError.what());
    }
    // What takes no frames can simply be killed.
    if (Line.strCommand != "check" && Line.strCommand != "devices") {
        Interrupt::install();
    }
    const int iExit = runCommand(Line);
    if (iExit == eExitInterrupted) {
        // By now the camera is closed: one whose program is killed stays taken for a while.
        Interrupt::endProcess();
    }
    return iExit;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& rError) {
        std::cerr << "xapel2-shading: " << rError.what() << '\n';
        return eExitFailure;
    }
}
