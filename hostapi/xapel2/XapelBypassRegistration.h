// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hooks: how an extension library puts itself between the application and five data-stream operations.
//
// A registration hands the host a hook and a context. From then on the host calls the hook in place of its own
// implementation (for opening: after it), with the context as the last argument, and hands back its own function
// with the handle that this function takes in the same place. A null hook removes; both out-pointers are null then.
// Each registration returns true when the host accepted the request. Hooks run on the thread of the application's
// call; an exception that leaves a hook reaches the application.

#pragma once

#include "xapel2/XapelExport.h"

namespace XAPEL2 {
class DataStream;
class Device;
}  // namespace XAPEL2

extern "C" {

typedef int (*DataStreamGetFilledBufferFunc)(void** ppBuffer, unsigned long long iTimeout, void* pContext);
typedef int (*DataStreamCancelGetFilledBufferFunc)(void* pContext);
typedef int (*DataStreamGetInfoFunc)(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize,
                                     void* pContext);
typedef int (*DeviceCloseDataStreamFunc)(void* pStream, void* pContext);
typedef int (*DeviceOpenDataStreamFunc)(void* pStream, void* pContext);

XAPEL2_HOST_API bool registerBypass_DataStreamEventControlGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                                          DataStreamGetFilledBufferFunc pfnHook,
                                                                          void* pContext,
                                                                          DataStreamGetFilledBufferFunc* ppfnHost,
                                                                          void** ppHandle);

XAPEL2_HOST_API bool registerBypass_DataStreamEventControlCancelGetFilledBuffer(
    XAPEL2::DataStream* pStream, DataStreamCancelGetFilledBufferFunc pfnHook, void* pContext,
    DataStreamCancelGetFilledBufferFunc* ppfnHost, void** ppHandle);

XAPEL2_HOST_API bool registerBypass_DataStreamGetInfo(XAPEL2::DataStream* pStream, DataStreamGetInfoFunc pfnHook,
                                                      void* pContext, DataStreamGetInfoFunc* ppfnHost, void** ppHandle);

XAPEL2_HOST_API bool registerBypass_DeviceCloseDataStream(XAPEL2::Device* pDevice, DeviceCloseDataStreamFunc pfnHook,
                                                          void* pContext, DeviceCloseDataStreamFunc* ppfnHost,
                                                          void** ppHandle);

XAPEL2_HOST_API bool registerBypass_DeviceOpenDataStream(XAPEL2::Device* pDevice, DeviceOpenDataStreamFunc pfnHook,
                                                         void* pContext);

}  // extern "C"
