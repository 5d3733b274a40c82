// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The JSON text that a reference file carries in its image description.

#pragma once

#include <cstdint>
#include <string>

#include "standin/files/TiffHandle.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// The description of a reference, checked to be one that parseDescription takes.
/// @throws CFileError  strCamera is no JSON object, or too long or deep.
std::string makeDescription(const ReferenceImage& rReference);

/// Passes what a reference may carry as its camera settings, so that no description is refused because of them.
/// @throws CFileError  no JSON object, or too long or deep.
void checkNote(const std::string& strJson);

/// What the camera's settings tell of where an image of this layout lies; not known where they do not tell all of it,
/// or what cannot be. @throws std::bad_alloc
ImageGeometry geometryOfNote(const std::string& strJson, const ImageLayout& rLayout);

/// A reference without samples from its description, with every field checked. Reads 64 KiB and 8 levels at most.
/// @throws CFileError  says what is wrong.
ReferenceImage parseDescription(const char* strText, uint64_t nWidth, uint64_t nHeight);

}  // namespace StandIn
}  // namespace XAPEL2
