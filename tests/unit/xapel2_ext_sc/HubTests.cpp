// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hub's hooks and lists: registering, roll-back, re-opening, removing, changes while calls are inside.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>

#include "xapel2/XapelExceptions.h"

#include "Participants.h"
#include "StreamFixture.h"
#include "XapelBypassDevice.h"

namespace {

using namespace XAPEL2::StandIn;
using namespace XAPEL2::Exceptions;
using XapelTest::CHookCaller;
using XapelTest::CPlain;
using XapelTest::CSpy;
using XapelTest::eventually;
using XapelTest::HeldCall;
using XapelTest::thrown;

typedef std::vector<std::string> Texts;

class Hub : public XapelTest::StreamFixture {};

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

TEST_F(Hub, ExceptionsNameTheUnitWhateverFileTheyAreIn) {
    const auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    const struct {
        std::function<void()> fnPrepare, fnThrow;
    } rows[] = {
        {[] {}, [] { CXapelBypass none(nullptr); }},
        {[] {
             Control::inject({Control::eRegisterInfo, Control::eRefuse});
         },
         [&] { pHub->initCallBacks(false); }},
        {[] {
             Control::inject({Control::eRemoveFetch, Control::eRefuse});
         },
         [&] { pHub->deInitCallBacks(); }},
        {[&] { Control::hideStreams(m_pDevice, true); }, [&] { pHub->consumer_DeviceOpenDataStream(); }},
    };
    for (const auto& rRow : rows) {
        rRow.fnPrepare();
        try {
            rRow.fnThrow();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const IException& rException) {
            EXPECT_STREQ(rException.GetFileName().get(), "tlconsumer/xapel2_ext_sc/XapelBypass");
            EXPECT_NE(lineNumber(rException), 0U);
        }
    }
}

TEST_F(Hub, FailedConstructionTakesItsHooksBack) {
    const auto fnRemovals = [] {
        const Texts vecTexts = Control::registrations();
        return std::count_if(vecTexts.begin(), vecTexts.end(),
                             [](const auto& r) { return r.rfind("remove ", 0) == 0; });
    };
    for (int i = 0; i < 10; ++i) {
        // A host that throws may have registered the hook all the same.
        const bool bThrows = i % 2 != 0;
        const auto eOp = static_cast<Control::eHostOp>(Control::eRegisterFetch + i / 2);
        Control::recordRegistrations(true);
        Control::inject({eOp, bThrows ? Control::eThrowHost : Control::eRefuse});
        EXPECT_EQ(thrown<IException>([this] { CXapelBypass none(m_pDevice); }),
                  bThrows ? std::string(Control::name(eOp)) + ": injected"
                          : "initCallBacks: The DataStream object is not valid or is no longer valid");
        EXPECT_EQ(Control::liveHooks(), 0U);
        EXPECT_EQ(fnRemovals(), (i + 1) / 2);
    }
    // A hook that cannot be taken back keeps neither the others nor the reason.
    Control::inject({Control::eRegisterOpen, Control::eRefuse});
    Control::inject({Control::eRemoveInfo, Control::eThrowStd});
    EXPECT_THROW({ CXapelBypass none(m_pDevice); }, Xapel_ObjectInvalidException);
    EXPECT_EQ(Control::liveHooks(), 1U);
}

TEST_F(Hub, RefusedRemovalIsTracedAndTheOthersAreRemoved) {
    const std::string strStream = "The DataStream object is not valid or is no longer valid";
    const std::pair<Control::eHostOp, std::string> rows[] = {
        {Control::eRemoveFetch, strStream},
        {Control::eRemoveClose, "The Device object is not valid or is no longer valid"},
        {Control::eRemoveOpen, strStream}};
    for (const auto& [eOp, strText] : rows) {
        auto pParticipant = std::make_unique<CPlain>(m_pDevice);
        Control::recordTraces(true);
        Control::inject({eOp, Control::eRefuse});
        pParticipant.reset();
        EXPECT_EQ(XapelTest::traceTexts(2), Texts{"Extended-API;XapelBypass; dtor;deInitCallBacks " + strText});
        EXPECT_EQ(XapelTest::traceTexts(0), Texts{"Extended-API;CXapelBypassDevice::; deInitCallBack called;"});
        EXPECT_EQ(Control::liveHooks(), 1U);
    }
}

TEST_F(Hub, DeInitStopsAtTheFirstRefusalAndKeepsTheFunctions) {
    const auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    Control::inject({Control::eRemoveInfo, Control::eRefuse});
    Control::recordTraces(true);
    EXPECT_EQ(thrown<Xapel_ObjectInvalidException>([&] { pHub->deInitCallBacks(); }),
              "deInitCallBacks: The DataStream object is not valid or is no longer valid");
    EXPECT_EQ(XapelTest::traceTexts(0), Texts{"Extended-API;CXapelBypassDevice::; deInitCallBack called;"});
    EXPECT_TRUE(XapelTest::traceTexts(2).empty());
    EXPECT_EQ(Control::liveHooks(), 3U);
    EXPECT_EQ(pHub->consumer_cancelGetFilledBuffer(), 0);
    pHub->initCallBacks(true);
    startStream(0);
    auto blocked = blockedFetch();
    pHub->deInitCallBacks();
    EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 2U);
    EXPECT_EQ(pHub->consumer_cancelGetFilledBuffer(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(pHub->consumer_getStreamInfo(0, nullptr, nullptr, nullptr), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(pHub->consumer_DeviceCloseDataStream(m_pStream), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(pHub->getFilledBuffer_Callback(nullptr, 0), GC_ERR_NOT_INITIALIZED);
}

TEST_F(Hub, OpeningMovesTheHubToTheFirstListedStream) {
    CXapelBypass participant(m_pDevice);
    startStream(0);
    auto blocked = blockedFetch();
    XAPEL2::DataStream* pFirst = Control::addFirstStream(m_pDevice);
    Control::recordTraces(true);
    Control::recordRegistrations(true);
    EXPECT_EQ(openDataStream(m_pDevice, pFirst), 0);
    // The hub cancels on its new stream from now on; a change would wait for the old one's fetch for ever.
    EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
    // No hook stays on the stream that it left: nobody would remove it.
    EXPECT_EQ(Control::registrations(), (Texts{"register fetch", "register cancel", "register info", "register close",
                                               "remove info", "remove cancel", "remove fetch"}));
    EXPECT_EQ(Control::liveHooks(), 5U);
    EXPECT_EQ(participant.getXapelDataStream(), pFirst);
    EXPECT_EQ(XapelTest::traceTexts(0), Texts{"Extended-API;CXapelBypassDevice::; initCallBack called;"});
}

TEST_F(Hub, OverlappingOpeningsEndOnTheFirstStreamAndLeaveNoHook) {
    {
        CXapelBypass participant(m_pDevice);
        XAPEL2::DataStream* pEarly = Control::addFirstStream(m_pDevice);
        std::atomic<bool> bHeld{false}, bGoOn{false};
        Control::setTraceObserver([&](const Control::TraceLine& rLine) {
            if (rLine.strText.find("initCallBack called") != std::string::npos && !bHeld.exchange(true)) {
                eventually([&] { return bGoOn.load(); });
            }
        });
        auto early = std::async(std::launch::async, [&] { return openDataStream(m_pDevice, pEarly); });
        ASSERT_TRUE(eventually([&] { return bHeld.load(); }));
        XAPEL2::DataStream* pLast = Control::addFirstStream(m_pDevice);
        EXPECT_EQ(openDataStream(m_pDevice, pLast), 0);
        bGoOn = true;
        EXPECT_EQ(early.get(), 0);
        EXPECT_EQ(participant.getXapelDataStream(), pLast);
        EXPECT_EQ(Control::liveHooks(), 5U);
    }
    EXPECT_EQ(Control::liveHooks(), 0U);
}

// A stream is opened while the hub registers all its hooks: the open hook may stand already.
TEST_F(Hub, OpeningBesideARegistrationIsFollowedOrWaitedFor) {
    for (const unsigned uCase : {0U, 1U, 2U}) {
        SCOPED_TRACE(uCase);
        // Fails: the opening when it registers, or the registration when it leaves the stream that the hub has left.
        const bool bFails = uCase == 1, bLeavingFails = uCase == 2;
        const auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
        XAPEL2::DataStream* const pFirst = Control::addFirstStream(m_pDevice);
        std::atomic<bool> bHeld{false}, bGoOn{false};
        Control::setTraceObserver([&](const Control::TraceLine& rLine) {
            if (rLine.strText.find("initCallBack called") != std::string::npos && !bHeld.exchange(true)) {
                eventually([&] { return bGoOn.load(); });
            }
        });
        const std::function<void()> fnOpen = [&] { EXPECT_EQ(openDataStream(m_pDevice, pFirst), 0); };
        const std::function<void()> fnRegister = [&] {
            try {
                pHub->initCallBacks(true);
            } catch (const std::runtime_error&) {
                EXPECT_TRUE(bFails);
            }
        };
        if (bFails) {
            Control::inject({Control::eRegisterOpen, Control::eThrowStd});
        }
        if (bLeavingFails) {
            Control::inject({Control::eHostCancel, Control::eThrowStd, 2});
        }
        auto held = std::async(std::launch::async, bFails ? fnOpen : fnRegister);
        ASSERT_TRUE(eventually([&] { return bHeld.load(); }));
        auto other = std::async(std::launch::async, bFails ? fnRegister : fnOpen);
        EXPECT_NE(XapelTest::ready(other, bFails ? 30 : XapelTest::DEADLINE_MS), bFails);
        bGoOn = true;
        held.get();
        other.get();
        EXPECT_EQ(pHub->getXapelDataStream(), pFirst);
        EXPECT_EQ(Control::liveHooks(), bFails ? 0U : 5U);
        Control::reset();
    }
}

TEST_F(Hub, FailedReopeningKeepsWhatWorked) {
    CXapelBypass participant(m_pDevice);
    const CHookCaller hooks;
    // On the same stream nothing is taken away; on another, the hooks that this opening has put on it. Those of the
    // device stay in any case: they are those of the stream on which the hub stands.
    const Texts vecPut{"register fetch", "register cancel", "register info", "register close"};
    const Texts vecTakenBack{"remove info", "remove cancel", "remove fetch"};
    for (const bool bOther : {false, true}) {
        if (bOther) {
            Control::addFirstStream(m_pDevice);
        }
        for (std::size_t i = 0; i < vecPut.size(); ++i) {
            for (const auto eKind : {Control::eRefuse, Control::eThrowHost, Control::eThrowStd}) {
                SCOPED_TRACE(vecPut[i] + (bOther ? ", other stream, " : ", ") + std::to_string(eKind));
                Control::inject({static_cast<Control::eHostOp>(Control::eRegisterFetch + i), eKind});
                Control::recordRegistrations(true);
                EXPECT_ANY_THROW(hooks.open());
                // A hook whose registration threw may stand all the same.
                const std::size_t nOnStream = std::min<std::size_t>(eKind == Control::eRefuse ? i : i + 1, 3);
                Texts vecExpected(vecPut.begin(), vecPut.begin() + static_cast<std::ptrdiff_t>(i) + 1);
                if (bOther) {
                    vecExpected.insert(vecExpected.end(), vecTakenBack.end() - static_cast<std::ptrdiff_t>(nOnStream),
                                       vecTakenBack.end());
                }
                EXPECT_EQ(Control::registrations(), vecExpected);
                EXPECT_EQ(Control::liveHooks(hooks.m_pContext), 5U);
                EXPECT_EQ(participant.getXapelDataStream(), m_pStream);
            }
        }
    }
    Control::recordRegistrations(false);
    EXPECT_EQ(hooks.cancel(), 0);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 1U);
    Control::hideStreams(m_pDevice, true);
    EXPECT_EQ(thrown<Xapel_NotAvailableException>([&] { hooks.open(); }),
              "consumer_DeviceOpenDataStream: The device doesn't support any data streams.");
}

// Once the hub has moved, what is left to do is done as far as the host lets it, and the opening ends well.
TEST_F(Hub, MoveThatHasWorkedEndsWellWhateverTheHostThrowsThen) {
    const struct {
        const char* pText;
        Control::eHostOp eOp;
        uint64_t nCall;     // of this opening
        uint64_t nCancels;  // that reach the host
    } rows[] = {{"the old stream's cancel", Control::eHostCancel, 1, 1},
                {"the removal of its hooks", Control::eRemoveFetch, 1, 1},
                {"the look for the old stream", Control::eGetDataStreams, 2, 0},
                {"the look for an overlapping opening", Control::eGetDataStreams, 3, 1}};
    for (const auto& rRow : rows) {
        for (const auto eKind : {Control::eRefuse, Control::eThrowHost, Control::eThrowStd}) {
            SCOPED_TRACE(std::string(rRow.pText) + ", " + std::to_string(eKind));
            TearDown();  // with its device goes a hook that the host has kept
            SetUp();
            CXapelBypass participant(m_pDevice);
            const CHookCaller hooks;
            XAPEL2::DataStream* const pFirst = Control::addFirstStream(m_pDevice);
            Control::inject({rRow.eOp, eKind, rRow.nCall});
            EXPECT_EQ(hooks.open(), 0);
            EXPECT_EQ(Control::hits(), 1U);
            EXPECT_EQ(participant.getXapelDataStream(), pFirst);
            EXPECT_EQ(Control::calls(Control::eHostCancel), rRow.nCancels);
        }
    }
}

TEST_F(Hub, StreamThatIsListedNoMoreIsLeftWithoutACancel) {
    CXapelBypass participant(m_pDevice);
    XAPEL2::DataStream* const pFirst = Control::addFirstStream(m_pDevice);
    // The list is empty by the time that the hub has moved; the look for an overlapping opening fails, too.
    Control::setTraceObserver([this](const Control::TraceLine& rLine) {
        if (rLine.strText.find("initCallBack called") != std::string::npos) {
            Control::hideStreams(m_pDevice, true);
        }
    });
    EXPECT_EQ(openDataStream(m_pDevice, pFirst), 0);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 0U);
    EXPECT_EQ(participant.getXapelDataStream(), pFirst);
    EXPECT_EQ(Control::liveHooks(), 5U);
    Control::setTraceObserver(nullptr);
    Control::hideStreams(m_pDevice, false);
}

TEST_F(Hub, OpeningFollowsAListThatNeverSettlesForABoundedTime) {
    CXapelBypass participant(m_pDevice);
    unsigned nMoves = 0;
    Control::setTraceObserver([&](const Control::TraceLine& rLine) {
        if (rLine.strText.find("initCallBack called") != std::string::npos && ++nMoves < 100) {
            Control::addFirstStream(m_pDevice);
        }
    });
    EXPECT_EQ(CHookCaller().open(), 0);
    Control::setTraceObserver(nullptr);
    EXPECT_GT(nMoves, 1U);
    EXPECT_LT(nMoves, 20U);
    EXPECT_EQ(Control::liveHooks(), 5U);  // of the streams on its way it has left none behind
}

TEST_F(Hub, ListKeepsDuplicatesAndOneRemovalTakesAll) {
    startStream();
    Texts vecLog;
    CSpy spy(m_pDevice, "spy", vecLog);
    for (int iRound = 0; iRound < 2; ++iRound) {
        spy.registerParticipantForCalling();
        spy.registerParticipantForCalling();
        vecLog.clear();
        EXPECT_EQ(fetch(), 0);
        EXPECT_EQ(vecLog.size(), 2U);
        for (int iRemoval = 0; iRemoval < 2; ++iRemoval) {  // one that is absent changes nothing
            spy.unregisterParticipantForCalling();
            EXPECT_EQ(fetch(), 0);
            EXPECT_EQ(vecLog.size(), 2U);
        }
    }
}

TEST_F(Hub, ChangeCancelsABlockedFetchOnce) {
    Texts vecLog;
    CSpy spy(m_pDevice, "spy", vecLog, {0, true});
    spy.registerParticipant();
    startStream(0);
    for (unsigned nFetches : {1U, 2U}) {
        vecLog.clear();
        std::vector<std::future<int>> vecFetches;
        for (unsigned i = 1; i <= nFetches; ++i) {
            vecFetches.push_back(blockedFetch(i));
        }
        const uint64_t nCancels = Control::calls(Control::eHostCancel);
        spy.registerParticipantForCalling();
        for (auto& rFetch : vecFetches) {
            EXPECT_EQ(rFetch.get(), GC_ERR_ABORT);
        }
        EXPECT_EQ(Control::calls(Control::eHostCancel) - nCancels, 1U);
        EXPECT_EQ(std::count(vecLog.begin(), vecLog.end(), "spy.cancel"), 1);
    }
}

TEST_F(Hub, EachOfTwoThousandChangesEndsBothWaitingFetchesAtOnce) {
    typedef std::chrono::steady_clock Clock;
    CPlain participant(m_pDevice);
    startStream(0);
    const std::function<void()> changes[] = {
        [&] { participant.registerParticipantForCalling(); }, [&] { participant.registerParticipant(); },
        [&] { participant.unregisterParticipantForCalling(); }, [&] { participant.unregisterParticipant(); }};
    Clock::duration longest{};
    for (unsigned i = 0; i < 2000 && !HasFailure(); ++i) {
        auto first = blockedFetch(1, TIMEOUT_INFINITE), second = blockedFetch(2, TIMEOUT_INFINITE);
        const auto tBegan = Clock::now();
        auto change = std::async(std::launch::async, changes[i % 4]);
        EXPECT_TRUE(XapelTest::ready(first, 2000) && XapelTest::ready(second, 2000)) << "change " << i;
        longest = std::max(longest, Clock::now() - tBegan);
        EXPECT_TRUE(XapelTest::ready(change, 2000)) << "change " << i;
        if (HasFailure()) {
            closeDataStream(m_pDevice, m_pStream);  // ends them past the gate
        }
        EXPECT_EQ(first.get(), GC_ERR_ABORT);
        EXPECT_EQ(second.get(), GC_ERR_ABORT);
    }
    std::printf("longest from a change to the end of both fetches %.3f ms\n",
                std::chrono::duration<double, std::milli>(longest).count());
}

TEST_F(Hub, ChangeWaitsForAQueryWithoutCancelling) {
    for (const bool bCancel : {false, true}) {
        SCOPED_TRACE(bCancel);
        Control::reset();
        Texts vecLog;
        CSpy spy(m_pDevice, "spy", vecLog);
        spy.registerParticipant();
        HeldCall held(spy);
        const CHookCaller hooks;
        auto call = std::async(std::launch::async, [&] { return bCancel ? hooks.cancel() : hooks.info(); });
        ASSERT_TRUE(held.waitUntilHeld());
        EXPECT_EQ(xapelSlotPinWord(hooks.m_pContext).load(), 3U);  // alive, and pinned once for as long as it lasts
        auto beside = std::async(std::launch::async, [&] { return hooks.info(); });
        EXPECT_TRUE(XapelTest::ready(beside));  // shared
        auto change = std::async(std::launch::async, [&] { spy.unregisterParticipant(); });
        EXPECT_FALSE(XapelTest::ready(change, 30));
        EXPECT_EQ(Control::calls(Control::eHostCancel), 0U);
        EXPECT_EQ(std::count(vecLog.begin(), vecLog.end(), "spy.cancel"), bCancel ? 1 : 0);
        // Open and close calls take no gate.
        beside = std::async(std::launch::async, [&] { return hooks.open() + hooks.close(nullptr); });
        EXPECT_TRUE(XapelTest::ready(beside));
        held.release();
        EXPECT_TRUE(XapelTest::ready(change));
        EXPECT_EQ(call.get(), 0);
    }
}

TEST_F(Hub, RemovalWaitsForOpenAndCloseCalls) {
    // They take no gate; still nobody may be called once he is off the list.
    for (const unsigned uCase : {0U, 1U, 2U, 3U}) {
        SCOPED_TRACE(uCase);
        const bool bOpen = uCase % 2 != 0, bDestroy = uCase / 2 != 0;
        Texts vecLog;
        CXapelBypass holder(m_pDevice);
        auto pSpy = std::make_unique<CSpy>(m_pDevice, "spy", vecLog);
        pSpy->registerParticipant();
        HeldCall held(*pSpy);
        const CHookCaller hooks;
        auto call = std::async(std::launch::async, [&] { return bOpen ? hooks.open() : hooks.close(m_pStream); });
        ASSERT_TRUE(held.waitUntilHeld());
        auto removal = std::async(std::launch::async, [&] { bDestroy ? pSpy.reset() : pSpy->unregisterParticipant(); });
        // Off the list, and the gate is free: a host's close may have to wait for a call that must get through it.
        EXPECT_TRUE(eventually([&] { return hooks.info() == GC_ERR_NOT_INITIALIZED; }));
        EXPECT_FALSE(XapelTest::ready(removal, 30));
        held.release();
        EXPECT_TRUE(XapelTest::ready(removal));
        EXPECT_EQ(call.get(), 0);
        if (!bOpen) {
            openDataStream(m_pDevice, m_pStream);
        }
    }
}

TEST_F(Hub, EndWaitsForAnOpenCallAndTurnsNewOnesAway) {
    Texts vecLog;
    CSpy spy(m_pDevice, "spy", vecLog);
    auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    const void* const pContext = pHub.get();
    pHub->registerParticipant(&spy);
    HeldCall held(spy);
    const CHookCaller hooks;
    auto call = std::async(std::launch::async, [&] { return hooks.open(); });
    ASSERT_TRUE(held.waitUntilHeld());
    auto end = std::async(std::launch::async, [&] { pHub.reset(); });
    EXPECT_TRUE(eventually([&] { return hooks.close(nullptr) == GC_ERR_NOT_INITIALIZED; }));
    vecLog.clear();
    EXPECT_EQ(hooks.open(), 0);
    EXPECT_TRUE(vecLog.empty());
    EXPECT_FALSE(XapelTest::ready(end, 30));
    EXPECT_EQ(Control::liveHooks(pContext), 5U);  // it has not begun to take them down
    held.release();
    EXPECT_TRUE(XapelTest::ready(end));
    EXPECT_EQ(call.get(), 0);
}

}  // namespace
