// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A line on the terminal that tells how far a run is.

#include "terminal/Progress.h"

#include <cmath>
#include <cstdlib>
#include <iostream>

#include <unistd.h>

#include "terminal/Output.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

// Terminal control (ECMA-48): back to the first column and erase to the end of the line.
constexpr const char* CLEAR_LINE = "\r\033[K";
constexpr std::chrono::milliseconds REFRESH{100};

std::string timeText(double dSeconds) {
    const auto nSeconds = static_cast<uint64_t>(std::ceil(dSeconds));
    const std::string strRest = std::to_string(nSeconds % 60);
    return std::to_string(nSeconds / 60) + (strRest.size() < 2 ? ":0" : ":") + strRest;
}

}  // namespace

std::string progressText(const std::string& strStep, uint64_t iDone, uint64_t nAll, uint64_t nFresh, double dSeconds,
                         const std::string& strMore) {
    std::string strText = strStep + ' ' + std::to_string(iDone);
    if (nAll != 0) {
        strText += '/' + std::to_string(nAll);
    }
    if (nFresh >= 1 && dSeconds > 0.0) {
        const double dRate = static_cast<double>(nFresh) / dSeconds;
        strText += ", " + fixed(dRate, 1) + " fps";
        if (nAll > iDone) {
            strText += ", " + timeText(static_cast<double>(nAll - iDone) / dRate) + " left";
        }
    }
    return strMore.empty() ? strText : strText + ", " + strMore;
}

CProgress::CProgress() {
    const char* pTerminal = std::getenv("TERM");
    const std::string strTerminal = pTerminal != nullptr ? pTerminal : "";
    m_bTerminal = isatty(STDERR_FILENO) == 1 && verbosity() != eQuiet && !strTerminal.empty() && strTerminal != "dumb";
}

CProgress::~CProgress() {
    CProgress::clear();
}

void CProgress::show(const std::string& strStep, uint64_t iDone, uint64_t nAll, const std::string& strMore) {
    if (!m_bTerminal) {
        return;
    }
    const Clock::time_point tNow = Clock::now();
    if (strStep != m_strStep) {
        m_strStep = strStep;
        m_tBegin = tNow;
        m_iFirst = iDone;
    } else if (iDone != nAll && tNow - m_tShown < REFRESH) {
        return;
    }
    const std::chrono::duration<double> taken = tNow - m_tBegin;
    std::cerr << CLEAR_LINE << shown(progressText(strStep, iDone, nAll, iDone - m_iFirst, taken.count(), strMore))
              << std::flush;
    m_tShown = tNow;
    m_bShown = true;
}

void CProgress::clear() {
    if (m_bShown) {
        std::cerr << CLEAR_LINE << std::flush;
        m_bShown = false;
    }
}

}  // namespace App
}  // namespace XAPEL2
