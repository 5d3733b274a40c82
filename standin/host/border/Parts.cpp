// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts of the host as they are.

#include "standin/host/stream/Parts.h"

namespace XAPEL2 {
namespace StandIn {

std::unique_ptr<ICancelPolicy> makeCancelPolicy() {
    return std::make_unique<CCancelBegun>();
}

std::shared_ptr<ICamera> fitCamera(std::unique_ptr<ICamera> pCamera) {
    return pCamera;
}

}  // namespace StandIn
}  // namespace XAPEL2
