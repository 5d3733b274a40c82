// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts of the host that whoever links its objects chooses: the host's border, or a border for tests.

#pragma once

#include <memory>

#include "standin/cameras/interface/Camera.h"
#include "standin/host/stream/CancelPolicy.h"

namespace XAPEL2 {
namespace StandIn {

/// What a cancel does to the fetches of a new stream.
std::unique_ptr<ICancelPolicy> makeCancelPolicy();

/// The camera of a new device, made of the one that its identifier names.
std::shared_ptr<ICamera> fitCamera(std::unique_ptr<ICamera> pCamera);

}  // namespace StandIn
}  // namespace XAPEL2
