// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Mutexes that cannot be locked: nothing ends the process, and nobody is called once he has left.

#include <memory>
#include <system_error>

#include "xapel2/XapelExceptions.h"

#include "Locks.h"
#include "Participants.h"
#include "StreamFixture.h"
#include "XapelBypassDevice.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CHookCaller;
using XapelTest::CSpy;

// Before it: the list and the gate.
constexpr uint64_t LOCK_OF_THE_CANCEL = 2;

class Locking : public XapelTest::StreamFixture {};

TEST_F(Locking, ParticipantThatLeavesIsCalledNoMoreWhicheverLockFails) {
    for (const bool bFromThen : {false, true}) {
        for (const bool bBlocked : {false, true}) {
            uint64_t nFailed = 1;
            for (uint64_t nLock = 0; nFailed != 0; ++nLock) {
                SCOPED_TRACE(std::to_string(nLock) + (bFromThen ? " from there on" : " once") +
                             (bBlocked ? ", beside a fetch" : ""));
                ASSERT_LT(nLock, 20U);
                TearDown();
                SetUp();
                std::vector<std::string> vecLog;
                CSpy spy(m_pDevice, "spy", vecLog, {0, true}), other(m_pDevice, "other", vecLog, {0, true});
                spy.registerParticipant();
                spy.registerParticipantForCalling();
                other.registerParticipantForCalling();
                const CHookCaller hooks;
                auto* const pHub = static_cast<CXapelBypassDevice*>(hooks.m_pContext);
                startStream(0);
                std::future<int> blocked;
                if (bBlocked) {
                    blocked = blockedFetch(1, 500);
                }
                Locks::failAfter(nLock, bFromThen);
                pHub->dropParticipant(&spy);
                nFailed = Locks::failed();
                Locks::failAfter(UINT64_MAX);
                // Whatever is left of the call was over before: the participant may be gone by now.
                vecLog.clear();
                if (bBlocked) {
                    EXPECT_TRUE(XapelTest::ready(blocked));
                    const int iResult = blocked.get();
                    // It is cancelled, but where the look-up of the host's cancel is what fails.
                    const bool bNoCancel = nFailed != 0 && (bFromThen || nLock == LOCK_OF_THE_CANCEL);
                    EXPECT_TRUE(iResult == GC_ERR_ABORT || (bNoCancel && iResult == GC_ERR_TIMEOUT)) << iResult;
                }
                queueBuffers(1);
                EXPECT_EQ(fetch(), 0) << "the stream stays usable";
                hooks.info();
                hooks.cancel();
                hooks.open();
                hooks.close(m_pStream);
                // The others go on, or the hub has ended its service; it has not while no lock failed for good.
                const std::vector<std::string> vecOther{"other.use"};
                EXPECT_TRUE(vecLog == vecOther || (nFailed != 0 && vecLog.empty())) << vecLog.size();
                if (nFailed == 0) {
                    EXPECT_EQ(vecLog, vecOther);
                }
            }
        }
    }
}

TEST_F(Locking, ChangeOfAListThrowsAndChangesNothing) {
    startStream();
    std::vector<std::string> vecLog;
    CSpy spy(m_pDevice, "spy", vecLog);
    const std::function<void()> fnJoin = [&] { spy.registerParticipantForCalling(); };
    const std::function<void()> fnLeave = [&] { spy.unregisterParticipantForCalling(); };
    for (const bool bListed : {false, true}) {
        for (uint64_t nLock = 0;; ++nLock) {
            Locks::failAfter(nLock);
            bool bThrown = false;
            try {
                (bListed ? fnLeave : fnJoin)();
            } catch (const std::system_error&) {
                bThrown = true;
            }
            EXPECT_EQ(bThrown, Locks::failed() != 0);
            Locks::failAfter(UINT64_MAX);
            vecLog.clear();
            EXPECT_EQ(fetch(), 0);
            EXPECT_EQ(vecLog.size(), bThrown == bListed ? 1U : 0U);
            if (!bThrown) {
                EXPECT_GE(nLock, 2U) << "the gate's and the leaf";
                break;
            }
        }
    }
}

TEST_F(Locking, ObjectsEndInSilence) {
    // The registry's lock fails too: then a hub stays that nobody holds any more, in no one's way.
    for (const bool bFromThen : {false, true}) {
        uint64_t nFailed = 1;
        for (uint64_t nLock = 0; nFailed != 0; ++nLock) {
            SCOPED_TRACE(nLock);
            ASSERT_LT(nLock, 60U);
            std::vector<std::string> vecLog;
            auto pSpy = std::make_unique<CSpy>(m_pDevice, "spy", vecLog);
            pSpy->registerParticipant();
            Locks::failAfter(nLock, bFromThen);
            pSpy.reset();
            nFailed = Locks::failed();
            Locks::failAfter(UINT64_MAX);
        }
    }
    startStream();
    EXPECT_EQ(fetch(), 0);
}

}  // namespace
