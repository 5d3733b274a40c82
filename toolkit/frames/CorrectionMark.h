// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a corrected frame says of itself.

#pragma once

#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// The line that a file of a corrected frame carries: that it is one, and by which references, told by their hashes.
/// @param[in] pDark,pLight  borrowed; null: none.
std::string correctionMark(const StandIn::ReferenceImage* pDark, const StandIn::ReferenceImage* pLight);

/// The mark that a file carries; empty where it carries none or cannot be read.
std::string markOf(const std::string& strFile);

}  // namespace Toolkit
}  // namespace XAPEL2
