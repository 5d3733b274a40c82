// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The participant base: what one does that overrides nothing, and how it leaves.

#include <cstring>
#include <functional>
#include <memory>
#include <new>

#include "xapel2/XapelExceptions.h"

#include "Participants.h"
#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CHookCaller;
using XapelTest::CPlain;
using XapelTest::CSpy;

class Participant : public XapelTest::StreamFixture {};

TEST_F(Participant, BaseParticipantIsTransparent) {
    std::vector<std::string> vecLog;
    CSpy useSpy(m_pDevice, "spy", vecLog);
    CPlain plain(m_pDevice);
    startStream();
    // On no list it is not called.
    EXPECT_EQ(fetch(), 0);
    EXPECT_TRUE(vecLog.empty());
    useSpy.registerParticipantForCalling();
    plain.registerParticipant();
    const CHookCaller hooks;
    EXPECT_EQ(fetch(), 0);
    EXPECT_EQ(Control::calls(Control::eHostFetch), 2U);
    EXPECT_EQ(vecLog, std::vector<std::string>{"spy.use"});
    EXPECT_EQ(hooks.info(), 0);
    EXPECT_EQ(Control::calls(Control::eHostInfo), 1U);
    // A failing query is repeated by the hub, whose result counts.
    EXPECT_EQ(hooks.info(false), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Control::calls(Control::eHostInfo), 3U);
    // Once by the participant and once by the hub.
    const std::pair<Control::eHostOp, std::function<void()>> twice[] = {
        {Control::eHostCancel, [&] { hooks.cancel(); }},
        {Control::eRegisterFetch, [&] { hooks.open(); }},
        {Control::eHostClose, [&] { hooks.close(m_pStream); }}};
    for (const auto& [eOp, fnCall] : twice) {
        const uint64_t nBefore = Control::calls(eOp);
        fnCall();
        EXPECT_EQ(Control::calls(eOp) - nBefore, 2U);
    }
}

TEST_F(Participant, DestroyedParticipantIsOffTheLists) {
    CXapelBypass holder(m_pDevice);
    startStream(0);
    // One that is on no list leaves the gate alone.
    auto blocked = blockedFetch();
    { CXapelBypass unlisted(m_pDevice); }
    EXPECT_EQ(Control::calls(Control::eHostCancel), 0U);
    cancelGetFilledBuffer(m_pStream);
    EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
    for (const bool bCalling : {false, true}) {
        // In memory of its own, wiped afterwards: a call would not go unnoticed.
        alignas(CPlain) unsigned char acMemory[sizeof(CPlain)];
        auto* pListed = new (acMemory) CPlain(m_pDevice);
        bCalling ? pListed->registerParticipantForCalling() : pListed->registerParticipant();
        // The host's refusal to cancel must not keep it on.
        auto ends = std::async(std::launch::async, [this] { return fetch(100); });
        ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, XapelTest::DEADLINE_MS));
        Control::inject({Control::eHostCancel, Control::eThrowHost});
        pListed->~CPlain();
        std::memset(acMemory, 0, sizeof(acMemory));
        EXPECT_EQ(ends.get(), GC_ERR_TIMEOUT);
        EXPECT_EQ(CHookCaller().info(), GC_ERR_NOT_INITIALIZED);
    }
    stopAcquisition(m_pStream);
    startStream();
    EXPECT_EQ(fetch(), 0);
}

}  // namespace
