// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The list of a device's streams.

#include "standin/host/objects/StreamList.h"

#include <memory>

#include "standin/host/objects/HostAccess.h"
#include "standin/host/objects/Registry.h"

namespace XAPEL2 {

using StandIn::Walk;
using StandIn::walkOf;

DataStreamList::iterator::iterator(void* pImpl) : m_pImpl(pImpl) {}

DataStreamList::iterator::iterator(const iterator& rOther) : m_pImpl(new Walk(walkOf(rOther.m_pImpl))) {}

DataStreamList::iterator::~iterator() {
    delete static_cast<Walk*>(m_pImpl);
}

DataStreamList::iterator& DataStreamList::iterator::operator++() {
    ++walkOf(m_pImpl).iPosition;
    return *this;
}

bool DataStreamList::iterator::operator!=(const iterator& rOther) const {
    const Walk& rLeft = walkOf(m_pImpl);
    const Walk& rRight = walkOf(rOther.m_pImpl);
    if (rLeft.atEnd() || rRight.atEnd()) {
        return rLeft.atEnd() != rRight.atEnd();
    }
    return rLeft.iPosition != rRight.iPosition;
}

DataStreamList::iterator DataStreamList::end() {
    return HostAccess::makeIterator(new Walk);
}

namespace StandIn {

void refresh(const DataStreamList& rList) {
    if (const auto pDevice = Registry::findDeviceOfList(&rList)) {
        pDevice->refreshList();
    }
}

std::size_t sizeOf(const DataStreamList& rList) {
    const auto pDevice = Registry::findDeviceOfList(&rList);
    return pDevice == nullptr ? 0 : pDevice->listed().size();
}

DataStreamList::iterator beginOf(const DataStreamList& rList) {
    auto pWalk = std::make_unique<Walk>();
    if (const auto pDevice = Registry::findDeviceOfList(&rList)) {
        for (const auto& pStream : pDevice->listed()) {
            pWalk->vecEntries.emplace_back(String(pStream->id().c_str()), pStream->shell());
        }
    }
    return HostAccess::makeIterator(pWalk.release());
}

}  // namespace StandIn

}  // namespace XAPEL2
