// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Has the user point a camera that cannot be pointed by the program.

#pragma once

namespace XAPEL2 {
namespace App {

/// Says on stderr what the camera must see: an even, evenly lit target, or with bLight false nothing, its lens covered.
/// Where a user sits at a terminal, waits until Enter is pressed.
/// @throws CInterruptedError  the user wants to end.
void askForScene(bool bLight);

}  // namespace App
}  // namespace XAPEL2
