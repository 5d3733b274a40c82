// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check: judges a dark and a light reference.

#pragma once

#include <string>
#include <vector>

namespace XAPEL2 {
namespace App {

struct CheckOptions {
    std::string strDark, strLight;       ///< reference files
    std::vector<std::string> vecLevels;  ///< light references, or folders of frames, at several exposures; may be empty
    bool bList = false;                  ///< list each hot and dead pixel
    bool bForce = false;                 ///< a refusal only warns
    bool bJson = false;
};

/// Prints the verdict on each reference and on the pair.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runCheck(const CheckOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
