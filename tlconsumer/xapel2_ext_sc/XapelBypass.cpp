// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registry of hubs and the participant base.

#include "XapelBypass.h"

#include <memory>

#include "xapel2/GenTLCodes.h"
#include "xapel2/XapelExceptions.h"

std::mutex CXapelBypassManager::m_mtx;
std::map<CXapelBypassDevice*, int> CXapelBypassManager::mParticipants;

CXapelBypassDevice* CXapelBypassManager::getXapelBypassDevice(XAPEL2::Device* pDevice) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    for (auto& rEntry : mParticipants) {
        if (rEntry.first->getXapelDevice() == pDevice) {
            ++rEntry.second;
            return rEntry.first;
        }
    }
    std::unique_ptr<CXapelBypassDevice> pHub(new CXapelBypassDevice(pDevice));
    mParticipants.emplace(pHub.get(), 1);
    return pHub.release();
}

void CXapelBypassManager::removeXapelBypassDevice(CXapelBypassDevice* pHub) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    const auto itHub = mParticipants.find(pHub);
    if (itHub == mParticipants.end() || --itHub->second > 0)
        return;
    delete pHub;
    mParticipants.erase(itHub);
}

CXapelBypass::CXapelBypass(XAPEL2::Device* pDevice) : m_pDevice(pDevice), m_pBypassDevice(nullptr) {
    if (pDevice == nullptr)
        throw XAPEL2::Exceptions::Xapel_InvalidParameterException("tlconsumer/xapel2_ext_sc/XapelBypass", __LINE__,
                                                                  "CXapelBypass", "Device parameter is nullptr.");
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
