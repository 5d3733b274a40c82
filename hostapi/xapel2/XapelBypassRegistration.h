// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hooks: how an extension library puts itself between the application and five data-stream operations.
//
// A registration hands the host a hook and a context. From then on the host calls the hook in place of its own
// implementation (for opening: after it), with the context as the last argument, and hands back its own function
// with the handle that this function takes in the same place. A null hook removes; both out-pointers are null then.
// Each registration returns true when the host accepted the request. An exception that leaves a hook reaches the
// application.
//
// @threads registrations: any thread, also inside a hook. Hooks: the thread of the application's call, with no lock of
// the host held.

#pragma once

#include "xapel2/XapelExport.h"

namespace XAPEL2 {
class DataStream;
class Device;
}  // namespace XAPEL2

extern "C" {

/// Waits up to iTimeout ms for a filled buffer and writes its handle to *ppBuffer.
typedef int (*DataStreamGetFilledBufferFunc)(void** ppBuffer, unsigned long long iTimeout, void* pContext);
/// Ends the fetches that wait.
typedef int (*DataStreamCancelGetFilledBufferFunc)(void* pContext);
/// Writes one property of the stream (STREAM_INFO_...), its type and its size.
typedef int (*DataStreamGetInfoFunc)(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize,
                                     void* pContext);
/// Closes a stream.
typedef int (*DeviceCloseDataStreamFunc)(void* pStream, void* pContext);
/// Hears of a stream that has been opened.
typedef int (*DeviceOpenDataStreamFunc)(void* pStream, void* pContext);

/// For fetches from this stream.
XAPEL2_HOST_API bool registerBypass_DataStreamEventControlGetFilledBuffer(XAPEL2::DataStream* pStream,
                                                                          DataStreamGetFilledBufferFunc pfnHook,
                                                                          void* pContext,
                                                                          DataStreamGetFilledBufferFunc* ppfnHost,
                                                                          void** ppHandle);

/// For cancels of fetches from this stream.
XAPEL2_HOST_API bool registerBypass_DataStreamEventControlCancelGetFilledBuffer(
    XAPEL2::DataStream* pStream, DataStreamCancelGetFilledBufferFunc pfnHook, void* pContext,
    DataStreamCancelGetFilledBufferFunc* ppfnHost, void** ppHandle);

/// For questions about this stream.
XAPEL2_HOST_API bool registerBypass_DataStreamGetInfo(XAPEL2::DataStream* pStream, DataStreamGetInfoFunc pfnHook,
                                                      void* pContext, DataStreamGetInfoFunc* ppfnHost, void** ppHandle);

/// For the closing of a stream of this device.
XAPEL2_HOST_API bool registerBypass_DeviceCloseDataStream(XAPEL2::Device* pDevice, DeviceCloseDataStreamFunc pfnHook,
                                                          void* pContext, DeviceCloseDataStreamFunc* ppfnHost,
                                                          void** ppHandle);

/// For the opening of a stream of this device. There is no function of the host's to call on.
XAPEL2_HOST_API bool registerBypass_DeviceOpenDataStream(XAPEL2::Device* pDevice, DeviceOpenDataStreamFunc pfnHook,
                                                         void* pContext);

}  // extern "C"
