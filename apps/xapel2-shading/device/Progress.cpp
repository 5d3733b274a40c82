// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A line on the terminal that tells how far a run is.

#include "device/Progress.h"

#include <iostream>

#include <unistd.h>

namespace XAPEL2 {
namespace App {

namespace {

// Terminal control (ECMA-48): back to the first column and erase to the end of the line.
constexpr const char* CLEAR_LINE = "\r\033[K";

}  // namespace

CProgress::CProgress() : m_bTerminal(isatty(STDERR_FILENO) == 1) {}

CProgress::~CProgress() {
    clear();
}

void CProgress::show(const std::string& strStep, uint64_t iDone, uint64_t nAll) {
    if (m_bTerminal) {
        std::cerr << CLEAR_LINE << strStep << ' ' << iDone << '/' << nAll << std::flush;
        m_bShown = true;
    }
}

void CProgress::clear() {
    if (m_bShown) {
        std::cerr << CLEAR_LINE << std::flush;
        m_bShown = false;
    }
}

}  // namespace App
}  // namespace XAPEL2
