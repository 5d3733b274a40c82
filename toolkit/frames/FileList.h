// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The image files that some words name.

#pragma once

#include <string>
#include <vector>

#include "toolkit/frames/SourceFiles.h"

namespace XAPEL2 {
namespace Toolkit {

/// Files as they are named; in place of a folder the image files in it, and in place of a pattern (*, ?, [...]) that is
/// no file the files that match it, each in the order of their names.
/// @param[in] rLeftOut  files that are not taken out of a folder or a pattern, such as the references beside the
/// frames.
/// @throws CUsageError         a folder has no image file, or nothing matches.
/// @throws std::runtime_error  a folder cannot be read; names it.
std::vector<std::string> listFiles(const std::vector<std::string>& vecWords, const CSourceFiles& rLeftOut);

}  // namespace Toolkit
}  // namespace XAPEL2
