// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command output: says in a light reference how corrected images come out.

#pragma once

#include <string>

namespace XAPEL2 {
namespace App {

struct SetOutputOptions {
    std::string strLight;     ///< reference file, which is replaced
    std::string strDark;      ///< for finding defects; empty: none
    std::string strDefects;   ///< "find", "none" or the file of a list; empty: leave them
    std::string strTarget;    ///< "mean", "max" or a number of DN; empty: leave it
    double dPedestal = -1.0;  ///< DN; below 0: leave it
    std::string strGain;      ///< file to write the gain to; empty: none
    std::string strExport;    ///< file to write the list of defects to; empty: none
    bool bJson = false;
};

/// Changes the file whole or not at all, and prints what changed.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runSetOutput(const SetOutputOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
