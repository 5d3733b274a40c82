// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// xapel2-shading: runs a sub-command, and tells what went wrong.

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <limits>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "CommandLine.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Session.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_standin/Answers.h"

namespace {

using namespace XAPEL2::App;

int fail(const CCommandLine& rLine, int iExit, const std::string& strWhat) {
    complain(strWhat);
    if (rLine.json()) {
        COutput output(rLine.command().c_str(), true);
        output.json()["error"] = strWhat;
        output.finish(iExit);
    }
    return iExit;
}

// What was wrong and what to do next, in words of this program: those of libraries are for programmers.
int runCommand(CCommandLine& rLine, const std::vector<std::string>& rWords) {
    try {
        if (!rLine.parse(rWords)) {
            requireWritten();
            return eExitDone;
        }
        // What takes no frames can simply be killed.
        if (rLine.command() != "check" && rLine.command() != "devices" && rLine.command() != "settings" &&
            rLine.command() != "output") {
            Interrupt::install();
        }
        return rLine.run();
    } catch (const CInterruptedError& rError) {
        return fail(rLine, eExitInterrupted, rError.what());
    } catch (const CFileExistsError& rError) {
        return fail(rLine, eExitUsage,
                    rError.what() + std::string("; choose another place with -o, or replace it with --overwrite"));
    } catch (const CWrongKindError& rError) {
        return fail(rLine, eExitUsage, rError.what() + std::string("; --dark takes a dark one, --light a light one"));
    } catch (const CUsageError& rError) {
        return fail(rLine, eExitUsage, rError.what());
    } catch (const CTimeoutError& rError) {
        const bool bOption = rLine.command() == "record" || rLine.command() == "run" || rLine.command() == "report";
        return fail(rLine, eExitFailure, rError.what() + std::string(bOption ? " with --timeout" : ""));
    } catch (const XAPEL2::Exceptions::IException& rError) {
        return fail(rLine, eExitFailure, rError.GetErrorDescription().get());
    } catch (const std::filesystem::filesystem_error& rError) {
        return fail(rLine, eExitFailure, rError.path1().string() + ": " + rError.code().message());
    } catch (const std::system_error& rError) {
        return fail(rLine, eExitFailure, rError.code().message());
    } catch (const std::bad_alloc&) {
        return fail(rLine, eExitFailure, "there is not enough memory");
    } catch (const nlohmann::json::exception&) {
        return fail(rLine, eExitFailure, "a figure is missing; this is a fault of the program, report it");
    } catch (const std::exception& rError) {
        return fail(rLine, eExitFailure, rError.what());
    }
}

// A standard stream that is closed must not become a frame's file, into which a warning would be written. What stands
// in for it fails as the closed one would. A file that grows too large is an error that can be told, not an end.
void prepareProcess() {
    for (const int iStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(iStream, F_GETFD) < 0) {
            // The lowest number that is free is this one.
            static_cast<void>(open("/dev/null", iStream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
    std::signal(SIGXFSZ, SIG_IGN);
    // Images come and go while references are judged; handing their memory back each time costs more than to keep it.
    constexpr int IMAGE_BYTES = 32 << 20;  // the most that may be set
    mallopt(M_MMAP_THRESHOLD, IMAGE_BYTES);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
}

}  // namespace

int main(int argc, char** argv) {
    prepareProcess();
    try {
        // Results, the last error and the frames themselves tell what traces do.
        XAPEL2::StandIn::setTraceSink([](int32_t, const std::string&) {});
        CCommandLine line;
        const int iExit = runCommand(line, {argv + (argc > 0 ? 1 : 0), argv + argc});
        if (iExit == eExitInterrupted) {
            // By now the camera is closed: one whose program is killed stays taken for a while.
            Interrupt::endProcess();
        }
        return iExit;
    } catch (const std::exception& rError) {
        std::cerr << "xapel2-shading: " << rError.what() << '\n';
        return eExitFailure;
    }
}
