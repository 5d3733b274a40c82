// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// How each intercepted call travels through a hub: participants first, then the host.

#include <cxxabi.h>

#include "xapel2/GenTLCodes.h"

#include "XapelBypass.h"
#include "XapelBypassDevice.h"

namespace {

/// How often one opening may move the hub. Each overlapping opening looks for itself too, so the last of them settles
/// the place; an end is needed where a host never lists the same stream first twice.
constexpr unsigned XAPEL_MOVES_MAX = 8;

}  // namespace

std::vector<CXapelBypass*> CXapelBypassDevice::copyParticipants() const {
    const std::lock_guard<std::mutex> lock(m_mtxLeaf);
    return std::vector<CXapelBypass*>(m_lstParticipants.begin(), m_lstParticipants.end());
}

int CXapelBypassDevice::getFilledBuffer_Callback(void** ppBuffer, unsigned long long iTimeout) {
    const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eShared, eCallFetch);
    std::size_t nForward = 0;
    bool bForward = false;
    int iResult = GC_ERR_SUCCESS;
    for (CXapelBypass* pParticipant : m_lstParticipants) {
        iResult = pParticipant->consumer_getFilledBuffer(ppBuffer, iTimeout, &bForward);
        if (iResult != GC_ERR_SUCCESS) {
            break;
        }
        nForward += bForward ? 1U : 0U;
        bForward = false;
    }
    if (nForward == m_lstParticipants.size()) {
        iResult = consumer_getFilledBuffer(ppBuffer, iTimeout);
    }
    return iResult;
}

int CXapelBypassDevice::consumer_getFilledBuffer(void** ppBuffer, unsigned long long iTimeout) {
    const XapelHostFunctions host =
        hostFields(&XapelHostFunctions::pfnGetFilledBuffer, &XapelHostFunctions::hDataStream);
    if (host.pfnGetFilledBuffer == nullptr) {
        return GC_ERR_NOT_INITIALIZED;
    }
    const int iResult = host.pfnGetFilledBuffer(ppBuffer, iTimeout, host.hDataStream);
    if (iResult != GC_ERR_SUCCESS) {
        return iResult;
    }
    try {
        for (CXapelBypass* pParticipant : m_lstParticipantsForCalling) {
            pParticipant->extended_useFilledBuffer(*ppBuffer);
        }
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled: swallowing this would end the process
    } catch (...) {
        return GC_ERR_ERROR;
    }
    return GC_ERR_SUCCESS;
}

int CXapelBypassDevice::getInfo_Callback(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) {
    const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eShared, eCallInfo);
    bool bCarryOn = !m_lstParticipants.empty();
    int iResult = GC_ERR_NOT_INITIALIZED;
    for (CXapelBypass* pParticipant : m_lstParticipants) {
        bool bForward = false;
        iResult = pParticipant->consumer_getStreamInfo(iInfoCmd, piType, pValue, piSize, &bForward);
        // A failing participant ends the pass with its flag unseen: the hub's own query then replaces its result.
        if (iResult != GC_ERR_SUCCESS) {
            break;
        }
        bCarryOn = bCarryOn && bForward;
    }
    if (bCarryOn) {
        iResult = consumer_getStreamInfo(iInfoCmd, piType, pValue, piSize);
    }
    return iResult;
}

int CXapelBypassDevice::consumer_getStreamInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) {
    const XapelHostFunctions host = hostFields(&XapelHostFunctions::pfnGetInfo, &XapelHostFunctions::hDataStream);
    return host.pfnGetInfo == nullptr ? GC_ERR_NOT_INITIALIZED
                                      : host.pfnGetInfo(iInfoCmd, piType, pValue, piSize, host.hDataStream);
}

int CXapelBypassDevice::cancelGetFilledBuffer_Callback() {
    const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eShared, eCallNone);
    return cancelGetFilledBuffer();
}

int CXapelBypassDevice::cancelGetFilledBuffer() {
    bool bForward = false;
    for (CXapelBypass* pParticipant : m_lstParticipants) {
        pParticipant->consumer_cancelGetFilledBuffer(&bForward);
    }
    consumer_cancelGetFilledBuffer();
    return GC_ERR_SUCCESS;
}

int CXapelBypassDevice::consumer_cancelGetFilledBuffer() {
    const XapelHostFunctions host =
        hostFields(&XapelHostFunctions::pfnCancelGetFilledBuffer, &XapelHostFunctions::hDataStream);
    return host.pfnCancelGetFilledBuffer == nullptr ? GC_ERR_NOT_INITIALIZED
                                                    : host.pfnCancelGetFilledBuffer(host.hDataStream);
}

int CXapelBypassDevice::deviceCloseDataStream_Callback(void* pStream) {
    const CXapelCallCount::CEntry entry(m_OpenClose);
    if (entry.isClosing()) {
        return GC_ERR_NOT_INITIALIZED;
    }
    int iResult = GC_ERR_NOT_INITIALIZED;
    bool bForward = false;
    const std::vector<CXapelBypass*> participants = copyParticipants();
    for (CXapelBypass* pParticipant : participants) {
        iResult = pParticipant->consumer_DeviceCloseDataStream(pStream, &bForward);
        if (iResult != GC_ERR_SUCCESS) {
            break;
        }
    }
    if (!participants.empty()) {
        iResult = consumer_DeviceCloseDataStream(pStream);
    }
    return iResult;
}

int CXapelBypassDevice::consumer_DeviceCloseDataStream(void* pStream) {
    const XapelHostFunctions host = hostFields(&XapelHostFunctions::pfnCloseDataStream, &XapelHostFunctions::hDevice);
    return host.pfnCloseDataStream == nullptr ? GC_ERR_NOT_INITIALIZED : host.pfnCloseDataStream(pStream, host.hDevice);
}

int CXapelBypassDevice::deviceOpenDataStream_Callback() {
    const CXapelCallCount::CEntry entry(m_OpenClose);
    if (entry.isClosing()) {
        return GC_ERR_SUCCESS;
    }
    bool bForward = false;
    for (CXapelBypass* pParticipant : copyParticipants()) {
        if (pParticipant->consumer_DeviceOpenDataStream(&bForward) != GC_ERR_SUCCESS) {
            break;
        }
    }
    consumer_DeviceOpenDataStream();
    return GC_ERR_SUCCESS;
}

int CXapelBypassDevice::consumer_DeviceOpenDataStream() {
    XAPEL2::DataStream* pDataStream = findFirstDataStream("consumer_DeviceOpenDataStream");
    for (unsigned nMoves = 0; nMoves < XAPEL_MOVES_MAX; ++nMoves) {
        registerHooks(pDataStream, false);
        // Another opening may have changed the list meanwhile; the last one to look settles it.
        XAPEL2::DataStream* pFirst = pDataStream;
        try {
            pFirst = findFirstDataStream("consumer_DeviceOpenDataStream");
        } catch (const abi::__forced_unwind&) {
            throw;  // the thread is being cancelled: swallowing this would end the process
        } catch (...) {
            // The hub stands where the first look-up sent it, so this opening has done its work.
        }
        if (pFirst == pDataStream) {
            break;
        }
        pDataStream = pFirst;
    }
    return GC_ERR_SUCCESS;
}
