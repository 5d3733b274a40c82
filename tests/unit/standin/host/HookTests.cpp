// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hook table, what the host does around a hook, and what it hands out.

#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/XapelBuffer.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class Hooks : public HostFixture {
protected:
    HookSide m_side;
};

TEST_F(Hooks, NotHandledMeansThatTheHostDoesIt) {
    ASSERT_TRUE(m_side.putAll(m_pDevice, m_pStream));
    m_side.fnFetch = [](void**, unsigned long long) { return GC_ERR_NOT_INITIALIZED; };
    m_side.fnInfo = [](int, int*, void*, unsigned long long*) { return GC_ERR_NOT_INITIALIZED; };
    m_side.fnClose = [](void*) { return GC_ERR_NOT_INITIALIZED; };
    startStream(1, 1);
    EXPECT_EQ(GC_ERR_SUCCESS, fetch());
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_NUM_ANNOUNCED));
    for (const int iHookResult : {0, -1002}) {
        m_side.fnCancel = [iHookResult] { return iHookResult; };
        auto waiting = blockedFetch();
        EXPECT_EQ(GC_ERR_SUCCESS, cancelGetFilledBuffer(m_pStream));
        EXPECT_EQ(GC_ERR_ABORT, waiting.get());
    }
    EXPECT_EQ(GC_ERR_SUCCESS, closeDataStream(m_pDevice, m_pStream));
    EXPECT_FALSE(m_pStream->IsOpen());
}

// A second cancel by the host would end the fetch that the hook lets wait in between.
TEST_F(Hooks, HostDoesNotCancelAgainAfterAHookThatDid) {
    Control::setCancelMode(Control::eWakesOne);
    m_side.put(Control::eHookCancel, m_pDevice, m_pStream);
    cancelGetFilledBuffer(m_pStream);
    EXPECT_EQ(GC_ERR_ABORT, fetch(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0));
}

TEST_F(Hooks, TableReplacesAndRemovesByContext) {
    HookSide other;
    ASSERT_TRUE(m_side.putAll(m_pDevice, m_pStream));
    ASSERT_TRUE(other.put(Control::eHookFetch, m_pDevice, m_pStream));
    EXPECT_EQ(4U, Control::liveHooks(&m_side));
    EXPECT_EQ(1U, Control::liveHooks(&other));
    EXPECT_TRUE(m_side.put(Control::eHookFetch, m_pDevice, m_pStream, true)) << "absent, but accepted";
    EXPECT_EQ(1U, Control::liveHooks(&other)) << "another one's hook was removed";
    void* pUntouched = &other;
    EXPECT_TRUE(registerBypass_DataStreamEventControlGetFilledBuffer(m_pStream, nullptr, &other, nullptr, &pUntouched));
    EXPECT_EQ(&other, pUntouched);
    EXPECT_TRUE(m_side.putAll(m_pDevice, m_pStream, true));
    EXPECT_EQ(0U, Control::liveHooks());
    EXPECT_TRUE(registerBypass_DataStreamGetInfo(m_pStream, &HookSide::onInfo, &m_side, nullptr, nullptr));
}

// Inside the fetch a buffer is what the fetch found in it, until its handle is dead.
TEST_F(Hooks, FetchedBufferIsAnsweredInsideItsFetchUntilItIsRevoked) {
    m_side.put(Control::eHookFetch, m_pDevice, m_pStream);
    startStream(2, 2);
    for (const bool bClose : {false, true}) {
        m_side.fnFetch = [&](void** ppBuffer, unsigned long long iTimeoutMs) {
            EXPECT_EQ(GC_ERR_SUCCESS, m_side.pfnFetch(ppBuffer, iTimeoutMs, m_side.pFetch));
            EXPECT_EQ(bClose ? 1U : 0U, bufferNumber(*ppBuffer, BUFFER_INFO_FRAMEID));
            BufferInfoFunc pfnInfo = nullptr;
            BufferGetPixelFormatFunc pfnFormat = nullptr;
            getFuncPtr_BufferInfo(*ppBuffer, &pfnInfo);
            getFuncPtr_BufferGetPixelFormat(*ppBuffer, &pfnFormat);
            std::string strFormat;
            EXPECT_EQ(GC_ERR_SUCCESS, pfnFormat(strFormat, *ppBuffer));
            EXPECT_EQ(GC_ERR_SUCCESS,
                      bClose ? closeDataStream(m_pDevice, m_pStream) : revokeBuffer(m_pStream, *ppBuffer));
            uint64_t uValue = 77, nSize = sizeof uValue;
            EXPECT_EQ(GC_ERR_INVALID_HANDLE, pfnInfo(BUFFER_INFO_SIZE, nullptr, &uValue, &nSize, *ppBuffer));
            EXPECT_EQ(GC_ERR_INVALID_HANDLE, pfnFormat(strFormat, *ppBuffer));
            EXPECT_EQ(GC_ERR_INVALID_HANDLE, getFuncPtr_BufferInfo(*ppBuffer, &pfnInfo));
            EXPECT_EQ(77U, uValue);
            return GC_ERR_SUCCESS;
        };
        EXPECT_EQ(GC_ERR_SUCCESS, fetch());
    }
}

TEST_F(Hooks, DeadAndForeignPointersAreRefused) {
    ASSERT_EQ(GC_ERR_SUCCESS, closeDataStream(m_pDevice, m_pStream));
    EXPECT_TRUE(m_side.putAll(m_pDevice, m_pStream)) << "a stream that is not open yet can be hooked";
    HookSide late;
    int iOnStack = 0;
    auto* pForeignDevice = reinterpret_cast<Device*>(&iOnStack);
    auto* pForeignStream = reinterpret_cast<DataStream*>(&iOnStack);
    closeDevice(m_pDevice);
    for (int i = 0; i < 5; ++i) {
        const auto eKind = static_cast<Control::eHook>(i);
        EXPECT_FALSE(late.put(eKind, m_pDevice, m_pStream));
        EXPECT_FALSE(late.put(eKind, m_pDevice, m_pStream, true));
        EXPECT_FALSE(late.put(eKind, pForeignDevice, pForeignStream));
        EXPECT_FALSE(late.put(eKind, nullptr, nullptr));
    }
    EXPECT_EQ(nullptr, late.pfnFetch);
    EXPECT_EQ(0U, Control::liveHooks());
    void* pBuffer = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_side.pfnFetch(&pBuffer, 0, m_side.pFetch));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_side.pfnCancel(m_side.pCancel));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_side.pfnClose(m_pStream, m_side.pClose));
    unsigned long long nSize = 0;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_side.pfnInfo(STREAM_INFO_ID, nullptr, nullptr, &nSize, m_side.pInfo));
}

TEST_F(Hooks, ListShowsWhatTheLastRefreshFound) {
    DataStreamList& rList = *m_pDevice->GetDataStreams();
    typedef std::vector<DataStream*> Streams;
    const auto fnExpect = [&rList](const Streams& rExpected) {
        Streams vecStreams;
        for (auto it = rList.begin(); it != rList.end(); ++it) {
            EXPECT_STRNE("", (*it).first.get());
            vecStreams.push_back((*it).second);
        }
        EXPECT_EQ(rExpected, vecStreams);
        EXPECT_EQ(rList.size(), vecStreams.size());
        rList.Refresh();
    };
    fnExpect({});
    fnExpect({m_pStream});
    DataStream* pFirst = Control::addFirstStream(m_pDevice);
    EXPECT_EQ(pFirst, firstDataStream(m_pDevice));
    fnExpect({m_pStream});
    fnExpect({pFirst, m_pStream});
    closeDevice(m_pDevice);
    fnExpect({});
}

TEST_F(Hooks, ExceptionsReachTheApplication) {
    m_side.putAll(m_pDevice, m_pStream);
    m_side.fnFetch = [](void**, unsigned long long) -> int { throw std::logic_error("fetch"); };
    m_side.fnCancel = []() -> int { throw Exceptions::Xapel_AbortException("file", 7, "cancel", "text"); };
    m_side.fnInfo = [](int, int*, void*, unsigned long long*) -> int { throw std::logic_error("info"); };
    m_side.fnClose = [](void*) -> int { throw std::logic_error("close"); };
    EXPECT_THROW(fetch(0), std::logic_error);
    EXPECT_THROW(getStreamInfo(m_pStream, STREAM_INFO_ID, nullptr, nullptr, nullptr), std::logic_error);
    EXPECT_THROW(closeDataStream(m_pDevice, m_pStream), std::logic_error);
    try {
        cancelGetFilledBuffer(m_pStream);
        FAIL() << "no exception";
    } catch (const Exceptions::IException& rError) {
        const Exceptions::IException copy(rError);
        EXPECT_STREQ("text", copy.GetErrorDescription().get());
        EXPECT_STREQ("file", copy.GetFileName().get());
        EXPECT_STREQ("cancel", copy.GetFunctionName().get());
        EXPECT_STREQ("text", copy.what());
        EXPECT_EQ(7U, lineNumber(copy));
    }
    m_side.put(Control::eHookFetch, m_pDevice, m_pStream, true);
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0)) << "an exception leaves nothing behind on the thread";
}

// A lock held around a hook would block the other thread, on which the hook waits.
TEST_F(Hooks, HookMayWaitForAnotherThreadThatUsesTheHost) {
    m_side.putAll(m_pDevice, m_pStream);
    unsigned nCalls = 0;
    const auto fnElsewhere = [&] {
        ++nCalls;
        HookSide other;
        std::async(std::launch::async, [&] {
            Control::liveHooks();
            m_pStream->IsOpen();
            m_pDevice->GetDataStreams()->Refresh();
            other.put(Control::eHookFetch, m_pDevice, m_pStream);
            other.put(Control::eHookClose, m_pDevice, m_pStream, true);
            m_side.put(Control::eHookFetch, m_pDevice, m_pStream);
            payloadSize(m_pStream);
            node("Gain").GetInt();
        }).get();
        return 0;
    };
    m_side.fnFetch = [&](void**, unsigned long long) { return fnElsewhere(); };
    m_side.fnCancel = fnElsewhere;
    m_side.fnInfo = [&](int, int*, void*, unsigned long long*) { return fnElsewhere(); };
    m_side.fnOpen = [&](void*) { return fnElsewhere(); };
    m_side.fnClose = [&](void*) { return fnElsewhere(); };
    fetch(0);
    cancelGetFilledBuffer(m_pStream);
    getStreamInfo(m_pStream, STREAM_INFO_ID, nullptr, nullptr, nullptr);
    closeDataStream(m_pDevice, m_pStream);
    Control::addFirstStream(m_pDevice)->Open();
    EXPECT_EQ(nCalls, 5U) << "each hook once";
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
