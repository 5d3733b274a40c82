// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An open device.

#include "standin/host/objects/Device.h"

#include "standin/host/objects/HostAccess.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

CDevice::CDevice(std::shared_ptr<ICamera> pCamera)
    : m_pCamera(std::move(pCamera)), m_pShell(HostAccess::newDevice()), m_pListShell(HostAccess::newStreamList()) {
    auto pNodes = std::make_unique<CNodeMapShell>(std::shared_ptr<const NodeTable>(m_pCamera, &m_pCamera->nodes()));
    m_pNodes = pNodes.get();
    CNodeMapShell::keep(std::move(pNodes));
    putFirst(makeStream());
}

std::vector<std::shared_ptr<CStream>> CDevice::streams() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_vecStreams;
}

std::shared_ptr<CStream> CDevice::findStream(const DataStream* pStream) const {
    std::lock_guard<std::mutex> lock(m_mtx);
    for (const auto& pEach : m_vecStreams) {
        if (pEach->shell() == pStream) {
            return pEach;
        }
    }
    return nullptr;
}

std::shared_ptr<CStream> CDevice::makeStream() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return std::make_shared<CStream>(m_pCamera, HostAccess::newStream(),
                                     "Stream" + std::to_string(m_vecStreams.size()));
}

void CDevice::putFirst(const std::shared_ptr<CStream>& pStream) {
    std::lock_guard<std::mutex> lock(m_mtx);
    m_vecStreams.insert(m_vecStreams.begin(), pStream);
}

void CDevice::refreshList() {
    std::lock_guard<std::mutex> lock(m_mtx);
    m_vecListed = m_vecStreams;
}

std::vector<std::shared_ptr<CStream>> CDevice::listed() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_vecListed;
}

int CDevice::openStream(CStream& rStream) {
    if (!rStream.open()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    const Hook hook = m_hooks.find(eHookOpen);
    if (hook.pfn == nullptr) {
        return GC_ERR_SUCCESS;
    }
    return reinterpret_cast<DeviceOpenDataStreamFunc>(hook.pfn)(rStream.shell(), hook.pContext);
}

}  // namespace StandIn
}  // namespace XAPEL2
