// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registrations of hooks.

#include "standin/host/hooks/HostFunctions.h"

using namespace XAPEL2::StandIn;

bool registerBypass_DataStreamEventControlGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                          DataStreamGetFilledBufferFunc pfnHook, void* pContext,
                                                          DataStreamGetFilledBufferFunc* ppfnHost, void** ppHandle) {
    return registerHook<DataStreamGetFilledBufferFunc>(eHookFetch, pStream, pfnHook, pContext, &hostFetch, ppfnHost,
                                                       ppHandle);
}

bool registerBypass_DataStreamEventControlCancelGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                                DataStreamCancelGetFilledBufferFunc pfnHook,
                                                                void* pContext,
                                                                DataStreamCancelGetFilledBufferFunc* ppfnHost,
                                                                void** ppHandle) {
    return registerHook<DataStreamCancelGetFilledBufferFunc>(eHookCancel, pStream, pfnHook, pContext, &hostCancel,
                                                             ppfnHost, ppHandle);
}

bool registerBypass_DataStreamGetInfo(XAPEL2::DataStream* pStream, DataStreamGetInfoFunc pfnHook, void* pContext,
                                      DataStreamGetInfoFunc* ppfnHost, void** ppHandle) {
    return registerHook<DataStreamGetInfoFunc>(eHookInfo, pStream, pfnHook, pContext, &hostInfo, ppfnHost, ppHandle);
}

bool registerBypass_DeviceCloseDataStream(XAPEL2::Device* pDevice, DeviceCloseDataStreamFunc pfnHook, void* pContext,
                                          DeviceCloseDataStreamFunc* ppfnHost, void** ppHandle) {
    return registerHook<DeviceCloseDataStreamFunc>(eHookClose, pDevice, pfnHook, pContext, &hostClose, ppfnHost,
                                                   ppHandle);
}

bool registerBypass_DeviceOpenDataStream(XAPEL2::Device* pDevice, DeviceOpenDataStreamFunc pfnHook, void* pContext) {
    return putHook(eHookOpen, pDevice, {reinterpret_cast<void (*)()>(pfnHook), pContext});
}
