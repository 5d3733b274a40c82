// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the toolkit throws besides std::runtime_error.

#pragma once

#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

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
