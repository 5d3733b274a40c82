// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references: applied to its own mean it must come out flat.

#pragma once

#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// Corrects the mean of the light reference by the pair, through the library and the host's image processor, without
/// filters. Images have whole values and the mean has not: those below and above it are corrected, and the result taken
/// in proportion.
/// @param[in] strDark,strLight  the files; rDark and rLight are what they hold, of one layout.
/// @return the largest distance in DN of a corrected sample from the mean signal (light - dark) of its colour class.
///         Left out are samples that no correction can make flat: without signal, of a gain beyond 16, at full scale.
/// @throws std::runtime_error, Exceptions::IException  the pair cannot be applied.
/// @threads one at a time in a process.
double selfTest(const std::string& strDark, const std::string& strLight, const StandIn::ReferenceImage& rDark,
                const StandIn::ReferenceImage& rLight);

}  // namespace Toolkit
}  // namespace XAPEL2
