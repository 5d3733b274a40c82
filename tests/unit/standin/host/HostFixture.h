// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An open device with a small camera, and a hook side that behaves as a test says.

#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "xapel2/XapelBypassRegistration.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_standin/Control.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace StandIn {

constexpr unsigned DEADLINE_MS = 20000;

struct Fetched {
    int iResult = 1;
    BufferHandle hBuffer = nullptr;
};

class HostFixture : public ::testing::Test {
protected:
    HostFixture() {
        Control::reset();
        m_pDevice = openDevice("sim:7?width=64&height=48&format=Mono8");
        m_pStream = firstDataStream(m_pDevice);
        EXPECT_EQ(GC_ERR_SUCCESS, openDataStream(m_pDevice, m_pStream));
    }
    ~HostFixture() override {
        Control::reset();
        closeDevice(m_pDevice);
    }

    Node& node(const char* pName) { return *remoteNodes(m_pDevice)->GetNode(pName); }

    // Announces and queues buffers of the payload's size.
    std::vector<BufferHandle> queueBuffers(unsigned nCount) {
        std::vector<BufferHandle> vecBuffers(nCount);
        for (BufferHandle& rBuffer : vecBuffers) {
            EXPECT_EQ(GC_ERR_SUCCESS, allocAndAnnounceBuffer(m_pStream, payloadSize(m_pStream), &rBuffer));
            EXPECT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, rBuffer));
        }
        return vecBuffers;
    }

    Fetched fetch(unsigned long long iTimeoutMs = DEADLINE_MS) {
        Fetched fetched;
        fetched.iResult = getFilledBuffer(m_pStream, &fetched.hBuffer, iTimeoutMs);
        return fetched;
    }
    std::future<Fetched> fetchAsync(unsigned long long iTimeoutMs = DEADLINE_MS) {
        return std::async(std::launch::async, [this, iTimeoutMs] { return fetch(iTimeoutMs); });
    }

    uint64_t streamNumber(int iInfoCmd) {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof nValue;
        EXPECT_EQ(GC_ERR_SUCCESS, getStreamInfo(m_pStream, iInfoCmd, nullptr, &nValue, &nSize));
        return nValue;
    }
    // Waits until so many frames stand ready.
    ::testing::AssertionResult waitForFilled(uint64_t nCount) {
        const auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(DEADLINE_MS);
        while (streamNumber(STREAM_INFO_NUM_AWAIT_DELIVERY) < nCount) {
            if (std::chrono::steady_clock::now() > tEnd) {
                return ::testing::AssertionFailure() << "no frame in time";
            }
            std::this_thread::yield();
        }
        return ::testing::AssertionSuccess();
    }

    uint64_t bufferNumber(BufferHandle hBuffer, int iInfoCmd) {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof nValue;
        EXPECT_EQ(GC_ERR_SUCCESS, getBufferInfo(m_pStream, hBuffer, iInfoCmd, nullptr, &nValue, &nSize));
        return nValue;
    }
    std::vector<uint8_t> image(BufferHandle hBuffer) {
        const auto* pBase = reinterpret_cast<const uint8_t*>(bufferNumber(hBuffer, BUFFER_INFO_BASE));
        const uint8_t* pImage = pBase + bufferNumber(hBuffer, BUFFER_INFO_IMAGEOFFSET);
        return {pImage, pImage + bufferNumber(hBuffer, BUFFER_INFO_WIDTH) * bufferNumber(hBuffer, BUFFER_INFO_HEIGHT)};
    }

    Device* m_pDevice = nullptr;
    DataStream* m_pStream = nullptr;
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
