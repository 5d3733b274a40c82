// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hook trampolines: from the host's call with a context to the hub, if there still is one.

#include "XapelBypassHooks.h"

#include "xapel2/GenTLCodes.h"

#include "XapelBypassDevice.h"

namespace {

/// Runs fnCall on the hub that pContext names, or yields iGone when that hub is gone or going.
template <typename Call>
int callHub(void* pContext, int iGone, Call fnCall) {
    const CXapelHubPin pin(pContext);
    return pin.isAlive() ? fnCall(*static_cast<CXapelBypassDevice*>(pContext)) : iGone;
}

int globalGetFilledBuffer_Callback(void** ppBuffer, unsigned long long iTimeout, void* pContext) {
    return callHub(pContext, GC_ERR_NOT_INITIALIZED,
                   [=](CXapelBypassDevice& rHub) { return rHub.getFilledBuffer_Callback(ppBuffer, iTimeout); });
}

int globalCancelGetFilledBuffer_Callback(void* pContext) {
    return callHub(pContext, GC_ERR_SUCCESS,
                   [](CXapelBypassDevice& rHub) { return rHub.cancelGetFilledBuffer_Callback(); });
}

int globalGetInfo_Callback(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pContext) {
    return callHub(pContext, GC_ERR_NOT_INITIALIZED,
                   [=](CXapelBypassDevice& rHub) { return rHub.getInfo_Callback(iInfoCmd, piType, pValue, piSize); });
}

int globalDeviceCloseDataStream_Callback(void* pStream, void* pContext) {
    return callHub(pContext, GC_ERR_NOT_INITIALIZED,
                   [=](CXapelBypassDevice& rHub) { return rHub.deviceCloseDataStream_Callback(pStream); });
}

int globalDeviceOpenDataStream_Callback(void* /*pStream*/, void* pContext) {
    return callHub(pContext, GC_ERR_SUCCESS,
                   [](CXapelBypassDevice& rHub) { return rHub.deviceOpenDataStream_Callback(); });
}

}  // namespace

bool xapelRegisterHook(eXapelHook eHook, XAPEL2::Device* pDevice, CXapelBypassDevice* pHub, XapelHostFunctions& rHost) {
    switch (eHook) {
        case eHookFetch:
            return registerBypass_DataStreamEventControlGetFilledBuffer(rHost.pDataStream,
                                                                        &globalGetFilledBuffer_Callback, pHub,
                                                                        &rHost.pfnGetFilledBuffer, &rHost.hDataStream);
        case eHookCancel:
            return registerBypass_DataStreamEventControlCancelGetFilledBuffer(
                rHost.pDataStream, &globalCancelGetFilledBuffer_Callback, pHub, &rHost.pfnCancelGetFilledBuffer,
                &rHost.hDataStream);
        case eHookInfo:
            return registerBypass_DataStreamGetInfo(rHost.pDataStream, &globalGetInfo_Callback, pHub, &rHost.pfnGetInfo,
                                                    &rHost.hDataStream);
        case eHookClose:
            return registerBypass_DeviceCloseDataStream(pDevice, &globalDeviceCloseDataStream_Callback, pHub,
                                                        &rHost.pfnCloseDataStream, &rHost.hDevice);
        case eHookOpen:
            return registerBypass_DeviceOpenDataStream(pDevice, &globalDeviceOpenDataStream_Callback, pHub);
        case eHookCount:
            break;
    }
    return false;
}

bool xapelRemoveHook(eXapelHook eHook, XAPEL2::Device* pDevice, XAPEL2::DataStream* pDataStream,
                     CXapelBypassDevice* pHub) {
    switch (eHook) {
        case eHookFetch:
            return registerBypass_DataStreamEventControlGetFilledBuffer(pDataStream, nullptr, pHub, nullptr, nullptr);
        case eHookCancel:
            return registerBypass_DataStreamEventControlCancelGetFilledBuffer(pDataStream, nullptr, pHub, nullptr,
                                                                              nullptr);
        case eHookInfo:
            return registerBypass_DataStreamGetInfo(pDataStream, nullptr, pHub, nullptr, nullptr);
        case eHookClose:
            return registerBypass_DeviceCloseDataStream(pDevice, nullptr, pHub, nullptr, nullptr);
        case eHookOpen:
            return registerBypass_DeviceOpenDataStream(pDevice, nullptr, pHub);
        case eHookCount:
            break;
    }
    return false;
}
