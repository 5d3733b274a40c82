// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The interpreter's lock, given up while C++ works.

#pragma once

#include <pybind11/pybind11.h>

#include <unistd.h>

namespace XAPEL2 {
namespace Python {

/// Gives the lock up as long as it lives. A thread that wants it back when the interpreter has ended is ended there,
/// which unwinds its stack through this destructor: hence it may throw.
class CGilRelease {
public:
    CGilRelease() : m_pThread(PyEval_SaveThread()) {}
    ~CGilRelease() noexcept(false) {
        while (isEnding()) {
            pause();
        }
        PyEval_RestoreThread(m_pThread);
    }
    CGilRelease(const CGilRelease&) = delete;
    CGilRelease& operator=(const CGilRelease&) = delete;

private:
    static bool isEnding() {
#if PY_VERSION_HEX >= 0x030D0000
        return Py_IsFinalizing() != 0;
#else
        return _Py_IsFinalizing() != 0;
#endif
    }

    PyThreadState* m_pThread;
};

/// Runs fnWork without the lock, and yields what it does.
template <class tWork>
auto withoutGil(tWork fnWork) {
    const CGilRelease released;
    return fnWork();
}

}  // namespace Python
}  // namespace XAPEL2
