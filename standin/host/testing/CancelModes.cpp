// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ends fetches as the mode of the cancel says.

#include "standin/host/testing/CancelModes.h"

#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

void CCancelModes::cancel(ICancelledFetches& rFetches) {
    const auto fnEndAllWaiting = [&rFetches] {
        bool bAny = false;
        while (rFetches.endOldestWaiting()) {
            bAny = true;
        }
        return bAny;
    };
    switch (switches().eCancel.load()) {
        case Control::eEndsAllBegun:
            rFetches.endBegun();
            break;
        case Control::eWakesOne:
            m_nSticky += rFetches.endOldestWaiting() ? 0 : 1;
            break;
        case Control::eSticksWithoutWaiter:
            if (!fnEndAllWaiting()) {
                m_nSticky = 1;
            }
            break;
        case Control::eForgotten:
            fnEndAllWaiting();
            break;
        case Control::eIgnored:
            break;
    }
}

bool CCancelModes::endsNext() {
    if (m_nSticky == 0) {
        return false;
    }
    --m_nSticky;
    return true;
}

}  // namespace StandIn
}  // namespace XAPEL2
