// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The scenario with every host operation failing at every one of its calls, once and from there on.

#include <gtest/gtest.h>

#include "Scenario.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CScenario;

const char* const KINDS[] = {"refuse", "throw a host exception", "throw a standard exception"};

class FaultSweep : public ::testing::TestWithParam<Control::eFaultKind> {};

/// Runs the scenario with one fault. @return whether the fault hit.
bool runWith(const Control::Fault& rFault, bool bHolder) {
    Control::reset();
    const std::string strCase = std::string(Control::name(rFault.eOp)) + ", call " + std::to_string(rFault.nCall) +
                                (rFault.bFromThen ? " and later" : "") + ", " + KINDS[rFault.eKind] +
                                (bHolder ? ", hub held by another" : "");
    SCOPED_TRACE(strCase);
    XapelTest::beginCase(strCase);
    CScenario scenario(bHolder);
    Control::inject(rFault);
    scenario.run();
    const bool bHit = Control::hits() != 0;
    scenario.clearFaults();
    const bool bRemoval = rFault.eOp >= Control::eRemoveFetch && rFault.eOp <= Control::eRemoveOpen;
    scenario.check(bHit, bRemoval);
    return bHit;
}

TEST_P(FaultSweep, NothingIsLeftBehindAndTheDeviceStaysUsable) {
    unsigned nRuns = 0;
    for (int iOp = 0; iOp < Control::eOpCount; ++iOp) {
        unsigned nHit = 0;
        for (const unsigned uCase : {0U, 1U, 2U, 3U}) {
            Control::Fault fault{static_cast<Control::eHostOp>(iOp), GetParam(), 1, (uCase & 1) != 0};
            for (; runWith(fault, (uCase & 2) != 0) && !HasFailure(); ++fault.nCall) ++nHit;
            nRuns += static_cast<unsigned>(fault.nCall);
        }
        EXPECT_GT(nHit, 0U) << Control::name(static_cast<Control::eHostOp>(iOp)) << " is never called";
    }
    std::printf("%u runs\n", nRuns);
}

std::string nameOf(const ::testing::TestParamInfo<Control::eFaultKind>& rInfo) {
    const char* const aNames[] = {"Refuse", "ThrowHost", "ThrowStd"};
    return aNames[rInfo.param];
}

INSTANTIATE_TEST_SUITE_P(Kinds, FaultSweep,
                         ::testing::Values(Control::eRefuse, Control::eThrowHost, Control::eThrowStd), nameOf);

}  // namespace
