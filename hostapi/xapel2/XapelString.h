// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's text type.

#pragma once

#include "xapel2/XapelExport.h"

namespace XAPEL2 {

/// An immutable NUL-terminated text. Copies own their text; the host library allocates and frees it.
/// @threads one object per thread; different objects are independent.
class XAPEL2_HOST_API String {
public:
    String();  ///< The empty text.
    /// @param[in] pText  copied; null gives the empty text.
    String(const char* pText);
    String(const String& rOther);             ///< A copy of the text.
    String& operator=(const String& rOther);  ///< Replaces the text by a copy.
    ~String();

    /// The text, never null; borrowed until this object is assigned to or destroyed.
    const char* get() const;

private:
    void* m_pImpl;
};

}  // namespace XAPEL2
