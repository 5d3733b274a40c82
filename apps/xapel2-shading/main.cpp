// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line of xapel2-shading.

#include <exception>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "demo/Demo.h"
#include "xapel2/XapelExceptions.h"

namespace {

enum eExit { eExitDone = 0, eExitUsage = 2, eExitFailure = 3 };

int fail(const char* pWhat) {
    std::cerr << "xapel2-shading: " << pWhat << '\n';
    return eExitFailure;
}

int run(int argc, char** argv) {
    XAPEL2::App::DemoOptions Options;
    std::string strFrames;
    CLI::App Cli("Shading correction of camera images.");
    Cli.require_subcommand(1);
    Cli.footer("Exit codes: 0 done, 2 wrong use, 3 the camera or a file cannot be used.");
    CLI::App* pDemo = Cli.add_subcommand(
        "demo", "Record a dark and a light reference, correct frames with them, and write both for comparison");
    CLI::Option* pFrames =
        pDemo->add_option("--frames", strFrames,
                          "Folder of recorded frames dark_*, light_*, scene_* (PGM or TIFF) in place of the "
                          "simulated camera");
    pDemo->add_option("--camera", Options.strCamera, "Camera to open, such as sim:7?width=320&height=240&format=Mono8")
        ->capture_default_str()
        ->excludes(pFrames);
    pDemo->add_option("--out", Options.strOut, "Folder to write to; files of an earlier demo are replaced")
        ->capture_default_str();
    try {
        Cli.parse(argc, argv);
    } catch (const CLI::ParseError& rError) {
        return Cli.exit(rError) == 0 ? eExitDone : eExitUsage;
    }
    if (!strFrames.empty()) {
        Options.strCamera = "replay:" + strFrames;
    }

    XAPEL2::App::runDemo(Options);
    return eExitDone;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const XAPEL2::Exceptions::IException& rError) {
        return fail(rError.GetErrorDescription().get());
    } catch (const std::exception& rError) {
        return fail(rError.what());
    }
}
