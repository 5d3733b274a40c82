// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a sub-command tells: lines for people, or one JSON object.

#include "terminal/Output.h"

#include <iostream>
#include <stdexcept>

namespace XAPEL2 {
namespace App {

COutput::COutput(const char* pCommand, bool bJson)
    : m_bJson(bJson), m_pText(bJson ? new std::ostream(nullptr) : &std::cout) {
    m_Json["command"] = pCommand;
}

COutput::~COutput() {
    if (m_bJson) {
        delete m_pText;
    }
}

int COutput::finish(int iExit) {
    m_Json["exit"] = iExit;
    if (m_bJson) {
        // A file name need not be UTF-8, JSON must.
        std::cout << m_Json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
    }
    std::cout.flush();
    if (!std::cout) {
        throw std::runtime_error("standard output cannot be written");
    }
    return iExit;
}

void complain(const std::string& strText) {
    std::cerr << "xapel2-shading: " << strText << '\n';
}

}  // namespace App
}  // namespace XAPEL2
