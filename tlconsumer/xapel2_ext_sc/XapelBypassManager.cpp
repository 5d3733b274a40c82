// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registry of hubs: one for each device, for as long as somebody holds it.

#include "XapelBypassManager.h"

#include <memory>

#include "XapelBypassDevice.h"

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
    if (itHub == mParticipants.end() || --itHub->second > 0) {
        return;
    }
    delete pHub;
    mParticipants.erase(itHub);
}
