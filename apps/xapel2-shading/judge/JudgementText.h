// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How judgement puts numbers, layouts and settings into words.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace App {

/// A number with so many digits behind the point; "unknown" for NaN.
std::string fixed(double dValue, int nDigits);

/// "1 frame", "16 frames".
std::string counted(uint64_t nCount, const char* pThing);

/// "Mono12, 1280 x 1024".
std::string layoutText(const StandIn::ImageLayout& rLayout);

/// The text with its first letter a capital.
std::string capital(std::string strText);

/// A setting of the camera with its unit: "exposure time 10000 us", "mirror X on".
std::string settingText(const std::string& strName, double dValue);

/// The name of the finding about another value of the setting: "other-exposure", "other-gain", "other-offset",
/// "other-binning", "other-mirror".
std::string settingId(const std::string& strName);

}  // namespace App
}  // namespace XAPEL2
