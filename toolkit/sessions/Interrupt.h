// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ctrl-C as a wish to end in order.

#pragma once

#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

/// The user wants to end. main() ends the process by the signal that said so.
class CInterruptedError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// SIGINT (Ctrl-C), SIGTERM and SIGHUP. The first one is only noted, and makes descriptor() readable; the next of its
/// kind ends the process at once. A signal that the process was started to ignore stays ignored.
/// @threads any thread.
namespace Interrupt {

/// @throws std::system_error  the handlers cannot be set.
void install();

bool isRaised();

/// @throws CInterruptedError  the user wants to end.
void check();

/// Stays readable from the first signal on; -1 before install(). Not to be read from.
int descriptor();

/// Ends the process by the signal that was raised, so that a shell sees what happened.
[[noreturn]] void endProcess();

}  // namespace Interrupt
}  // namespace Toolkit
}  // namespace XAPEL2
