// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// C++ exceptions as those of xapel2_shading._errors.

#include <exception>
#include <stdexcept>
#include <string>

#include "python/core/Parts.h"
#include "toolkit/sessions/Session.h"
#include "toolkit/text/Errors.h"
#include "xapel2_standin/GenTL.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;

const char* classOf(int32_t iCode) {
    switch (iCode) {
        case GC_ERR_INVALID_PARAMETER:
        case GC_ERR_INVALID_ID:
            return "ArgumentError";
        case GC_ERR_IO:
        case GC_ERR_ACCESS_DENIED:
        case GC_ERR_NOT_AVAILABLE:
            return "InputOutputError";
        case GC_ERR_TIMEOUT:
            return "FetchTimeout";
        case GC_ERR_ABORT:
            return "FetchCancelled";
        default:
            return "StreamError";
    }
}

void raise(int32_t iCode, const char* pText) {
    // Texts of files and cameras need not be UTF-8.
    const py::object text = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        pText, static_cast<Py_ssize_t>(std::char_traits<char>::length(pText)), "backslashreplace"));
    const py::object type = py::module_::import("xapel2_shading._errors").attr(classOf(iCode));
    PyErr_SetObject(type.ptr(), type(text, iCode).ptr());
}

void translate(std::exception_ptr pError) {
    try {
        std::rethrow_exception(std::move(pError));
    } catch (const Toolkit::CGenTlError& rError) {
        raise(rError.code(), rError.what());
    } catch (const Exceptions::IException& rError) {
        raise(Toolkit::gentlCode(rError), rError.what());
    } catch (const Toolkit::CTimeoutError& rError) {
        raise(GC_ERR_TIMEOUT, rError.what());
    } catch (const Toolkit::CUsageError& rError) {
        raise(GC_ERR_INVALID_PARAMETER, rError.what());
    } catch (const py::builtin_exception&) {
        throw;  // Python's own
    } catch (const std::runtime_error& rError) {
        raise(GC_ERR_ERROR, rError.what());
    }
}

}  // namespace

void defineErrors() {
    py::register_local_exception_translator(&translate);
}

}  // namespace Python
}  // namespace XAPEL2
