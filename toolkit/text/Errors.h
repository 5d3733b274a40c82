// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the toolkit throws besides std::runtime_error.

#pragma once

#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

/// What was asked for does not go together, or an output is there already: the text says what to do.
class CUsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace Toolkit
}  // namespace XAPEL2
