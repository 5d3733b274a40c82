// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Finds the module that reaches real cameras.

#pragma once

#include "standin/cameras/interface/Camera.h"

namespace XAPEL2 {
namespace StandIn {

/// The provider of real cameras, from a library of its own beside this one that is loaded at the first call: neither it
/// nor what it depends on costs anything before a real camera is asked for. Never unloaded.
/// @throws CCameraError  the library is not installed, or belongs to another version. @threads any thread.
ICameraProvider& cameraProvider();

}  // namespace StandIn
}  // namespace XAPEL2
