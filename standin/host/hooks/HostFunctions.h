// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's own functions, and the registrations that hand them out.

#pragma once

#include "standin/host/objects/Device.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

/// Fetches for the application call that runs on this thread, or, outside of one, as a call that begins now.
int ownFetch(CStream& rStream, void** ppBuffer, unsigned long long iTimeoutMs);
int ownInfo(const CStream& rStream, int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize);

int ownBufferInfo(const DataStream* pShell, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                  unsigned long long* piSize);

// As an extension library calls them, with the handle that came along: the stream's address, or the device's.

int hostFetch(void** ppBuffer, unsigned long long iTimeout, void* pHandle);
int hostCancel(void* pHandle);
int hostInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize, void* pHandle);
int hostClose(void* pStream, void* pHandle);

/// Puts or, with a null function, removes a hook.
/// @return false when the stream or the device is dead.
bool putHook(eHook eKind, DataStream* pShell, const Hook& rHook);
bool putHook(eHook eKind, Device* pShell, const Hook& rHook);

/// Puts or removes a hook and hands out the host's function and handle for one that was put.
template <class tFunction, class tOwner>
bool registerHook(eHook eKind, tOwner* pOwner, tFunction pfnHook, void* pContext, tFunction pfnHost,
                  tFunction* ppfnHost, void** ppHandle) {
    if (!putHook(eKind, pOwner, {reinterpret_cast<void (*)()>(pfnHook), pContext})) {
        return false;
    }
    if (pfnHook != nullptr && ppfnHost != nullptr) {
        *ppfnHost = pfnHost;
    }
    if (pfnHook != nullptr && ppHandle != nullptr) {
        *ppHandle = pOwner;
    }
    return true;
}

}  // namespace StandIn
}  // namespace XAPEL2
