// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a device identifier names.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "standin/cameras/interface/FrameSource.h"

namespace XAPEL2 {
namespace StandIn {

/// The source that a device identifier names: "sim...", "replay:DIR..." (see openDevice).
/// @throws std::invalid_argument  the text names no source or carries a bad setting.
/// @throws std::runtime_error     a folder or file cannot be used; names it.
std::unique_ptr<IFrameSource> makeFrameSource(const std::string& strId);

/// A source of these image files (see openFiles). @throws as makeFrameSource.
std::unique_ptr<IFrameSource> makeFileSource(const std::vector<std::string>& aFiles, const std::string& strFormat);

}  // namespace StandIn
}  // namespace XAPEL2
