// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The toolkit's names, which the application uses as its own.

#pragma once

namespace XAPEL2 {
namespace Toolkit {}
namespace App {
using namespace Toolkit;
}
}  // namespace XAPEL2
