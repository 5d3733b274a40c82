// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The participant base: bound to a hub for life, transparent unless a class overrides.

#include "XapelBypass.h"

#include "xapel2/GenTLCodes.h"
#include "xapel2/XapelExceptions.h"

#include "XapelBypassDevice.h"
#include "XapelBypassManager.h"
#include "XapelSourceFile.h"

CXapelBypass::CXapelBypass(XAPEL2::Device* pDevice) : m_pDevice(pDevice), m_pBypassDevice(nullptr) {
    if (pDevice == nullptr) {
        throw XAPEL2::Exceptions::Xapel_InvalidParameterException(XAPEL_BYPASS_SOURCE_FILE, __LINE__, "CXapelBypass",
                                                                  "Device parameter is nullptr.");
    }
    m_pBypassDevice = CXapelBypassManager::getXapelBypassDevice(pDevice);
}

CXapelBypass::~CXapelBypass() {
    leaveLists();
    try {
        CXapelBypassManager::removeXapelBypassDevice(m_pBypassDevice);
    } catch (...) {
        // The registry lock cannot be taken. The hub stays, without this object.
    }
}

void CXapelBypass::leaveLists() noexcept {
    m_pBypassDevice->dropParticipant(this);
}

int CXapelBypass::consumer_getFilledBuffer(void** ppBuffer, unsigned long long iTimeout, bool* /*pbForward*/) {
    return m_pBypassDevice->consumer_getFilledBuffer(ppBuffer, iTimeout);
}

int CXapelBypass::consumer_getStreamInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize,
                                         bool* /*pbForward*/) {
    return m_pBypassDevice->consumer_getStreamInfo(iInfoCmd, piType, pValue, piSize);
}

int CXapelBypass::consumer_cancelGetFilledBuffer(bool* /*pbForward*/) {
    return m_pBypassDevice->consumer_cancelGetFilledBuffer();
}

int CXapelBypass::consumer_DeviceCloseDataStream(void* pStream, bool* /*pbForward*/) {
    return m_pBypassDevice->consumer_DeviceCloseDataStream(pStream);
}

int CXapelBypass::consumer_DeviceOpenDataStream(bool* /*pbForward*/) {
    return m_pBypassDevice->consumer_DeviceOpenDataStream();
}

int CXapelBypass::extended_useFilledBuffer(void* /*pBuffer*/) {
    return GC_ERR_SUCCESS;
}

XAPEL2::DataStream* CXapelBypass::getXapelDataStream() {
    return m_pBypassDevice->getXapelDataStream();
}

void CXapelBypass::registerParticipant() {
    m_pBypassDevice->registerParticipant(this);
}
void CXapelBypass::unregisterParticipant() {
    m_pBypassDevice->unregisterParticipant(this);
}
void CXapelBypass::registerParticipantForCalling() {
    m_pBypassDevice->registerParticipantForCalling(this);
}
void CXapelBypass::unregisterParticipantForCalling() {
    m_pBypassDevice->unregisterParticipantForCalling(this);
}
