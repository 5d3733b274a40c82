// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Visibility of what the host library exports.

#pragma once

/// Exports a class or a function of the host library.
#define XAPEL2_HOST_API __attribute__((visibility("default")))
