// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registrations of hooks, with faults and a record; the hooks can be held, and the host's functions fail.

#include <mutex>

#include "standin/host/hooks/HostFunctions.h"
#include "standin/host/objects/Registry.h"
#include "standin/host/stream/CallFrame.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/HookHold.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

int testFetch(void** ppBuffer, unsigned long long iTimeout, void* pHandle) {
    return faultHits(Control::eHostFetch) ? GC_ERR_ACCESS_DENIED : hostFetch(ppBuffer, iTimeout, pHandle);
}

int testCancel(void* pHandle) {
    // Even when it is refused it has been called: the host does not cancel behind the hook's back.
    CCallFrame::noteOwnCancel(static_cast<const DataStream*>(pHandle));
    const int iResult = faultHits(Control::eHostCancel) ? GC_ERR_ACCESS_DENIED : hostCancel(pHandle);
    noteCancelDone();
    return iResult;
}

int testInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pHandle) {
    return faultHits(Control::eHostInfo) ? GC_ERR_ACCESS_DENIED : hostInfo(iInfoCmd, piType, pValue, piSize, pHandle);
}

int testClose(void* pStream, void* pHandle) {
    return faultHits(Control::eHostClose) ? GC_ERR_ACCESS_DENIED : hostClose(pStream, pHandle);
}

// What tells the registrations apart.
struct Kind {
    eHook eKind;
    Control::eHostOp eRegister;
    Control::eHostOp eRemove;
    const char* pName;
};
constexpr Kind FETCH = {eHookFetch, Control::eRegisterFetch, Control::eRemoveFetch, "fetch"};
constexpr Kind CANCEL = {eHookCancel, Control::eRegisterCancel, Control::eRemoveCancel, "cancel"};
constexpr Kind INFO = {eHookInfo, Control::eRegisterInfo, Control::eRemoveInfo, "info"};
constexpr Kind CLOSE = {eHookClose, Control::eRegisterClose, Control::eRemoveClose, "close"};
constexpr Kind OPEN = {eHookOpen, Control::eRegisterOpen, Control::eRemoveOpen, "open"};

// Null when the owner is dead.
std::shared_ptr<CStream> find(const DataStream* pStream) {
    return Registry::findStream(pStream);
}
std::shared_ptr<CDevice> find(const Device* pDevice) {
    return Registry::findDevice(pDevice);
}

// The context that the host knows: that of the hook in the table, where it is what the caller registered.
template <class tOwner>
void* contextToRemove(eHook eKind, const tOwner* pOwner, void* pContext) {
    const auto pFound = find(pOwner);
    const Hook inTable = pFound == nullptr ? Hook() : pFound->hooks().find(eKind);
    return registeredOf(inTable).pContext == pContext ? inTable.pContext : nullptr;
}

template <class tFunction, class tOwner>
bool registerTested(const Kind& rKind, tOwner* pOwner, tFunction pfnHook, void* pContext, tFunction pfnHost,
                    tFunction* ppfnHost, void** ppHandle) {
    const bool bRemove = pfnHook == nullptr;
    if (observation().recRegistrations.isOn()) {
        observation().recRegistrations.add(std::string(bRemove ? "remove " : "register ") + rKind.pName);
    }
    if (faultHits(bRemove ? rKind.eRemove : rKind.eRegister)) {
        return false;
    }
    // Held over each registration, so that what is removed is still what was found.
    static std::mutex* const pMutex = new std::mutex;
    const std::lock_guard<std::mutex> lock(*pMutex);
    const Hook hook = bRemove ? Hook{nullptr, contextToRemove(rKind.eKind, pOwner, pContext)}
                              : holdable(rKind.eKind, {reinterpret_cast<void (*)()>(pfnHook), pContext});
    return registerHook(rKind.eKind, pOwner, reinterpret_cast<tFunction>(hook.pfn), hook.pContext, pfnHost, ppfnHost,
                        ppHandle);
}

}  // namespace

}  // namespace StandIn
}  // namespace XAPEL2

using namespace XAPEL2::StandIn;

bool registerBypass_DataStreamEventControlGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                          DataStreamGetFilledBufferFunc pfnHook, void* pContext,
                                                          DataStreamGetFilledBufferFunc* ppfnHost, void** ppHandle) {
    return registerTested<DataStreamGetFilledBufferFunc>(FETCH, pStream, pfnHook, pContext, &testFetch, ppfnHost,
                                                         ppHandle);
}

bool registerBypass_DataStreamEventControlCancelGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                                DataStreamCancelGetFilledBufferFunc pfnHook,
                                                                void* pContext,
                                                                DataStreamCancelGetFilledBufferFunc* ppfnHost,
                                                                void** ppHandle) {
    return registerTested<DataStreamCancelGetFilledBufferFunc>(CANCEL, pStream, pfnHook, pContext, &testCancel,
                                                               ppfnHost, ppHandle);
}

bool registerBypass_DataStreamGetInfo(XAPEL2::DataStream* pStream, DataStreamGetInfoFunc pfnHook, void* pContext,
                                      DataStreamGetInfoFunc* ppfnHost, void** ppHandle) {
    return registerTested<DataStreamGetInfoFunc>(INFO, pStream, pfnHook, pContext, &testInfo, ppfnHost, ppHandle);
}

bool registerBypass_DeviceCloseDataStream(XAPEL2::Device* pDevice, DeviceCloseDataStreamFunc pfnHook, void* pContext,
                                          DeviceCloseDataStreamFunc* ppfnHost, void** ppHandle) {
    return registerTested<DeviceCloseDataStreamFunc>(CLOSE, pDevice, pfnHook, pContext, &testClose, ppfnHost, ppHandle);
}

bool registerBypass_DeviceOpenDataStream(XAPEL2::Device* pDevice, DeviceOpenDataStreamFunc pfnHook, void* pContext) {
    return registerTested<DeviceOpenDataStreamFunc>(OPEN, pDevice, pfnHook, pContext, nullptr, nullptr, nullptr);
}
