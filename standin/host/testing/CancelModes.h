// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The cancels that other hosts have.

#pragma once

#include "standin/host/stream/CancelPolicy.h"

namespace XAPEL2 {
namespace StandIn {

/// Cancels as the switch says at each cancel.
class CCancelModes : public ICancelPolicy {
public:
    void cancel(ICancelledFetches& rFetches) override;
    bool endsNext() override;
    void forget() override { m_nSticky = 0; }

private:
    unsigned m_nSticky = 0;  // fetches yet to come that a cancel has ended already
};

}  // namespace StandIn
}  // namespace XAPEL2
