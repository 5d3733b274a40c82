// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host hands back for the hooks of a hub.

#pragma once

#include "xapel2/XapelBypassRegistration.h"

/// What the host handed back when the hooks were registered, with the stream that it belongs to. One set: read and
/// replaced together.
struct XapelHostFunctions {
    XAPEL2::DataStream* pDataStream = nullptr;
    void* hDataStream = nullptr;
    void* hDevice = nullptr;
    DataStreamGetFilledBufferFunc pfnGetFilledBuffer = nullptr;
    DataStreamCancelGetFilledBufferFunc pfnCancelGetFilledBuffer = nullptr;
    DataStreamGetInfoFunc pfnGetInfo = nullptr;
    DeviceCloseDataStreamFunc pfnCloseDataStream = nullptr;
};
