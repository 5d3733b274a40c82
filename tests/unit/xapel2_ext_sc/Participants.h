// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Participants that note what they are asked, and the hooks as the host would call them.

#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "standin/host/testing/Control.h"
#include "xapel2/XapelBypassRegistration.h"

#include "StreamFixture.h"
#include "XapelBypass.h"

namespace XapelTest {

namespace Control = XAPEL2::StandIn::Control;

/// What a participant answers to every call.
struct Answer {
    int iResult = 0;
    bool bForward = false;
};

/// The base as it is.
class CPlain final : public CXapelBypass {
public:
    using CXapelBypass::CXapelBypass;
};

/// Takes part in every call: notes "NAME.operation", then answers as told.
class CSpy final : public CXapelBypass {
public:
    CSpy(XAPEL2::Device* pDevice, std::string strName, std::vector<std::string>& rLog, Answer answer = {})
        : CXapelBypass(pDevice), m_strName(std::move(strName)), m_rLog(rLog), m_answer(answer) {}
    ~CSpy() { leaveLists(); }

    int consumer_getFilledBuffer(void**, unsigned long long, bool* pb) override { return note("fetch", pb); }
    int consumer_getStreamInfo(int, int*, void*, unsigned long long*, bool* pb) override { return note("info", pb); }
    int consumer_cancelGetFilledBuffer(bool* pb) override { return note("cancel", pb); }
    int consumer_DeviceCloseDataStream(void*, bool* pb) override { return note("close", pb); }
    int consumer_DeviceOpenDataStream(bool* pb) override { return note("open", pb); }
    int extended_useFilledBuffer(void* pBuffer) override {
        m_rLog.push_back(m_strName + ".use");
        m_pLastBuffer = pBuffer;
        if (m_fnUse) {
            m_fnUse();
        }
        return m_answer.iResult;
    }

    std::function<void()> m_fnUse;
    std::function<void()> m_fnNote;
    void* m_pLastBuffer = nullptr;

private:
    int note(const char* pOperation, bool* pbForward) {
        m_rLog.push_back(m_strName + "." + pOperation);
        if (m_fnNote) {
            m_fnNote();
        }
        if (m_answer.bForward) {
            *pbForward = true;
        }
        return m_answer.iResult;
    }

    std::string m_strName;
    std::vector<std::string>& m_rLog;
    Answer m_answer;
};

/// Holds the first call that asks a participant until it is released or gone; later ones pass. It outlives that call.
class HeldCall {
public:
    explicit HeldCall(CSpy& rSpy) {
        rSpy.m_fnNote = [this] {
            if (!m_bInside.exchange(true)) {
                eventually([this] { return m_bGoOn.load(); });
            }
        };
    }
    bool waitUntilHeld() const {
        return eventually([this] { return m_bInside.load(); });
    }
    void release() { m_bGoOn = true; }

private:
    std::atomic<bool> m_bInside{false}, m_bGoOn{false};
};

/// Calls the library's hooks with one context, as a host that has looked them up would. Stays usable after the hooks
/// have been removed.
class CHookCaller {
public:
    /// With the hooks that stand now, of one hub.
    CHookCaller() {
        for (const auto& rHook : Control::registeredHooks()) {
            add(rHook);
        }
    }
    explicit CHookCaller(const Control::RegisteredHook& rHook) { add(rHook); }

    int fetch(void** ppBuffer, unsigned long long iTimeout = 5000) const {
        return hook<DataStreamGetFilledBufferFunc>(Control::eHookFetch)(ppBuffer, iTimeout, m_pContext);
    }
    int cancel() const { return hook<DataStreamCancelGetFilledBufferFunc>(Control::eHookCancel)(m_pContext); }
    int info(bool bPlaceForValue = true) const {
        int iType = 0;
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof(nValue);
        return hook<DataStreamGetInfoFunc>(Control::eHookInfo)(1, &iType, bPlaceForValue ? &nValue : nullptr,
                                                               bPlaceForValue ? &nSize : nullptr, m_pContext);
    }
    int close(void* pStream) const { return hook<DeviceCloseDataStreamFunc>(Control::eHookClose)(pStream, m_pContext); }
    int open() const { return hook<DeviceOpenDataStreamFunc>(Control::eHookOpen)(nullptr, m_pContext); }

    void* m_pContext = nullptr;

private:
    void add(const Control::RegisteredHook& rHook) {
        m_apfnHooks[rHook.eKind] = rHook.pfnHook;
        m_pContext = rHook.pContext;
    }
    template <typename Func>
    Func hook(Control::eHook eKind) const {
        return reinterpret_cast<Func>(m_apfnHooks[eKind]);
    }

    void* m_apfnHooks[5] = {};
};

}  // namespace XapelTest
