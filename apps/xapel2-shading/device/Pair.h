// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pair of references that a sub-command corrects with.

#pragma once

#include <string>

#include "xapel2_ext_sc.h"

namespace XAPEL2 {
namespace App {

/// Reference files and the filters on them. One of the two files may be missing.
struct PairOptions {
    std::string strDark, strLight;               ///< file names; empty: none
    unsigned nBoxLight = 0, nBoxDark = 0;        ///< radius of the box filter, pixels; 0: off
    unsigned nMedianLight = 0, nMedianDark = 0;  ///< radius of the median filter, pixels; 0: off
};

}  // namespace App
}  // namespace XAPEL2
