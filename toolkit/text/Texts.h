// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How numbers, counts and image layouts read.

#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A figure that nothing tells; as a text "unknown".
constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();

/// A number with so many digits behind the point, a zero without sign; "unknown" for NaN. Where there is a point and
/// all digits would be zeros, it has as many more, six at most, as it takes to see that the value is none: 0.0004, not
/// 0.00.
std::string fixed(double dValue, int nDigits);

/// A time: "1.234 ms", what is below a tenth of a millisecond as "12.34 us"; "unknown" for NaN.
std::string duration(double dMs);

/// The same with a unit behind it; "unknown" alone for NaN.
std::string withUnit(double dValue, int nDigits, const std::string& strUnit);

/// "1 frame", "16 frames".
std::string counted(uint64_t nCount, const char* pThing);

/// "Mono12, 1280 x 1024".
std::string layoutText(const StandIn::ImageLayout& rLayout);

/// The text with its first letter a capital.
std::string capital(std::string strText);

}  // namespace Toolkit
}  // namespace XAPEL2
