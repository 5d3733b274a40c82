// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ctrl-C as a wish to end in order.

#include "toolkit/sessions/Interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

namespace XAPEL2 {
namespace Toolkit {
namespace Interrupt {

namespace {

std::atomic<int> g_iSignal{0};  // the first that came
std::atomic<int> g_iEvent{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

extern "C" void noteSignal(int iSignal) {
    const int iErrno = errno;
    int iNone = 0;
    g_iSignal.compare_exchange_strong(iNone, iSignal);
    const uint64_t nOne = 1;
    // Fails only where the counter is full, and then it is readable all the same.
    [[maybe_unused]] const ssize_t nWritten = write(g_iEvent.load(), &nOne, sizeof nOne);
    errno = iErrno;
}

void require(bool bGood) {
    if (!bGood) {
        throw std::system_error(errno, std::generic_category(), "signals cannot be handled");
    }
}

}  // namespace

void install() {
    g_iEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    require(g_iEvent >= 0);
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        require(sigaction(iSignal, nullptr, &action) == 0);
        if (action.sa_handler == SIG_IGN) {
            continue;
        }
        action = {};
        action.sa_handler = noteSignal;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        require(sigaction(iSignal, &action, nullptr) == 0);
    }
}

bool isRaised() {
    return g_iSignal != 0;
}

void check() {
    if (isRaised()) {
        throw CInterruptedError("interrupted");
    }
}

int descriptor() {
    return g_iEvent;
}

void endProcess() {
    const int iSignal = g_iSignal;
    std::signal(iSignal, SIG_DFL);
    std::raise(iSignal);
    std::_Exit(128 + iSignal);  // where the signal is blocked
}

}  // namespace Interrupt
}  // namespace Toolkit
}  // namespace XAPEL2
