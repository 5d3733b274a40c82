// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's error traces, kept from the terminal and made readable.

#include "toolkit/sessions/HostTraces.h"

#include <algorithm>
#include <iterator>

#include "xapel2_standin/Control.h"

namespace XAPEL2 {
namespace Toolkit {

namespace Control = StandIn::Control;

namespace {

constexpr int32_t LEVEL_ERROR = 2;
constexpr std::size_t LINES_MAX = 1000;  // of those that nobody takes

// Module and function names that traces begin with.
constexpr const char* PREFIXES[] = {"Extended-API;",     "ImageProcessor; ",           "CVexShadingObj; ",
                                    "CVexoShadingObj; ", "extended_useFilledBuffer; ", "image left untouched; "};

}  // namespace

std::string plainTrace(const std::string& strTrace) {
    std::string strText = strTrace;
    for (const char* pPrefix : PREFIXES) {
        if (strText.rfind(pPrefix, 0) == 0) {
            strText.erase(0, std::string(pPrefix).size());
        }
    }
    // The name of the file is known to whoever named it to the host.
    if (strText.rfind("reference file ", 0) == 0) {
        strText.erase(0, strText.find("; ") + 2);
    }
    strText.erase(strText.find_last_not_of("; ") + 1);
    return strText == "invalid Buffer" ? "incomplete, or without an image" : strText;
}

CHostTraces::CHostTraces() {
    // A record keeps the host from printing; the observer knows the thread besides.
    Control::recordTraces(true);
    Control::setTraceObserver([this](const Control::TraceLine& rLine) {
        if (rLine.iLevel == LEVEL_ERROR) {
            const std::lock_guard<std::mutex> Lock(m_mtx);
            if (m_vecLines.size() < LINES_MAX) {
                m_vecLines.push_back({std::this_thread::get_id(), plainTrace(rLine.strText)});
            }
        }
    });
}

CHostTraces::~CHostTraces() {
    Control::setTraceObserver(nullptr);
    Control::recordTraces(false);
}

std::vector<std::string> CHostTraces::take(bool bOwnThread) {
    std::vector<std::string> vecTexts;
    const std::lock_guard<std::mutex> Lock(m_mtx);
    if (m_vecLines.empty()) {
        return vecTexts;
    }
    Control::recordTraces(true);  // empties the record, which would grow without end
    const auto itTaken = std::stable_partition(m_vecLines.begin(), m_vecLines.end(), [&](const Line& rLine) {
        return bOwnThread && rLine.Thread != std::this_thread::get_id();
    });
    for (auto it = itTaken; it != m_vecLines.end(); ++it) {
        if (std::find(vecTexts.begin(), vecTexts.end(), it->strText) == vecTexts.end()) {
            vecTexts.push_back(it->strText);
        }
    }
    m_vecLines.erase(itTaken, m_vecLines.end());
    return vecTexts;
}

std::string CHostTraces::takeText() {
    std::string strAll;
    for (const std::string& rText : take()) {
        strAll += (strAll.empty() ? "" : "; ") + rText;
    }
    return strAll;
}

}  // namespace Toolkit
}  // namespace XAPEL2
