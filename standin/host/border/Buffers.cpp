// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Queries on a buffer.

#include "standin/host/hooks/HostFunctions.h"
#include "standin/host/stream/BufferTable.h"
#include "xapel2/XapelBuffer.h"

int getFuncPtr_BufferInfo(void* pBuffer, BufferInfoFunc* ppfn) {
    using namespace XAPEL2::StandIn;
    return yieldFunction<BufferInfoFunc>(pBuffer, &hostBufferInfo, ppfn);
}

int getFuncPtr_BufferGetPixelFormat(void* pBuffer, BufferGetPixelFormatFunc* ppfn) {
    using namespace XAPEL2::StandIn;
    return yieldFunction<BufferGetPixelFormatFunc>(pBuffer, &hostBufferPixelFormat, ppfn);
}

int XAPEL2::StandIn::getBufferInfo(DataStream* pStream, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                                   unsigned long long* piSize) {
    return ownBufferInfo(pStream, hBuffer, iInfoCmd, piType, pValue, piSize);
}
