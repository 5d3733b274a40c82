// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An open device with a small camera, and a hook side that behaves as a test says.

#pragma once

#include <functional>
#include <future>
#include <string>
#include <vector>

#include "StreamFixture.h"
#include "xapel2/XapelBypassRegistration.h"
#include "xapel2/XapelExceptions.h"

namespace XAPEL2 {
namespace StandIn {

using XapelTest::DEADLINE_MS;
using XapelTest::eventually;

class HostFixture : public XapelTest::StreamFixture {
protected:
    void SetUp() override {
        StreamFixture::SetUp();
        ASSERT_EQ(GC_ERR_SUCCESS, openDataStream(m_pDevice, m_pStream));
    }

    Node& node(const char* pName) { return *remoteNodes(m_pDevice)->GetNode(pName); }

    // Fetches a buffer and keeps it.
    BufferHandle nextFrame() {
        BufferHandle hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, getFilledBuffer(m_pStream, &hBuffer, DEADLINE_MS));
        return hBuffer;
    }

    bool waitForFilled(uint64_t nCount) {
        return eventually([&] { return streamNumber(STREAM_INFO_NUM_AWAIT_DELIVERY) >= nCount; });
    }
    uint64_t bufferNumber(BufferHandle hBuffer, int iInfoCmd) {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof nValue;
        EXPECT_EQ(GC_ERR_SUCCESS, getBufferInfo(m_pStream, hBuffer, iInfoCmd, nullptr, &nValue, &nSize));
        return nValue;
    }
};

/// Stands for an extension library: registers hooks that call the host's functions, unless a test says otherwise.
struct HookSide {
    std::function<int(void**, unsigned long long)> fnFetch = [this](void** ppBuffer, unsigned long long iTimeoutMs) {
        return pfnFetch(ppBuffer, iTimeoutMs, pFetch);
    };
    std::function<int()> fnCancel = [this] { return pfnCancel(pCancel); };
    std::function<int(int, int*, void*, unsigned long long*)> fnInfo = [this](int iInfoCmd, int* piType, void* pValue,
                                                                              unsigned long long* piSize) {
        return pfnInfo(iInfoCmd, piType, pValue, piSize, pInfo);
    };
    std::function<int(void*)> fnClose = [this](void* pStream) { return pfnClose(pStream, pClose); };
    std::function<int(void*)> fnOpen = [](void*) { return 0; };

    static HookSide& of(void* pContext) { return *static_cast<HookSide*>(pContext); }
    static int onFetch(void** ppBuffer, unsigned long long iTimeoutMs, void* pContext) {
        return of(pContext).fnFetch(ppBuffer, iTimeoutMs);
    }
    static int onCancel(void* pContext) { return of(pContext).fnCancel(); }
    static int onInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pContext) {
        return of(pContext).fnInfo(iInfoCmd, piType, pValue, piSize);
    }
    static int onClose(void* pStream, void* pContext) { return of(pContext).fnClose(pStream); }
    static int onOpen(void* pStream, void* pContext) { return of(pContext).fnOpen(pStream); }

    bool put(Control::eHook eKind, Device* pDevice, DataStream* pStream, bool bRemove = false) {
        // A removal names neither hook nor out-variables.
        const auto fnUnlessRemoved = [bRemove](auto* p) { return bRemove ? nullptr : p; };
        switch (eKind) {
            case Control::eHookFetch:
                return registerBypass_DataStreamEventControlGetFilledBuffer(
                    pStream, fnUnlessRemoved(&onFetch), this, fnUnlessRemoved(&pfnFetch), fnUnlessRemoved(&pFetch));
            case Control::eHookCancel:
                return registerBypass_DataStreamEventControlCancelGetFilledBuffer(
                    pStream, fnUnlessRemoved(&onCancel), this, fnUnlessRemoved(&pfnCancel), fnUnlessRemoved(&pCancel));
            case Control::eHookInfo:
                return registerBypass_DataStreamGetInfo(pStream, fnUnlessRemoved(&onInfo), this,
                                                        fnUnlessRemoved(&pfnInfo), fnUnlessRemoved(&pInfo));
            case Control::eHookClose:
                return registerBypass_DeviceCloseDataStream(pDevice, fnUnlessRemoved(&onClose), this,
                                                            fnUnlessRemoved(&pfnClose), fnUnlessRemoved(&pClose));
            case Control::eHookOpen:
                return registerBypass_DeviceOpenDataStream(pDevice, fnUnlessRemoved(&onOpen), this);
        }
        return false;
    }
    bool putAll(Device* pDevice, DataStream* pStream, bool bRemove = false) {
        bool bAll = true;
        for (const Control::eHook eKind :
             {Control::eHookFetch, Control::eHookCancel, Control::eHookInfo, Control::eHookClose, Control::eHookOpen}) {
            bAll = put(eKind, pDevice, pStream, bRemove) && bAll;
        }
        return bAll;
    }

    DataStreamGetFilledBufferFunc pfnFetch = nullptr;
    DataStreamCancelGetFilledBufferFunc pfnCancel = nullptr;
    DataStreamGetInfoFunc pfnInfo = nullptr;
    DeviceCloseDataStreamFunc pfnClose = nullptr;
    void* pFetch = nullptr;
    void* pCancel = nullptr;
    void* pInfo = nullptr;
    void* pClose = nullptr;
};

}  // namespace StandIn
}  // namespace XAPEL2
