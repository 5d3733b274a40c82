// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the toolkit throws besides std::runtime_error.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "xapel2/XapelExceptions.h"

namespace XAPEL2 {
namespace Toolkit {

/// An operation of the host or of its image processor failed; the text says which and why.
class CGenTlError : public std::runtime_error {
public:
    CGenTlError(int32_t iCode, const std::string& strText) : std::runtime_error(strText), m_iCode(iCode) {}
    int32_t code() const { return m_iCode; }  ///< a GenTL code, below 0

private:
    int32_t m_iCode;
};

/// The GenTL code that stands for this kind of host exception.
int32_t gentlCode(const Exceptions::IException& rError);

/// What was asked for does not go together; the text says why.
class CUsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// An output is there already. What to do about it, the caller knows.
class CFileExistsError : public CUsageError {
    using CUsageError::CUsageError;
};

/// A dark reference in the place of a light one, or the other way round.
class CWrongKindError : public CUsageError {
    using CUsageError::CUsageError;
};

}  // namespace Toolkit
}  // namespace XAPEL2
