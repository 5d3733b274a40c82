// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether a file can be written, asked before a camera takes minutes for what goes into it.

#pragma once

#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/frames/SourceFiles.h"

namespace XAPEL2 {
namespace App {

/// @return  the file that will be written: the one behind symbolic links.
/// @throws std::runtime_error  the file cannot be written where it is to be; names it and says what to do.
/// @throws CUsageError         it is one of the sources.
std::string requireWritable(const std::string& strFile, const CSourceFiles& rSources);

}  // namespace App
}  // namespace XAPEL2
