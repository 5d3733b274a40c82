// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the image processor asks its host about images.

#pragma once

#include "xapel2_standin/ImageGeometry.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// The host knows which buffer an address belongs to, and what the camera said of the frame in it. What the answers say
/// is checked, what is thrown counts as no answer. @threads any.
class IImagePlaces {
public:
    virtual ~IImagePlaces() = default;

    /// Where the image at this address lay on its sensor when the camera took it. False where nobody knows: the address
    /// is in no buffer, or the camera does not tell.
    /// @param[in] pImage  the image's first byte; not followed.
    virtual bool placeOf(const void* pImage, ImageGeometry& rGeometry) const = 0;

    /// Where images of this layout would lie that the camera took now of which the calling thread has asked the format
    /// and size. False where it has asked none, or that camera does not tell.
    virtual bool presentPlace(const ImageLayout& rLayout, ImageGeometry& rGeometry) const = 0;
};

}  // namespace StandIn
}  // namespace XAPEL2
