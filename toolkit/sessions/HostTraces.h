// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's error traces, kept from the terminal and made readable.

#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace XAPEL2 {
namespace Toolkit {

/// Collects the host's error traces, which would go to stderr, one for each frame, otherwise. They are where the host
/// and the library say why an operation failed or an image was left as it is.
/// @threads construct, take and destroy on one thread; traces come from any. One object at a time.
class CHostTraces {
public:
    CHostTraces();
    ~CHostTraces();
    CHostTraces(const CHostTraces&) = delete;
    CHostTraces& operator=(const CHostTraces&) = delete;

    /// The traces since the last call, as plain sentences without the host's prefixes, each once; then there are none.
    /// @param[in] bOwnThread  those of the calling thread only: what a fetch says of its own frame. The others stay.
    std::vector<std::string> take(bool bOwnThread = false);

    /// All of take() in one text, separated by "; ".
    std::string takeText();

private:
    struct Line {
        std::thread::id Thread;
        std::string strText;
    };
    std::mutex m_mtx;  // guards m_vecLines
    std::vector<Line> m_vecLines;
};

/// A trace of the host in plain words: no prefix of a module or a function, no closing punctuation.
std::string plainTrace(const std::string& strTrace);

}  // namespace Toolkit
}  // namespace XAPEL2
