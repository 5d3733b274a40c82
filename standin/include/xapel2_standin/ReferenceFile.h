// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reference files: one uncompressed TIFF of 32-bit float samples with JSON in its image description.

#pragma once

#include <string>

#include "xapel2/XapelExport.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// Writes a reference. The file appears under its name whole and flushed to disk, or not at all: it is written beside
/// it under a temporary name, which a failed write removes. An existing file is replaced, that behind a symbolic link
/// where it is one, but not a read-only one. The temporary file of a killed process (.xapel2-*.tmp) is taken away by
/// the next write into the folder.
/// The description is a JSON object: kind ("dark", "light"), pixelFormat (PFNC name), images, saturatedShare (0 to 1),
/// mean and temporalNoise (DN), camera (object) where rReference.strCamera is not empty, geometry
/// (object with the SFNC names of sensor size, offset, binning, its mode, and mirror) where it is known, and output
/// (object) where rReference.sOutput says something. A defect map is a second page with 8 bits for each pixel.
/// @throws std::runtime_error   nothing was written; or only the folder could not be flushed, and the file is there.
/// @throws std::bad_alloc       nothing was written.
/// @threads any.
XAPEL2_HOST_API void writeReferenceFile(const std::string& strFile, const ReferenceImage& rReference);

/// Reads a reference and checks all of it: every field counts as hostile. Refused are compressed, tiled or planar data,
/// samples other than 32-bit float, NaN, infinity, values outside 0 to full scale, impossible sizes (before memory
/// is taken for them), data beyond the end of the file, and a description that is too long (64 KiB), too deep (8
/// levels), or lacks a field; so are a geometry that lacks a member or
/// has one out of range or of another type, or on whose sensor the image does not lie; in a light reference a second
/// page that is no defect map, one that marks more pixels than ReferenceImage::defectsMax, and an output out of range;
/// in a dark one both. Unknown fields of the description are ignored.
/// @throws std::runtime_error   says what is wrong.
/// @throws std::bad_alloc
/// @threads any.
XAPEL2_HOST_API ReferenceImage readReferenceFile(const std::string& strFile);

/// Gives the references that image processors write for this thread from now on (ReferenceEnd) a note: it is filed as
/// their camera settings. An empty text ends that.
/// @param[in] strJson  a JSON object of at most 63 KiB and 7 levels, filed as it stands.
/// @throws Exceptions::Xapel_InvalidParameterException  it is none, too long or too deep; the note before stays.
/// @throws std::bad_alloc                               the note before stays.
/// @threads any; each has its own.
XAPEL2_HOST_API void setReferenceNote(const std::string& strJson);

/// Whether the recordings that this thread ends from now on (ReferenceEnd) keep in their mean what left the other
/// images: whole images, and single samples. By default recordings of eight images or more do not; either way the
/// reference tells it. @threads any; each has its own.
XAPEL2_HOST_API void setOutliersKept(bool bKept);

}  // namespace StandIn
}  // namespace XAPEL2
