// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's own functions and the registrations that hand them out.

#include "standin/host/hooks/HostFunctions.h"

#include "standin/host/objects/Registry.h"
#include "standin/host/stream/CallFrame.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

int ownFetch(CStream& rStream, void** ppBuffer, unsigned long long iTimeoutMs) {
    // A hook may fetch from another stream than the application named.
    CCallFrame* const pSame = CCallFrame::find(rStream.shell());
    CCallFrame* const pFrame = pSame != nullptr ? pSame : CCallFrame::innermost();
    return rStream.waiters().fetch(ppBuffer, iTimeoutMs,
                                   pFrame == nullptr ? CWaiters::cancelStamp() : pFrame->cancelStamp(), pFrame);
}

int ownInfo(const CStream& rStream, int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) {
    if (piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    uint64_t nSize = *piSize;
    const int iResult = rStream.info(iInfoCmd, {piType, pValue, &nSize});
    if (iResult == GC_ERR_SUCCESS) {
        *piSize = nSize;
    }
    return iResult;
}

namespace {

int hostFetch(void** ppBuffer, unsigned long long iTimeout, void* pHandle) {
    if (faultHits(Control::eHostFetch)) {
        return GC_ERR_ACCESS_DENIED;
    }
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : ownFetch(*pStream, ppBuffer, iTimeout);
}

int hostCancel(void* pHandle) {
    // Even when it is refused it has been called: the host does not cancel behind the hook's back.
    CCallFrame::noteOwnCancel(static_cast<const DataStream*>(pHandle));
    if (faultHits(Control::eHostCancel)) {
        return GC_ERR_ACCESS_DENIED;
    }
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : pStream->waiters().cancel();
}

int hostInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pHandle) {
    if (faultHits(Control::eHostInfo)) {
        return GC_ERR_ACCESS_DENIED;
    }
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : ownInfo(*pStream, iInfoCmd, piType, pValue, piSize);
}

int hostClose(void* pStream, void* pHandle) {
    if (faultHits(Control::eHostClose)) {
        return GC_ERR_ACCESS_DENIED;
    }
    const auto pDevice = Registry::findDevice(pHandle);
    const auto pOfDevice = pDevice == nullptr ? nullptr : pDevice->findStream(static_cast<const DataStream*>(pStream));
    return pOfDevice == nullptr ? GC_ERR_INVALID_HANDLE : pOfDevice->close();
}

// What tells the registrations apart.
struct Kind {
    Control::eHook eHook;
    Control::eHostOp eRegister;
    Control::eHostOp eRemove;
    const char* pName;
};
constexpr Kind FETCH = {Control::eHookFetch, Control::eRegisterFetch, Control::eRemoveFetch, "fetch"};
constexpr Kind CANCEL = {Control::eHookCancel, Control::eRegisterCancel, Control::eRemoveCancel, "cancel"};
constexpr Kind INFO = {Control::eHookInfo, Control::eRegisterInfo, Control::eRemoveInfo, "info"};
constexpr Kind CLOSE = {Control::eHookClose, Control::eRegisterClose, Control::eRemoveClose, "close"};
constexpr Kind OPEN = {Control::eHookOpen, Control::eRegisterOpen, Control::eRemoveOpen, "open"};

// Puts or removes a hook; pOwner (a stream or a device) is null when it is dead.
template <class tOwner, class tFunction>
bool putHook(const Kind& rKind, tOwner* (*pfnFind)(void*, std::shared_ptr<void>&), void* pShell, tFunction pfnHook,
             void* pContext) {
    const bool bRemove = pfnHook == nullptr;
    if (observation().recRegistrations.isOn()) {
        observation().recRegistrations.add(std::string(bRemove ? "remove " : "register ") + rKind.pName);
    }
    if (faultHits(bRemove ? rKind.eRemove : rKind.eRegister)) {
        return false;
    }
    std::shared_ptr<void> pKeep;
    tOwner* pOwner = pfnFind(pShell, pKeep);
    return pOwner != nullptr && pOwner->hooks().put(rKind.eHook, {reinterpret_cast<void (*)()>(pfnHook), pContext});
}

CStream* streamOf(void* pShell, std::shared_ptr<void>& rKeep) {
    const auto pStream = Registry::findStream(pShell);
    rKeep = pStream;
    return pStream.get();
}

CDevice* deviceOf(void* pShell, std::shared_ptr<void>& rKeep) {
    const auto pDevice = Registry::findDevice(pShell);
    rKeep = pDevice;
    return pDevice.get();
}

// Hands out the host's function and handle for a hook that was put.
template <class tFunction>
void handOut(tFunction pfnHost, void* pHandle, tFunction* ppfnHost, void** ppHandle) {
    if (ppfnHost != nullptr) {
        *ppfnHost = pfnHost;
    }
    if (ppHandle != nullptr) {
        *ppHandle = pHandle;
    }
}

template <class tFunction>
bool registerOnStream(const Kind& rKind, DataStream* pStream, tFunction pfnHook, void* pContext, tFunction pfnHost,
                      tFunction* ppfnHost, void** ppHandle) {
    if (!putHook(rKind, &streamOf, pStream, pfnHook, pContext)) {
        return false;
    }
    if (pfnHook != nullptr) {
        handOut(pfnHost, pStream, ppfnHost, ppHandle);
    }
    return true;
}

}  // namespace

}  // namespace StandIn
}  // namespace XAPEL2

using namespace XAPEL2::StandIn;

bool registerBypass_DataStreamEventControlGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                          DataStreamGetFilledBufferFunc pfnHook, void* pContext,
                                                          DataStreamGetFilledBufferFunc* ppfnHost, void** ppHandle) {
    return registerOnStream<DataStreamGetFilledBufferFunc>(FETCH, pStream, pfnHook, pContext, &hostFetch, ppfnHost,
                                                           ppHandle);
}

bool registerBypass_DataStreamEventControlCancelGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                                DataStreamCancelGetFilledBufferFunc pfnHook,
                                                                void* pContext,
                                                                DataStreamCancelGetFilledBufferFunc* ppfnHost,
                                                                void** ppHandle) {
    return registerOnStream<DataStreamCancelGetFilledBufferFunc>(CANCEL, pStream, pfnHook, pContext, &hostCancel,
                                                                 ppfnHost, ppHandle);
}

bool registerBypass_DataStreamGetInfo(XAPEL2::DataStream* pStream, DataStreamGetInfoFunc pfnHook, void* pContext,
                                      DataStreamGetInfoFunc* ppfnHost, void** ppHandle) {
    return registerOnStream<DataStreamGetInfoFunc>(INFO, pStream, pfnHook, pContext, &hostInfo, ppfnHost, ppHandle);
}

bool registerBypass_DeviceCloseDataStream(XAPEL2::Device* pDevice, DeviceCloseDataStreamFunc pfnHook, void* pContext,
                                          DeviceCloseDataStreamFunc* ppfnHost, void** ppHandle) {
    if (!putHook(CLOSE, &deviceOf, pDevice, pfnHook, pContext)) {
        return false;
    }
    if (pfnHook != nullptr) {
        handOut<DeviceCloseDataStreamFunc>(&hostClose, pDevice, ppfnHost, ppHandle);
    }
    return true;
}

bool registerBypass_DeviceOpenDataStream(XAPEL2::Device* pDevice, DeviceOpenDataStreamFunc pfnHook, void* pContext) {
    return putHook(OPEN, &deviceOf, pDevice, pfnHook, pContext);
}
