// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hub's hooks and lists: registering, roll-back, re-opening, removing, changes while calls are inside.

#include <algorithm>
#include <atomic>
#include <memory>

#include "xapel2/XapelExceptions.h"

#include "Participants.h"
#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using namespace XAPEL2::Exceptions;
using XapelTest::CHookCaller;
using XapelTest::CSpy;
using XapelTest::eventually;
using XapelTest::thrown;

typedef std::vector<std::string> Texts;

class Hub : public XapelTest::StreamFixture {};

TEST_F(Hub, LivesAsLongAsOneParticipantAndHooksOnce) {
    EXPECT_FALSE(m_pStream->IsOpen());
    Control::recordRegistrations(true);
    {
        CXapelBypass first(m_pDevice);
        EXPECT_TRUE(m_pStream->IsOpen());
        EXPECT_EQ(first.getXapelDataStream(), m_pStream);
        {
            CXapelBypass second(m_pDevice);
            EXPECT_EQ(Control::hookContexts().size(), 1U);
        }
        EXPECT_EQ(Control::liveHooks(), 5U);
    }
    EXPECT_EQ(Control::liveHooks(), 0U);
    EXPECT_EQ(Control::registrations(),
              (Texts{"register fetch", "register cancel", "register info", "register close", "register open",
                     "remove fetch", "remove cancel", "remove info", "remove close", "remove open"}));
    EXPECT_EQ(Control::calls(Control::eStreamOpen), 1U);
}

TEST_F(Hub, DevicesHaveHubsOfTheirOwnAndNullHasNone) {
    XAPEL2::Device* pOther = openDevice("sim:8?width=64&height=48&format=Mono8");
    {
        CXapelBypass first(m_pDevice);
        CXapelBypass second(pOther);
        EXPECT_EQ(Control::hookContexts().size(), 2U);
        CXapelBypassManager::removeXapelBypassDevice(nullptr);
        EXPECT_EQ(thrown<Xapel_InvalidParameterException>([] { CXapelBypass none(nullptr); }),
                  "CXapelBypass: Device parameter is nullptr.");
        EXPECT_EQ(Control::hookContexts().size(), 2U);
    }
    closeDevice(pOther);
}

TEST_F(Hub, DeviceWithoutStreamsIsRefusedWithATrace) {
    Control::hideStreams(m_pDevice, true);
    Control::recordTraces(true);
    EXPECT_EQ(thrown<Xapel_NotAvailableException>([this] { CXapelBypass none(m_pDevice); }),
              "CXapelBypassDevice: The device doesn't support any data streams.");
    EXPECT_EQ(XapelTest::traceTexts(2), Texts{"Extended-API;XapelBypass; ctor;CXapelBypassDevice "
                                              "The device doesn't support any data streams."});
    EXPECT_EQ(Control::liveHooks(), 0U);
    Control::hideStreams(m_pDevice, false);
    CXapelBypass works(m_pDevice);
}

TEST_F(Hub, FailedConstructionTakesItsHooksBack) {
    const Control::eHostOp ops[] = {Control::eRegisterFetch, Control::eRegisterCancel, Control::eRegisterInfo,
                                    Control::eRegisterClose, Control::eRegisterOpen};
    for (const auto eOp : ops) {
        SCOPED_TRACE(Control::name(eOp));
        Control::inject({eOp, Control::eRefuse});
        EXPECT_EQ(thrown<Xapel_ObjectInvalidException>([this] { CXapelBypass none(m_pDevice); }),
                  "initCallBacks: The DataStream object is not valid or is no longer valid");
        EXPECT_EQ(Control::liveHooks(), 0U);
        Control::inject({eOp, Control::eThrowStd});
        EXPECT_THROW({ CXapelBypass none(m_pDevice); }, std::runtime_error);
        EXPECT_EQ(Control::liveHooks(), 0U);
    }
    CXapelBypass works(m_pDevice);
    EXPECT_EQ(Control::liveHooks(), 5U);
}

TEST_F(Hub, RefusedRemovalIsTracedAndTheOthersAreRemoved) {
    const struct {
        Control::eHostOp eOp;
        std::string strText;
    } rows[] = {
        {Control::eRemoveFetch, "The DataStream object is not valid or is no longer valid"},
        {Control::eRemoveClose, "The Device object is not valid or is no longer valid"},
        {Control::eRemoveOpen, "The DataStream object is not valid or is no longer valid"},
    };
    for (const auto& rRow : rows) {
        auto pParticipant = std::make_unique<CXapelBypass>(m_pDevice);
        const CHookCaller hooks;
        Control::recordTraces(true);
        Control::inject({rRow.eOp, Control::eRefuse});
        pParticipant.reset();
        EXPECT_EQ(XapelTest::traceTexts(2), Texts{"Extended-API;XapelBypass; dtor;deInitCallBacks " + rRow.strText});
        EXPECT_EQ(Control::liveHooks(), 1U);
        // What the host kept finds no hub.
        void* pBuffer = nullptr;
        EXPECT_EQ(hooks.fetch(&pBuffer, 0), GC_ERR_NOT_INITIALIZED);
        EXPECT_EQ(hooks.info(), GC_ERR_NOT_INITIALIZED);
        EXPECT_EQ(hooks.close(m_pStream), GC_ERR_NOT_INITIALIZED);
        EXPECT_EQ(hooks.cancel(), 0);
        EXPECT_EQ(hooks.open(), 0);
        // The device is as good as new.
        CXapelBypass again(m_pDevice);
        EXPECT_EQ(Control::liveHooks(), 5U);
    }
}

TEST_F(Hub, DeInitStopsAtTheFirstRefusalAndKeepsTheFunctions) {
    const auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    Control::inject({Control::eRemoveInfo, Control::eRefuse});
    EXPECT_EQ(thrown<Xapel_ObjectInvalidException>([&] { pHub->deInitCallBacks(); }),
              "deInitCallBacks: The DataStream object is not valid or is no longer valid");
    EXPECT_EQ(Control::liveHooks(), 3U);
    EXPECT_EQ(pHub->consumer_cancelGetFilledBuffer(), 0);
    pHub->deInitCallBacks();
    EXPECT_EQ(pHub->consumer_cancelGetFilledBuffer(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(pHub->getFilledBuffer_Callback(nullptr, 0), GC_ERR_NOT_INITIALIZED);
}

TEST_F(Hub, OpeningMovesTheHubToTheFirstListedStream) {
    CXapelBypass participant(m_pDevice);
    Control::recordTraces(true);
    XAPEL2::DataStream* pFirst = Control::addFirstStream(m_pDevice);
    EXPECT_EQ(openDataStream(m_pDevice, pFirst), 0);
    EXPECT_EQ(participant.getXapelDataStream(), pFirst);
    EXPECT_EQ(XapelTest::traceTexts(0), Texts{"Extended-API;CXapelBypassDevice::; initCallBack called;"});
    // No hook stays on the stream that it left: nobody would remove it.
    EXPECT_EQ(Control::liveHooks(), 5U);
}

TEST_F(Hub, FailedReopeningKeepsWhatWorked) {
    CXapelBypass participant(m_pDevice);
    const CHookCaller hooks;
    // Another stream: hooks that this opening put on it are taken back.
    XAPEL2::DataStream* pFirst = Control::addFirstStream(m_pDevice);
    Control::inject({Control::eRegisterInfo, Control::eRefuse});
    EXPECT_THROW(openDataStream(m_pDevice, pFirst), Xapel_ObjectInvalidException);
    EXPECT_EQ(participant.getXapelDataStream(), m_pStream);
    EXPECT_EQ(Control::liveHooks(), 5U);
    EXPECT_EQ(hooks.cancel(), 0);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 1U);
    // The same stream: nothing is taken away.
    Control::inject({Control::eRegisterClose, Control::eRefuse});
    participant.registerParticipant();
    EXPECT_THROW(hooks.open(), Xapel_ObjectInvalidException);
    EXPECT_EQ(Control::liveHooks(), 5U);
    participant.unregisterParticipant();
    Control::hideStreams(m_pDevice, true);
    EXPECT_EQ(thrown<Xapel_NotAvailableException>([&] { hooks.open(); }),
              "consumer_DeviceOpenDataStream: The device doesn't support any data streams.");
}

TEST_F(Hub, ListKeepsDuplicatesAndOneRemovalTakesAll) {
    startStream();
    Texts log;
    CSpy spy(m_pDevice, "spy", log);
    for (int iRound = 0; iRound < 2; ++iRound) {
        spy.registerParticipantForCalling();
        spy.registerParticipantForCalling();
        log.clear();
        EXPECT_EQ(fetch(), 0);
        EXPECT_EQ(log.size(), 2U);
        spy.unregisterParticipantForCalling();
        spy.unregisterParticipantForCalling();  // one that is absent changes nothing
        EXPECT_EQ(fetch(), 0);
        EXPECT_EQ(log.size(), 2U);
    }
}

TEST_F(Hub, ChangeCancelsABlockedFetchOnce) {
    Texts log;
    CSpy spy(m_pDevice, "spy", log, {0, true});
    spy.registerParticipant();
    startStream(0);
    for (unsigned nFetches : {1U, 2U}) {
        std::vector<std::future<int>> fetches;
        for (unsigned i = 1; i <= nFetches; ++i) fetches.push_back(blockedFetch(i));
        const uint64_t nCancels = Control::calls(Control::eHostCancel);
        const uint64_t nAsked = static_cast<uint64_t>(std::count(log.begin(), log.end(), "spy.cancel"));
        auto change = std::async(std::launch::async, [&] { spy.registerParticipantForCalling(); });
        EXPECT_TRUE(XapelTest::ready(change));
        for (auto& rFetch : fetches) EXPECT_EQ(rFetch.get(), GC_ERR_ABORT);
        EXPECT_EQ(Control::calls(Control::eHostCancel) - nCancels, 1U);
        EXPECT_EQ(static_cast<uint64_t>(std::count(log.begin(), log.end(), "spy.cancel")) - nAsked, 1U);
    }
}

TEST_F(Hub, ChangeCancelsTheFetchThatIsLeftOfTwo) {
    // Two fetches publish the same flag bit. After the first has left, the second is still blocked.
    CXapelBypass participant(m_pDevice);
    startStream(0);
    auto stays = blockedFetch();
    EXPECT_EQ(fetch(0), GC_ERR_TIMEOUT);
    auto change = std::async(std::launch::async, [&] { participant.registerParticipant(); });
    EXPECT_TRUE(XapelTest::ready(change));
    if (!XapelTest::ready(stays, 0))
        cancelGetFilledBuffer(m_pStream);
    EXPECT_EQ(stays.get(), GC_ERR_ABORT);
}

TEST_F(Hub, ChangeWaitsForAQueryWithoutCancelling) {
    Texts log;
    CSpy spy(m_pDevice, "spy", log);
    spy.registerParticipant();
    std::atomic<bool> bInside{false}, bGoOn{false};
    spy.m_fnNote = [&] {
        bInside = true;
        eventually([&] { return bGoOn.load(); });
    };
    const CHookCaller hooks;
    auto query = std::async(std::launch::async, [&] { return hooks.info(); });
    ASSERT_TRUE(eventually([&] { return bInside.load(); }));
    auto change = std::async(std::launch::async, [&] { spy.unregisterParticipant(); });
    EXPECT_FALSE(XapelTest::ready(change, 30));
    bGoOn = true;
    EXPECT_TRUE(XapelTest::ready(change));
    EXPECT_EQ(query.get(), 0);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 0U);
}

TEST_F(Hub, RemovalWaitsForOpenAndCloseCalls) {
    // They take no gate; still nobody may be called once he is off the list.
    for (const bool bOpen : {true, false}) {
        Texts log;
        auto pSpy = std::make_unique<CSpy>(m_pDevice, "spy", log);
        CXapelBypass holder(m_pDevice);
        pSpy->registerParticipant();
        std::atomic<bool> bInside{false}, bGoOn{false};
        pSpy->m_fnNote = [&] {
            bInside = true;
            eventually([&] { return bGoOn.load(); });
        };
        const CHookCaller hooks;
        auto call = std::async(std::launch::async, [&] { return bOpen ? hooks.open() : hooks.close(m_pStream); });
        ASSERT_TRUE(eventually([&] { return bInside.load(); }));
        auto removal = std::async(std::launch::async, [&] { pSpy.reset(); });
        EXPECT_FALSE(XapelTest::ready(removal, 30));
        bGoOn = true;
        EXPECT_TRUE(XapelTest::ready(removal));
        EXPECT_EQ(call.get(), 0);
        if (!bOpen)
            openDataStream(m_pDevice, m_pStream);
    }
}

TEST_F(Hub, DestroyedParticipantIsOffTheLists) {
    startStream();
    CXapelBypass holder(m_pDevice);
    {
        CXapelBypass listed(m_pDevice);
        listed.registerParticipant();
        listed.registerParticipantForCalling();
        // The host's refusal to cancel must not keep it on.
        Control::inject({Control::eHostCancel, Control::eThrowHost, 1, true});
    }
    Control::reset();
    EXPECT_EQ(fetch(), 0);
    EXPECT_EQ(CHookCaller().info(), GC_ERR_NOT_INITIALIZED);
}

}  // namespace
