// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's own functions.

#include "standin/host/hooks/HostFunctions.h"

#include "standin/host/objects/Registry.h"
#include "standin/host/stream/CallFrame.h"

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

int ownBufferInfo(const DataStream* pShell, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                  unsigned long long* piSize) {
    const auto pBuffer = Registry::findStream(pShell) == nullptr ? nullptr : CBufferTable::instance().find(hBuffer);
    if (pBuffer == nullptr || pBuffer->pStream != pShell) {
        return GC_ERR_INVALID_HANDLE;
    }
    if (piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    uint64_t nSize = *piSize;
    const int iResult = CBufferTable::instance().query(hBuffer, iInfoCmd, {piType, pValue, &nSize});
    if (iResult == GC_ERR_SUCCESS) {
        *piSize = nSize;
    }
    return iResult;
}

int hostFetch(void** ppBuffer, unsigned long long iTimeout, void* pHandle) {
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : ownFetch(*pStream, ppBuffer, iTimeout);
}

int hostCancel(void* pHandle) {
    CCallFrame::noteOwnCancel(static_cast<const DataStream*>(pHandle));
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : pStream->waiters().cancel();
}

int hostInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pHandle) {
    const auto pStream = Registry::findStream(pHandle);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : ownInfo(*pStream, iInfoCmd, piType, pValue, piSize);
}

int hostClose(void* pStream, void* pHandle) {
    const auto pDevice = Registry::findDevice(pHandle);
    const auto pOfDevice = pDevice == nullptr ? nullptr : pDevice->findStream(static_cast<const DataStream*>(pStream));
    return pOfDevice == nullptr ? GC_ERR_INVALID_HANDLE : pOfDevice->close();
}

bool putHook(eHook eKind, DataStream* pShell, const Hook& rHook) {
    const auto pStream = Registry::findStream(pShell);
    return pStream != nullptr && pStream->hooks().put(eKind, rHook);
}

bool putHook(eHook eKind, Device* pShell, const Hook& rHook) {
    const auto pDevice = Registry::findDevice(pShell);
    return pDevice != nullptr && pDevice->hooks().put(eKind, rHook);
}

}  // namespace StandIn
}  // namespace XAPEL2
