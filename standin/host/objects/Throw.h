// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Throws a host exception with the place of the throw.

#pragma once

#include <string>

#include "xapel2/XapelExceptions.h"

namespace XAPEL2 {
namespace StandIn {

/// The part of a path after its last slash.
constexpr const char* fileOfPath(const char* pPath) {
    const char* pName = pPath;
    for (const char* p = pPath; *p != '\0'; ++p) {
        if (*p == '/') {
            pName = p + 1;
        }
    }
    return pName;
}

template <class tException>
[[noreturn]] void raise(const char* pPath, unsigned uLine, const char* pFunction, const std::string& strText) {
    throw tException(fileOfPath(pPath), uLine, pFunction, strText.c_str());
}

}  // namespace StandIn
}  // namespace XAPEL2

#define XAPEL2_RAISE(Kind, strText) \
    ::XAPEL2::StandIn::raise<::XAPEL2::Exceptions::Xapel_##Kind##Exception>(__FILE__, __LINE__, __func__, strText)
