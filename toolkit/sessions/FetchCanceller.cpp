// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ends the waiting fetches of a stream when the user wants to end.

#include "toolkit/sessions/FetchCanceller.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "toolkit/sessions/Interrupt.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {
constexpr int REPEAT_MS = 20;
}

CFetchCanceller::CFetchCanceller(DataStream* pStream) {
    if (Interrupt::descriptor() < 0) {
        return;
    }
    m_iStop = eventfd(0, EFD_CLOEXEC);
    if (m_iStop < 0) {
        throw std::system_error(errno, std::generic_category(), "no event can be made");
    }
    try {
        m_thread = std::thread([this, pStream] { run(pStream); });
    } catch (...) {
        close(m_iStop);
        throw;
    }
}

CFetchCanceller::~CFetchCanceller() {
    if (m_thread.joinable()) {
        const uint64_t nOne = 1;
        [[maybe_unused]] const ssize_t nWritten = write(m_iStop, &nOne, sizeof nOne);
        m_thread.join();
        close(m_iStop);
    }
}

void CFetchCanceller::run(DataStream* pStream) const {
    pollfd aEvents[] = {{m_iStop, POLLIN, 0}, {Interrupt::descriptor(), POLLIN, 0}};
    for (;;) {
        // Asked once: an interrupt between two looks, or before the first, must not let this wait without end.
        const bool bRaised = Interrupt::isRaised();
        if (bRaised) {
            StandIn::cancelGetFilledBuffer(pStream);
        }
        if (poll(aEvents, bRaised ? 1 : 2, bRaised ? REPEAT_MS : -1) < 0 && errno != EINTR) {
            return;
        }
        if ((aEvents[0].revents & POLLIN) != 0) {
            return;
        }
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
