// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The settings and the camera of a reference beside those of another, or of a camera.

#pragma once

#include <string>

#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

/// How texts begin to say what is so on either side.
struct ComparedSides {
    std::string strFirst;   ///< "The dark reference was taken with"
    std::string strSecond;  ///< "the camera is set to"
    std::string strCamera;  ///< the second's camera: "this is"
};

/// Another offset, binning or mirror is refused, another exposure, gain or camera warned about; what one of the two
/// does not tell is named in a note.
/// @param[in] bPlaced  where the images lie on the sensor has been compared: then of settings exposure and gain alone
/// are.
void compareSettings(const CameraSettings& rFirst, const CameraSettings& rSecond, const ComparedSides& rSides,
                     const std::string& strAdvice, bool bPlaced, Findings& rFindings);

/// Where an image lies, for texts: its region, its sensor and its format.
std::string placeWords(const StandIn::ImageLayout& rLayout, const StandIn::ImageGeometry& rPlace);

}  // namespace Toolkit
}  // namespace XAPEL2
