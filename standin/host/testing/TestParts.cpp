// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts of the host in tests: they do as the switches say.

#include "standin/host/stream/Parts.h"
#include "standin/host/testing/CancelModes.h"
#include "standin/host/testing/FaultyCamera.h"

namespace XAPEL2 {
namespace StandIn {

std::unique_ptr<ICancelPolicy> makeCancelPolicy() {
    return std::make_unique<CCancelModes>();
}

std::shared_ptr<ICamera> fitCamera(std::unique_ptr<ICamera> pCamera) {
    return std::make_shared<CFaultyCamera>(std::move(pCamera));
}

}  // namespace StandIn
}  // namespace XAPEL2
