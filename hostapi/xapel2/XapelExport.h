// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Visibility of what the host library exports.

#pragma once

#define XAPEL2_HOST_API __attribute__((visibility("default")))
