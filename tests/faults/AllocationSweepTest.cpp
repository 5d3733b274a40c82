// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The scenario with every allocation of the application's thread failing, once and from there on, in the library and
// in the host alike. The camera's thread, which is the host's own, is spared.

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <new>

#include "Allocations.h"
#include "Scenario.h"
#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CScenario;

/// Lets an allocation fail, or every one from it on, where fnRun is told to arm; fnRun then cleans up and checks.
/// @return number of runs, the last one without a failure.
uint64_t sweep(const std::string& strWhat, const std::function<void(const std::function<void(bool)>&)>& fnRun) {
    const auto fnArm = [](bool bOn) { Allocations::pause(!bOn); };
    // A few runs fill what the process keeps once; then each adds what the host keeps for ever for a device.
    int64_t nKept = 0;
    for (int iRun = 0; iRun < 10; ++iRun) {
        const int64_t nBefore = Allocations::live();
        fnRun(fnArm);
        nKept = Allocations::live() - nBefore;
    }
    uint64_t nRuns = 0;
    for (const bool bFromThen : {false, true}) {
        bool bFailed = true;
        for (uint64_t nBefore = 0; bFailed && !::testing::Test::HasFailure(); ++nBefore, ++nRuns) {
            const std::string strCase =
                strWhat + ", allocation " + std::to_string(nBefore + 1) + (bFromThen ? " and later" : "");
            SCOPED_TRACE(strCase);
            XapelTest::beginCase(strCase);
            const int64_t nLive = Allocations::live();
            Allocations::pause(true);
            Allocations::failAfter(nBefore, bFromThen);
            fnRun(fnArm);
            bFailed = Allocations::failed() != 0;
            Allocations::failAfter(UINT64_MAX);
            EXPECT_LE(Allocations::live() - nLive, nKept) << "leaked";
        }
    }
    return nRuns;
}

TEST(AllocationSweep, NothingIsLeftBehindAndTheDeviceStaysUsable) {
    uint64_t nRuns = 0;
    for (const bool bHolder : {false, true}) {
        nRuns += sweep(bHolder ? "hub held by another" : "alone", [&](const auto& rArm) {
            Control::reset();
            CScenario scenario(bHolder, rArm);
            scenario.run();
            const bool bFailed = Allocations::failed() != 0;
            scenario.clearFaults();
            scenario.check(bFailed, false);
        });
    }
    EXPECT_GT(nRuns, 1000U);
    std::printf("%llu runs\n", static_cast<unsigned long long>(nRuns));
}

TEST(AllocationSweep, DeviceIsOpenedAndClosedWholeOrNotAtAll) {
    const uint64_t nRuns = sweep("devices", [](const auto& rArm) {
        XAPEL2::Device* pDevice = nullptr;
        std::future<int> blocked;
        const auto fnStep = [&](const std::function<void()>& fn) {
            rArm(true);
            try {
                fn();
            } catch (const std::bad_alloc&) {
            }
            rArm(false);
        };
        fnStep([&] { pDevice = openDevice("sim:7?width=16&height=8&format=Mono8"); });
        if (pDevice == nullptr)
            return;
        fnStep([&] { Control::addFirstStream(pDevice); });
        XAPEL2::DataStream* const pStream = firstDataStream(pDevice);
        openDataStream(pDevice, pStream);
        blocked = std::async(std::launch::async, [pStream] {
            BufferHandle hBuffer = nullptr;
            return getFilledBuffer(pStream, &hBuffer, TIMEOUT_INFINITE);
        });
        Control::waitForBlockedFetches(pStream, 1, XapelTest::DEADLINE_MS);
        fnStep([&] { closeDevice(pDevice); });
        closeDevice(pDevice);
        EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
    });
    EXPECT_GT(nRuns, 50U);
}

}  // namespace
