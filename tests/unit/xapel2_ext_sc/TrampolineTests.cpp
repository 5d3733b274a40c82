// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hook trampolines: each hands its own call on with the arguments as they came, or answers for a hub that is gone.

#include <tuple>
#include <vector>

#include "Participants.h"
#include "StreamFixture.h"
#include "XapelBypassDevice.h"
#include "XapelBypassHooks.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::CHookCaller;

/// An intercepted call: what was called, and its arguments as numbers.
typedef std::vector<unsigned long long> Call;
enum eCalled : unsigned long long { eFetched, eAsked, eCancelled, eClosed, eOpened };

unsigned long long number(const void* p) {
    return reinterpret_cast<uintptr_t>(p);
}

/// Handles every call, and keeps the last one.
class CWitness final : public CXapelBypass {
public:
    using CXapelBypass::CXapelBypass;
    ~CWitness() { leaveLists(); }

    int consumer_getFilledBuffer(void** ppBuffer, unsigned long long iTimeout, bool*) override {
        return note({eFetched, number(ppBuffer), iTimeout});
    }
    int consumer_getStreamInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, bool*) override {
        return note({eAsked, static_cast<unsigned>(iInfoCmd), number(piType), number(pValue), number(piSize)});
    }
    int consumer_cancelGetFilledBuffer(bool*) override { return note({eCancelled}); }
    int consumer_DeviceCloseDataStream(void* pStream, bool*) override { return note({eClosed, number(pStream)}); }
    int consumer_DeviceOpenDataStream(bool*) override { return note({eOpened}); }

    Call m_vecLast;

private:
    int note(Call vecCall) {
        m_vecLast = std::move(vecCall);
        return 0;
    }
};

class Trampolines : public XapelTest::StreamFixture {
protected:
    template <typename Func>
    Func hook(Control::eHook eKind) const {
        for (const auto& rHook : Control::registeredHooks()) {
            if (rHook.eKind == eKind) {
                return reinterpret_cast<Func>(rHook.pfnHook);
            }
        }
        return nullptr;
    }
};

TEST_F(Trampolines, EachHandsItsCallOnWithTheArgumentsAsTheyCame) {
    CWitness witness(m_pDevice);
    witness.registerParticipant();
    void* const pHub = CHookCaller().m_pContext;
    void* pBuffer = nullptr;
    int iType = 0, iValue = 0;
    unsigned long long nSize = 0;
    EXPECT_EQ(hook<DataStreamGetFilledBufferFunc>(Control::eHookFetch)(&pBuffer, 0xFFFFFFFFFFFFFFFEULL, pHub), 0);
    EXPECT_EQ(witness.m_vecLast, (Call{eFetched, number(&pBuffer), 0xFFFFFFFFFFFFFFFEULL}));
    EXPECT_EQ(hook<DataStreamGetInfoFunc>(Control::eHookInfo)(1001, &iType, &iValue, &nSize, pHub), 0);
    EXPECT_EQ(witness.m_vecLast, (Call{eAsked, 1001, number(&iType), number(&iValue), number(&nSize)}));
    EXPECT_EQ(hook<DataStreamCancelGetFilledBufferFunc>(Control::eHookCancel)(pHub), 0);
    EXPECT_EQ(witness.m_vecLast, Call{eCancelled});
    hook<DeviceCloseDataStreamFunc>(Control::eHookClose)(&iValue, pHub);
    EXPECT_EQ(witness.m_vecLast, (Call{eClosed, number(&iValue)}));
    for (void* const pIgnored : {static_cast<void*>(nullptr), static_cast<void*>(&iValue)}) {
        witness.m_vecLast.clear();
        EXPECT_EQ(hook<DeviceOpenDataStreamFunc>(Control::eHookOpen)(pIgnored, pHub), 0);
        EXPECT_EQ(witness.m_vecLast, Call{eOpened});
    }
}

TEST_F(Trampolines, HostGetsTheArgumentsAsTheyCame) {
    // Without a participant the host's own fetch is told the time-out; with one that asks to carry on, its own query is
    // told all that it needs to answer.
    CXapelBypass holder(m_pDevice);
    startStream(0);
    const CHookCaller hooks;
    void* pBuffer = nullptr;
    EXPECT_EQ(hooks.fetch(&pBuffer, 0), GC_ERR_TIMEOUT);
    auto fetched = std::async(std::launch::async, [&] { return hooks.fetch(&pBuffer, TIMEOUT_INFINITE); });
    EXPECT_FALSE(XapelTest::ready(fetched, 50));
    const auto vecBuffers = queueBuffers(1);
    EXPECT_EQ(fetched.get(), 0);
    EXPECT_EQ(pBuffer, vecBuffers.at(0));
}

TEST_F(Trampolines, GoneHubIsAnsweredForWithoutBeingTouched) {
    auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    const CHookCaller hooks;
    pHub.reset();
    Control::recordRegistrations(true);
    void* pBuffer = &pBuffer;
    EXPECT_EQ(hooks.fetch(&pBuffer, 0), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(pBuffer, &pBuffer);
    EXPECT_EQ(hooks.info(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(hooks.close(m_pStream), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(hooks.cancel(), 0);
    EXPECT_EQ(hooks.open(), 0);
    EXPECT_TRUE(Control::registrations().empty());
    EXPECT_EQ(Control::calls(Control::eHostCancel), 0U);
}

}  // namespace
