// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hook calls that the host had looked up before the hub was unhooked: during its end and after it.

#include <atomic>
#include <memory>
#include <set>

#include "Participants.h"
#include "StreamFixture.h"
#include "XapelBypassSlot.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CHookCaller;
using XapelTest::CPlain;
using XapelTest::eventually;

class LateCall : public XapelTest::StreamFixture {};

TEST_F(LateCall, EndOfTheHubWaitsForACallInside) {
    auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    void* const pContext = pHub.get();
    XapelPinWord& rPins = xapelSlotPinWord(pContext);
    EXPECT_EQ(rPins.load(), 1U);
    auto pPin = std::make_unique<CXapelHubPin>(pContext);
    EXPECT_TRUE(pPin->isAlive());
    auto end = std::async(std::launch::async, [&] { pHub.reset(); });
    EXPECT_TRUE(eventually([&] { return (rPins.load() & 1) == 0; }));
    EXPECT_FALSE(XapelTest::ready(end, 30));
    EXPECT_FALSE(CXapelHubPin(pContext).isAlive());
    pPin.reset();
    EXPECT_TRUE(XapelTest::ready(end));
}

TEST_F(LateCall, EndCancelsOnceAndACallAtTheGateFindsNoFunctions) {
    startStream(0);
    auto pParticipant = std::make_unique<CPlain>(m_pDevice);
    const CHookCaller hooks;
    Control::setCancelMode(Control::eIgnored);
    auto blocked = std::async(std::launch::async, [this] { return fetch(200); });
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, XapelTest::DEADLINE_MS));
    auto end = std::async(std::launch::async, [&] { pParticipant.reset(); });
    EXPECT_TRUE(eventually([] { return Control::calls(Control::eHostCancel) == 1; }));
    // The end holds the gate until the fetch has timed out; this one waits before the gate meanwhile.
    void* pBuffer = nullptr;
    EXPECT_EQ(hooks.fetch(&pBuffer, 0), GC_ERR_NOT_INITIALIZED);
    EXPECT_TRUE(XapelTest::ready(end));
    EXPECT_EQ(blocked.get(), GC_ERR_TIMEOUT);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 1U);
}

TEST_F(LateCall, CallsBesideTheLivesOfManyHubs) {
    constexpr int LIVES = 300;
    std::atomic<bool> bStop{false};
    std::atomic<void*> pContext{nullptr};
    CHookCaller hooks;
    {
        CXapelBypass first(m_pDevice);
        hooks = CHookCaller();
        pContext = hooks.m_pContext;
    }
    std::atomic<long> nCalls{0};
    auto late = std::async(std::launch::async, [&] {
        while (!bStop) {
            CHookCaller caller = hooks;
            caller.m_pContext = pContext;
            void* pBuffer = nullptr;
            caller.fetch(&pBuffer, 0);
            caller.info();
            caller.cancel();
            caller.close(nullptr);
            ++nCalls;
        }
    });
    std::set<void*> contexts;
    for (int i = 0; i < LIVES; ++i) {
        CXapelBypass participant(m_pDevice);
        pContext = Control::hookContexts().at(0);
        contexts.insert(pContext);
    }
    EXPECT_TRUE(eventually([&] { return nCalls > 10; }));
    bStop = true;
    late.get();
    // Slots are used again, but not before others have rested.
    EXPECT_LT(contexts.size(), static_cast<size_t>(LIVES));
    EXPECT_GE(contexts.size(), XAPEL_SLOTS_RETIRED_MIN);
}

}  // namespace
