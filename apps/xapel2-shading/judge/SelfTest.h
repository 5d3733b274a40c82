// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The self test of a pair of references: applied to its own mean it must come out flat.

#pragma once

#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace App {

/// Corrects the mean of the light reference, rounded to whole DN, by the pair, through the library and the host's image
/// processor, without filters.
/// @param[in] strDark,strLight  the files; rLight is what the latter holds.
/// @return the largest distance in DN of a corrected sample from the mean of its colour class. Left out are samples
/// that
///         no correction can make flat: those without signal, with a gain beyond its limit, at full scale.
/// @throws std::runtime_error, Exceptions::IException  the pair cannot be applied.
/// @threads one at a time in a process.
double selfTest(const std::string& strDark, const std::string& strLight, const StandIn::ReferenceImage& rDark,
                const StandIn::ReferenceImage& rLight);

}  // namespace App
}  // namespace XAPEL2
