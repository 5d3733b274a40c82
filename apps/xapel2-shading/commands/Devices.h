// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command devices: what can be opened.

#pragma once

namespace XAPEL2 {
namespace App {

struct DevicesOptions {
    bool bJson = false;
};

/// Lists what can be opened, with format and size.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runDevices(const DevicesOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
