// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Source files that the library's exceptions name: the units, not the files that they are divided into.

#pragma once

constexpr char XAPEL_BYPASS_SOURCE_FILE[] = "tlconsumer/xapel2_ext_sc/XapelBypass";
constexpr char VEXO_SOURCE_FILE[] = "tlconsumer/xapel2_ext_sc/VexoShading";
