// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Queries on a buffer, with faults and questions that get no answer.

#include "standin/host/hooks/HostFunctions.h"
#include "standin/host/stream/BufferTable.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Switches.h"
#include "xapel2/XapelBuffer.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

int testBufferInfo(int32_t iInfoCmd, int32_t* piType, void* pValue, uint64_t* piSize, void* pBuffer) {
    if (faultHits(Control::eBufferInfo)) {
        return GC_ERR_ACCESS_DENIED;
    }
    return isUnanswered(iInfoCmd) ? GC_ERR_NOT_AVAILABLE : hostBufferInfo(iInfoCmd, piType, pValue, piSize, pBuffer);
}

int testBufferPixelFormat(std::string& rPixelFormat, void* pBuffer) {
    return faultHits(Control::eBufferPixelFormat) ? GC_ERR_ACCESS_DENIED : hostBufferPixelFormat(rPixelFormat, pBuffer);
}

template <class tFunction>
int yieldUnlessHit(Control::eHostOp eOp, void* pBuffer, tFunction pfn, tFunction* ppfn) {
    return faultHits(eOp) ? GC_ERR_ACCESS_DENIED : yieldFunction(pBuffer, pfn, ppfn);
}

}  // namespace

int getBufferInfo(DataStream* pStream, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                  unsigned long long* piSize) {
    return isUnanswered(iInfoCmd) ? GC_ERR_NOT_AVAILABLE
                                  : ownBufferInfo(pStream, hBuffer, iInfoCmd, piType, pValue, piSize);
}

}  // namespace StandIn
}  // namespace XAPEL2

using namespace XAPEL2::StandIn;

int getFuncPtr_BufferInfo(void* pBuffer, BufferInfoFunc* ppfn) {
    return yieldUnlessHit<BufferInfoFunc>(Control::eGetBufferInfoFunc, pBuffer, &testBufferInfo, ppfn);
}

int getFuncPtr_BufferGetPixelFormat(void* pBuffer, BufferGetPixelFormatFunc* ppfn) {
    return yieldUnlessHit<BufferGetPixelFormatFunc>(Control::eGetPixelFormatFunc, pBuffer, &testBufferPixelFormat,
                                                    ppfn);
}
