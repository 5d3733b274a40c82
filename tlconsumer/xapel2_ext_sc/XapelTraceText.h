// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The library's traces: one prefix, two levels, one form for a caught host exception.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2/XapelExceptions.h"
#include "xapel2/XapelTrace.h"

enum eTraceLevel : int32_t { eTraceOrdinary = 0, eTraceError = 2 };

/// Traces "Extended-API;" and the message as one text. May throw: std::bad_alloc, or what the host's trace throws.
inline void xapelTrace(eTraceLevel eLevel, const std::string& strMessage) {
    const int32_t iLevel = eLevel;
    const std::string strText = "Extended-API;" + strMessage;
    extT(&iLevel, strText.c_str());
}

/// Traces a caught host exception as an error: the prefix, the throwing function, a blank, the description.
inline void xapelTraceException(const char* pPrefix, const XAPEL2::Exceptions::IException& rException) {
    xapelTrace(eTraceError, std::string(pPrefix) + rException.GetFunctionName().get() + " " +
                                rException.GetErrorDescription().get());
}
