// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A line on the terminal that tells how far a run is.

#pragma once

#include <cstdint>
#include <string>

namespace XAPEL2 {
namespace App {

/// Rewrites one line of stderr when that is a terminal, and does nothing otherwise. The destructor clears the line.
class CProgress {
public:
    CProgress();
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// Shows "strStep iDone/nAll".
    void show(const std::string& strStep, uint64_t iDone, uint64_t nAll);
    /// Clears the line, before something else is printed.
    void clear();

private:
    bool m_bTerminal;
    bool m_bShown = false;
};

}  // namespace App
}  // namespace XAPEL2
