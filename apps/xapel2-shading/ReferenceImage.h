// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reading the mean image of a reference file.

#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace XAPEL2 {
namespace App {

/// The mean image of a reference, in DN, samples in the order of the camera's buffers.
struct ReferenceImage {
    uint64_t nWidth = 0, nHeight = 0;
    std::vector<float> aSamples;
};

/// @throws std::runtime_error  the file is no TIFF of 32-bit float samples; names it.
ReferenceImage readReferenceImage(const std::filesystem::path& rFile);

}  // namespace App
}  // namespace XAPEL2
