// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pair of references that a sub-command corrects with.

#pragma once

#include <string>

namespace XAPEL2 {
namespace Toolkit {

class CSession;

/// Reference files and the filters on them. One of the two files may be missing.
struct PairOptions {
    std::string strDark, strLight;               ///< file names; empty: none
    unsigned nBoxLight = 0, nBoxDark = 0;        ///< radius of the box filter, pixels; 0: off
    unsigned nMedianLight = 0, nMedianDark = 0;  ///< radius of the median filter, pixels; 0: off

    bool empty() const { return strDark.empty() && strLight.empty(); }
    /// "median on the dark reference, radius 2, ..."; empty: no filter.
    std::string filters() const;
};

/// Loads the pair in place of all references that the session has, and applies it with its filters to the camera's
/// format and size. Correction is off then.
/// @throws std::runtime_error  names the file or the step, and says why.
void applyPair(CSession& rSession, const PairOptions& rPair);

}  // namespace Toolkit
}  // namespace XAPEL2
