// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The scenario with every host operation, and every allocation, failing at each of its calls, once and from there on.

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <new>

#include "Allocations.h"
#include "Scenario.h"
#include "StreamFixture.h"
#include "XapelBypassDevice.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CScenario;

/// Calls fnRun with 1, 2, ... for the call that is to fail, until it returns false: there was no such call.
/// @param[in] nSpare  allocations that a run may leave, for hubs that the host goes on calling.
/// @return number of runs.
uint64_t sweep(const std::string& strWhat, int64_t nSpare, const std::function<bool(uint64_t)>& fnRun) {
    // From here on hubs stand in slots that were used before.
    for (std::size_t i = 0; i <= XAPEL_SLOTS_RETIRED_MIN; ++i) {
        xapelSlotRetire(xapelSlotAcquire(sizeof(CXapelBypassDevice)));
    }
    // A few runs without a fault fill what the process keeps once; then each adds what the host keeps of a device.
    int64_t nKept = 0;
    XapelTest::beginCase(strWhat + ", no fault");
    for (int iRun = 0; iRun < 8; ++iRun) {
        nKept = -Allocations::live();
        EXPECT_FALSE(fnRun(UINT64_MAX)) << strWhat;
        nKept += Allocations::live();
    }
    bool bHit = true;
    uint64_t nRuns = 0;
    while (bHit && !::testing::Test::HasFailure()) {
        const std::string strCase = strWhat + ", call " + std::to_string(++nRuns);
        SCOPED_TRACE(strCase);
        XapelTest::beginCase(strCase);
        const int64_t nBefore = Allocations::live();
        bHit = fnRun(nRuns);
        EXPECT_LE(Allocations::live() - nBefore, nKept + nSpare) << "leaked";
    }
    alarm(0);
    return nRuns;
}

const char* const MODES[] = {" once", " from there on", " once, hub held by another",
                             " from there on, hub held by another"};

class FaultSweep : public ::testing::TestWithParam<Control::eFaultKind> {};

TEST_P(FaultSweep, NothingIsLeftBehindAndTheDeviceStaysUsable) {
    const char* const aKinds[] = {"refuses", "throws a host exception", "throws a standard exception"};
    for (int iOp = 0; iOp < Control::eOpCount; ++iOp) {
        const auto eOp = static_cast<Control::eHostOp>(iOp);
        const bool bRemoval = eOp >= Control::eRemoveFetch && eOp <= Control::eRemoveOpen;
        uint64_t nRuns = 0;
        for (const unsigned uMode : {0U, 1U, 2U, 3U}) {
            const std::string strWhat = std::string(Control::name(eOp)) + " " + aKinds[GetParam()] + MODES[uMode];
            nRuns += sweep(strWhat, bRemoval ? 2 : 0, [&](uint64_t nCall) {
                CScenario scenario((uMode & 2) != 0);
                Control::inject({eOp, GetParam(), nCall, (uMode & 1) != 0});
                scenario.run();
                const uint64_t nHits = Control::hits();
                scenario.check(nHits != 0, bRemoval ? nHits : 0);
                return nHits != 0;
            });
        }
        EXPECT_GT(nRuns, 4U) << Control::name(eOp) << " is never called";
    }
}

INSTANTIATE_TEST_SUITE_P(RefuseThrowHostThrowStd, FaultSweep,
                         ::testing::Values(Control::eRefuse, Control::eThrowHost, Control::eThrowStd));

// Allocations of the application's thread fail, in the library and in the host alike. The camera's thread, which is
// the host's own, is spared.

TEST(AllocationSweep, NothingIsLeftBehindAndTheDeviceStaysUsable) {
    uint64_t nRuns = 0;
    for (const unsigned uMode : {0U, 1U, 2U, 3U}) {
        nRuns += sweep(std::string("no memory") + MODES[uMode], 0, [&](uint64_t nCall) {
            CScenario scenario((uMode & 2) != 0, &Allocations::arm);
            Allocations::arm(false);
            Allocations::failAfter(nCall - 1, (uMode & 1) != 0);
            scenario.run();
            const bool bFailed = Allocations::failed() != 0;
            scenario.check(bFailed, 0);
            return bFailed;
        });
    }
    EXPECT_GT(nRuns, 1000U);
}

TEST(AllocationSweep, DeviceIsOpenedAndClosedWholeOrNotAtAll) {
    const auto fnStep = [](const std::function<void()>& fn) {
        Allocations::arm(true);
        try {
            fn();
        } catch (const std::bad_alloc&) {
        }
        Allocations::arm(false);
    };
    uint64_t nRuns = 0;
    for (const bool bFromThen : {false, true}) {
        nRuns += sweep(bFromThen ? "no memory for a device from there on" : "no memory for a device", 0,
                       [&](uint64_t nCall) {
                           XAPEL2::Device* pDevice = nullptr;
                           Allocations::arm(false);
                           Allocations::failAfter(nCall - 1, bFromThen);
                           fnStep([&] { pDevice = openDevice("sim:7?width=16&height=8&format=Mono8"); });
                           if (pDevice == nullptr) {
                               return nCall != UINT64_MAX;
                           }
                           fnStep([&] { Control::addFirstStream(pDevice); });
                           XAPEL2::DataStream* const pStream = firstDataStream(pDevice);
                           openDataStream(pDevice, pStream);
                           auto blocked = std::async(std::launch::async, [pStream] {
                               BufferHandle hBuffer = nullptr;
                               return getFilledBuffer(pStream, &hBuffer, TIMEOUT_INFINITE);
                           });
                           Control::waitForBlockedFetches(pStream, 1, XapelTest::DEADLINE_MS);
                           fnStep([&] { closeDevice(pDevice); });
                           closeDevice(pDevice);
                           EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
                           return Allocations::failed() != 0;
                       });
    }
    EXPECT_GT(nRuns, 50U);
}

class FetchAllocations : public XapelTest::StreamFixture {
protected:
    FetchAllocations() : StreamFixture("sim:7?width=64&height=48&format=BayerRG12p") {}

    const XAPEL2::Test::CTemporaryFolder m_folder;  // that of the sweeps is counted
};

// Two texts are made for each frame: the name of its format, which is short enough to need no memory of its own, and
// the one that the node takes.
TEST_F(FetchAllocations, NoneWithCorrectionOffAndATextForEachFrameWithItOn) {
    XAPEL2::Ext::Sc::Shading shading(m_pDevice);
    std::vector<uint16_t> vecDark(64 * 48, 100);
    shading.ReferenceStart(false);
    shading.ReferenceAdd("BayerRG12", 64, 48, vecDark.data(), 2 * vecDark.size());
    shading.ReferenceEnd((m_folder / "dark12.tif").c_str());
    shading.ReferenceApply();
    openDataStream(m_pDevice, m_pStream);
    EXPECT_EQ(fetch(1), GC_ERR_TIMEOUT) << "the first wait makes the list of those that wait";
    startStream();
    for (const bool bOn : {false, true, false}) {
        shading.SetEnable(bOn);
        uint64_t nBefore = 0;
        for (int i = 0; i < 24; ++i) {
            // After the first frames everything that is kept is there.
            nBefore = i == 4 ? Allocations::done() : nBefore;
            ASSERT_EQ(fetch(), 0);
        }
        EXPECT_EQ(Allocations::done() - nBefore, bOn ? 20U : 0U);
    }
}

}  // namespace
