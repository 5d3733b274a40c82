// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How the five intercepted calls travel: participants, flags, results, the host's own functions.

#include <pthread.h>

#include <memory>
#include <stdexcept>
#include <thread>

#include "xapel2/XapelExceptions.h"

#include "Participants.h"
#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::Answer;
using XapelTest::CHookCaller;
using XapelTest::CPlain;
using XapelTest::CSpy;

struct Row {
    std::vector<Answer> vecParticipants;
    int iResult;     // of the hook
    size_t nAsked;   // participants asked
    uint64_t nHost;  // calls of the host's own function
};

const Answer DONE{0, false}, FORWARD{0, true}, FAIL{-1009, false}, FAIL_FORWARD{-1009, true};

class Dispatch : public XapelTest::StreamFixture {
protected:
    void SetUp() override {
        StreamFixture::SetUp();
        m_pHolder.reset(new CPlain(m_pDevice));
        startStream();
    }
    void TearDown() override {
        m_pHolder.reset();
        StreamFixture::TearDown();
    }

    /// Runs fnHook with the row's participants registered, and compares.
    template <typename Hook>
    void check(const Row& rRow, Control::eHostOp eOwn, Hook fnHook) {
        std::vector<std::string> vecLog;
        std::vector<std::unique_ptr<CSpy>> vecSpies;
        for (const Answer& rAnswer : rRow.vecParticipants) {
            vecSpies.emplace_back(new CSpy(m_pDevice, std::to_string(vecSpies.size()), vecLog, rAnswer));
            vecSpies.back()->registerParticipant();
        }
        const uint64_t nBefore = Control::calls(eOwn);
        EXPECT_EQ(fnHook(), rRow.iResult);
        EXPECT_EQ(vecLog.size(), rRow.nAsked);
        EXPECT_EQ(Control::calls(eOwn) - nBefore, rRow.nHost);
        for (auto& rSpy : vecSpies) {
            rSpy->unregisterParticipant();
        }
    }

    std::unique_ptr<CPlain> m_pHolder;
};

TEST_F(Dispatch, FetchReachesTheHostWhenAllForward) {
    const CHookCaller hooks;
    const Row rows[] = {{{}, 0, 0, 1},
                        {{DONE}, 0, 1, 0},
                        {{FORWARD}, 0, 1, 1},
                        {{FORWARD, FORWARD}, 0, 2, 1},
                        {{FORWARD, DONE}, 0, 2, 0},
                        {{DONE, FORWARD}, 0, 2, 0},
                        {{FAIL, FORWARD}, -1009, 1, 0},
                        {{FORWARD, FAIL}, -1009, 2, 0},
                        {{FAIL_FORWARD}, -1009, 1, 0}};
    for (const Row& rRow : rows) {
        check(rRow, Control::eHostFetch, [&] {
            void* pBuffer = nullptr;
            const int iResult = hooks.fetch(&pBuffer);
            if (pBuffer != nullptr) {
                queueBuffer(m_pStream, pBuffer);
            }
            return iResult;
        });
    }
}

TEST_F(Dispatch, InformationEndsAtTheHubOrIsReplacedByItsQuery) {
    const CHookCaller hooks;
    for (const Row& rRow : {Row{{}, -1002, 0, 0}, Row{{DONE}, 0, 1, 0}, Row{{FORWARD}, 0, 1, 1}, Row{{FAIL}, 0, 1, 1},
                            Row{{FAIL, DONE}, 0, 1, 1}, Row{{FORWARD, FAIL}, 0, 2, 1}, Row{{DONE, FAIL}, -1009, 2, 0},
                            Row{{FORWARD, DONE}, 0, 2, 0}, Row{{DONE, FORWARD}, 0, 2, 0}}) {
        check(rRow, Control::eHostInfo, [&] { return hooks.info(); });
    }
}

TEST_F(Dispatch, CancelOpenAndCloseReachTheHostWithAnyParticipant) {
    const CHookCaller hooks;
    for (const Row& rRow : {Row{{}, 0, 0, 1}, Row{{FAIL, DONE, FORWARD}, 0, 3, 1}}) {
        check(rRow, Control::eHostCancel, [&] { return hooks.cancel(); });
    }
    Control::inject({Control::eHostCancel, Control::eRefuse});
    EXPECT_EQ(hooks.cancel(), 0);
    for (const Row& rRow : {Row{{}, 0, 0, 1}, Row{{FAIL, DONE}, 0, 1, 1}, Row{{DONE, FORWARD}, 0, 2, 1}}) {
        check(rRow, Control::eRegisterFetch, [&] { return hooks.open(); });
    }
    for (const Row& rRow : {Row{{}, -1002, 0, 0}, Row{{DONE}, 0, 1, 1}, Row{{FAIL, DONE}, 0, 1, 1}}) {
        check(rRow, Control::eHostClose, [&] { return hooks.close(m_pStream); });
        openDataStream(m_pDevice, m_pStream);
    }
}

TEST_F(Dispatch, DeliveredBufferGoesToAllForCallingInOrder) {
    std::vector<std::string> vecLog;
    CSpy first(m_pDevice, "first", vecLog, FAIL);
    CSpy second(m_pDevice, "second", vecLog);
    CXapelBypass plain(m_pDevice);
    plain.registerParticipantForCalling();
    first.registerParticipantForCalling();
    second.registerParticipantForCalling();
    BufferHandle hBuffer = nullptr;
    EXPECT_EQ(getFilledBuffer(m_pStream, &hBuffer, 5000), 0);
    EXPECT_EQ(vecLog, (std::vector<std::string>{"first.use", "second.use"}));
    EXPECT_EQ(second.m_pLastBuffer, hBuffer);
    queueBuffer(m_pStream, hBuffer);

    // One that throws, of any type, ends the pass; the buffer is still delivered.
    for (const bool bStd : {false, true}) {
        vecLog.clear();
        first.m_fnUse = [bStd] { bStd ? throw std::runtime_error("x") : throw 5; };
        hBuffer = nullptr;
        EXPECT_EQ(getFilledBuffer(m_pStream, &hBuffer, 5000), GC_ERR_ERROR);
        EXPECT_NE(hBuffer, nullptr);
        EXPECT_EQ(vecLog, std::vector<std::string>{"first.use"});
        queueBuffer(m_pStream, hBuffer);
    }
    // A fetch that fails reaches nobody.
    vecLog.clear();
    Control::inject({Control::eHostFetch, Control::eRefuse});
    EXPECT_EQ(fetch(), GC_ERR_ACCESS_DENIED);
    EXPECT_TRUE(vecLog.empty());
}

TEST_F(Dispatch, ExceptionsOfTheHostPass) {
    const CHookCaller hooks;
    Control::inject({Control::eHostFetch, Control::eThrowStd});
    void* pBuffer = nullptr;
    EXPECT_THROW(hooks.fetch(&pBuffer), std::runtime_error);
    m_pHolder->registerParticipant();
    Control::inject({Control::eHostInfo, Control::eThrowHost});
    EXPECT_THROW(hooks.info(), XAPEL2::Exceptions::Xapel_ErrorException);
}

TEST_F(Dispatch, ThreadMayEndInsideAParticipant) {
    // An end by cancellation unwinds the call; swallowing it would end the process.
#ifdef __SANITIZE_ADDRESS__
    // The unwinding carries no object, which the undefined-behaviour sanitizer, built together, takes for a null one.
    GTEST_SKIP();
#endif
    std::vector<std::string> vecLog;
    CSpy spy(m_pDevice, "spy", vecLog);
    spy.registerParticipantForCalling();
    spy.m_fnUse = [] { pthread_exit(nullptr); };
    const CHookCaller hooks;
    bool bReturned = false;
    std::thread([&] {
        void* pBuffer = nullptr;
        hooks.fetch(&pBuffer);
        bReturned = true;
    }).join();
    EXPECT_FALSE(bReturned);
    spy.unregisterParticipantForCalling();  // the gate has been left
}

}  // namespace
