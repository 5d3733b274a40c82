// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The operations of devices, streams and stream lists that the library calls.

#include "standin/host/objects/HostAccess.h"
#include "standin/host/objects/Registry.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/objects/Trace.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {

using namespace StandIn;

bool DataStream::IsOpen() {
    const bool bRefused = faultHits(Control::eStreamIsOpen);
    const auto pStream = Registry::findStream(this);
    return !bRefused && pStream != nullptr && pStream->isOpen();
}

void DataStream::Open() {
    if (faultHits(Control::eStreamOpen)) {
        XAPEL2_RAISE(AccessDenied, "injected");
    }
    const StreamOfDevice found = Registry::findStreamOfDevice(this);
    if (found.pStream == nullptr) {
        XAPEL2_RAISE(ObjectInvalid, "the stream's device is closed");
    }
    // Nothing is wrong with a stream that is open already.
    const int iResult = found.pDevice->openStream(*found.pStream);
    if (iResult != GC_ERR_SUCCESS && iResult != GC_ERR_RESOURCE_IN_USE) {
        trace(2, "DataStream; Open; the open hook returned " + std::to_string(iResult));
    }
}

namespace {

// A walk over the list as it was when the walk began; the end is any position behind the last entry.
struct Walk {
    std::vector<std::pair<String, DataStream*>> vecEntries;
    std::size_t iPosition = 0;
    std::pair<String, DataStream*> nothing{String(), nullptr};

    bool atEnd() const { return iPosition >= vecEntries.size(); }
};

Walk& walkOf(void* pImpl) {
    return *static_cast<Walk*>(pImpl);
}

}  // namespace

DataStreamList::iterator::iterator(void* pImpl) : m_pImpl(pImpl) {}

DataStreamList::iterator::iterator(const iterator& rOther) : m_pImpl(new Walk(walkOf(rOther.m_pImpl))) {}

DataStreamList::iterator::~iterator() {
    delete static_cast<Walk*>(m_pImpl);
}

std::pair<String, DataStream*>& DataStreamList::iterator::operator*() {
    Walk& rWalk = walkOf(m_pImpl);
    return faultHits(Control::eListEntry) || rWalk.atEnd() ? rWalk.nothing : rWalk.vecEntries[rWalk.iPosition];
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

void DataStreamList::Refresh() {
    const bool bRefused = faultHits(Control::eListRefresh);
    if (const auto pDevice = Registry::findDeviceOfList(this); pDevice != nullptr && !bRefused) {
        pDevice->refreshList();
    }
}

std::size_t DataStreamList::size() {
    const bool bRefused = faultHits(Control::eListSize);
    const auto pDevice = Registry::findDeviceOfList(this);
    return bRefused || pDevice == nullptr ? 0 : pDevice->listed().size();
}

DataStreamList::iterator DataStreamList::begin() {
    const bool bRefused = faultHits(Control::eListBegin);
    auto pWalk = std::make_unique<Walk>();
    if (const auto pDevice = Registry::findDeviceOfList(this); pDevice != nullptr && !bRefused) {
        for (const auto& pStream : pDevice->listed()) {
            pWalk->vecEntries.emplace_back(String(pStream->id().c_str()), pStream->shell());
        }
    }
    return HostAccess::makeIterator(pWalk.release());
}

DataStreamList::iterator DataStreamList::end() {
    return HostAccess::makeIterator(new Walk);
}

DataStreamList* Device::GetDataStreams() {
    const bool bRefused = faultHits(Control::eGetDataStreams);
    const auto pDevice = Registry::findDevice(this);
    return bRefused || pDevice == nullptr ? nullptr : pDevice->listShell();
}

Node* Device::GetRemoteNode(String strName) {
    const bool bRefused = faultHits(Control::eGetRemoteNode, strName.get());
    const auto pDevice = Registry::findDevice(this);
    if (pDevice == nullptr) {
        XAPEL2_RAISE(ObjectInvalid, "the device is closed");
    }
    Node* pNode = bRefused ? nullptr : pDevice->nodes().find(strName.get());
    if (pNode == nullptr) {
        XAPEL2_RAISE(NotAvailable, std::string("no node ") + strName.get());
    }
    return pNode;
}

}  // namespace XAPEL2
