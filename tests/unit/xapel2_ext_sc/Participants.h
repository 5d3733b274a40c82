// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Participants that note what they are asked, and the hooks as the host would call them.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "xapel2_standin/Control.h"

#include "XapelBypass.h"

namespace XapelTest {

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
        : CXapelBypass(pDevice), m_strName(std::move(strName)), m_rLog(rLog), m_Answer(answer) {}
    ~CSpy() { leaveLists(); }

    int consumer_getFilledBuffer(void**, unsigned long long, bool* pb) override { return note("fetch", pb); }
    int consumer_getStreamInfo(int, int*, void*, unsigned long long*, bool* pb) override { return note("info", pb); }
    int consumer_cancelGetFilledBuffer(bool* pb) override { return note("cancel", pb); }
    int consumer_DeviceCloseDataStream(void*, bool* pb) override { return note("close", pb); }
    int consumer_DeviceOpenDataStream(bool* pb) override { return note("open", pb); }
    int extended_useFilledBuffer(void* pBuffer) override {
        m_rLog.push_back(m_strName + ".use");
        m_pLastBuffer = pBuffer;
        if (m_fnUse)
            m_fnUse();
        return m_Answer.iResult;
    }

    std::function<void()> m_fnUse;
    std::function<void()> m_fnNote;
    void* m_pLastBuffer = nullptr;

private:
    int note(const char* pOperation, bool* pbForward) {
        m_rLog.push_back(m_strName + "." + pOperation);
        if (m_fnNote)
            m_fnNote();
        if (m_Answer.bForward)
            *pbForward = true;
        return m_Answer.iResult;
    }

    std::string m_strName;
    std::vector<std::string>& m_rLog;
    Answer m_Answer;
};

/// Calls the library's hooks with one context, as a host that has looked them up would. Stays usable after the hooks
/// have been removed.
class CHookCaller {
public:
    CHookCaller() {
        for (const auto& rHook : XAPEL2::StandIn::Control::registeredHooks()) {
            m_apfnHooks[rHook.eKind] = rHook.pfnHook;
            m_pContext = rHook.pContext;
        }
    }

    explicit CHookCaller(const XAPEL2::StandIn::Control::RegisteredHook& rHook) : m_pContext(rHook.pContext) {
        m_apfnHooks[rHook.eKind] = rHook.pfnHook;
    }

    /// The hook of this kind, called as for the stream.
    int call(XAPEL2::StandIn::Control::eHook eKind, XAPEL2::DataStream* pStream) const {
        using namespace XAPEL2::StandIn;
        void* pBuffer = nullptr;
        switch (eKind) {
            case Control::eHookFetch:
                return fetch(&pBuffer, 0);
            case Control::eHookCancel:
                return cancel();
            case Control::eHookInfo:
                return info();
            case Control::eHookClose:
                return close(pStream);
            default:
                return open();
        }
    }
    int fetch(void** ppBuffer, unsigned long long iTimeout = 5000) const {
        return hook<DataStreamGetFilledBufferFunc>(XAPEL2::StandIn::Control::eHookFetch)(ppBuffer, iTimeout,
                                                                                         m_pContext);
    }
    int cancel() const {
        return hook<DataStreamCancelGetFilledBufferFunc>(XAPEL2::StandIn::Control::eHookCancel)(m_pContext);
    }
    int info(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) const {
        return hook<DataStreamGetInfoFunc>(XAPEL2::StandIn::Control::eHookInfo)(iInfoCmd, piType, pValue, piSize,
                                                                                m_pContext);
    }
    int info() const {
        int iType = 0;
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof(nValue);
        return info(1, &iType, &nValue, &nSize);
    }
    int close(void* pStream) const {
        return hook<DeviceCloseDataStreamFunc>(XAPEL2::StandIn::Control::eHookClose)(pStream, m_pContext);
    }
    int open() const {
        return hook<DeviceOpenDataStreamFunc>(XAPEL2::StandIn::Control::eHookOpen)(nullptr, m_pContext);
    }

    void* m_pContext = nullptr;

private:
    template <typename Func>
    Func hook(XAPEL2::StandIn::Control::eHook eKind) const {
        return reinterpret_cast<Func>(m_apfnHooks[eKind]);
    }

    void* m_apfnHooks[5] = {};
};

}  // namespace XapelTest
