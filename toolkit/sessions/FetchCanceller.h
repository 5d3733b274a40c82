// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ends the waiting fetches of a stream when the user wants to end.

#pragma once

#include <thread>

#include "xapel2/XapelDevice.h"

namespace XAPEL2 {
namespace Toolkit {

/// From the first interrupt on, until destroyed, cancels the fetches of a stream again and again: a cancel does not
/// end a fetch that begins a moment later. Does nothing where no interrupts are handled.
/// @threads one object per thread; cancels from a thread of its own.
class CFetchCanceller {
public:
    /// @param[in] pStream  borrowed; must not be destroyed before this object.
    /// @throws std::system_error
    explicit CFetchCanceller(DataStream* pStream);
    ~CFetchCanceller();
    CFetchCanceller(const CFetchCanceller&) = delete;
    CFetchCanceller& operator=(const CFetchCanceller&) = delete;

private:
    void run(DataStream* pStream) const;

    int m_iStop = -1;  // an event; readable when the thread is to end
    std::thread m_thread;
};

}  // namespace Toolkit
}  // namespace XAPEL2
