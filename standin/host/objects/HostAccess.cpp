// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The shells and the place that keeps them.

#include "standin/host/objects/HostAccess.h"

#include <memory>
#include <mutex>
#include <vector>

namespace XAPEL2 {

DataStream::DataStream(void* pImpl) : m_pImpl(pImpl) {}
DataStreamList::DataStreamList(void* pImpl) : m_pImpl(pImpl) {}
Device::Device(void* pImpl) : m_pImpl(pImpl) {}
Node::Node(void* pImpl) : m_pImpl(pImpl) {}
NodeMap::NodeMap(void* pImpl) : m_pImpl(pImpl) {}

namespace {

// Keeps the shell reachable for the life of the process.
template <class tShell>
tShell* keep(tShell* pShell) {
    static std::mutex* const pMutex = new std::mutex;
    static std::vector<std::unique_ptr<tShell>>* const pKept = new std::vector<std::unique_ptr<tShell>>;
    std::unique_ptr<tShell> pOwned(pShell);
    std::lock_guard<std::mutex> lock(*pMutex);
    pKept->push_back(std::move(pOwned));
    return pShell;
}

}  // namespace

DataStream* HostAccess::newStream() {
    return keep(new DataStream(nullptr));
}

DataStreamList* HostAccess::newStreamList() {
    return keep(new DataStreamList(nullptr));
}

Device* HostAccess::newDevice() {
    return keep(new Device(nullptr));
}

}  // namespace XAPEL2
