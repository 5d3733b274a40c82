// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command devices: what can be opened.

#include "commands/Devices.h"

#include <stdexcept>

namespace XAPEL2 {
namespace App {

int runDevices(const DevicesOptions&) {
    throw std::runtime_error("this sub-command is not written yet");
}

}  // namespace App
}  // namespace XAPEL2
