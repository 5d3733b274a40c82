// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How judgement puts settings of the camera into words.

#pragma once

#include <string>

namespace XAPEL2 {
namespace Toolkit {

/// A setting of the camera with its unit: "exposure time 10000 us", "mirror X on".
std::string settingText(const std::string& strName, double dValue);

/// The name of the finding about another value of the setting: "other-exposure", "other-gain", "other-offset",
/// "other-binning", "other-mirror".
std::string settingId(const std::string& strName);

}  // namespace Toolkit
}  // namespace XAPEL2
