// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's trace.

#pragma once

#include <cstdint>

#include "xapel2/XapelExport.h"

/// Writes one line to the host's trace. Level 0: ordinary, 2: error path.
/// @threads any thread.
extern "C" XAPEL2_HOST_API void extT(const int32_t* piLevel, const char* pText);
