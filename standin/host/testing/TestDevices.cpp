// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The operations of devices, streams and stream lists, with faults, and lists that hide their streams.

#include <map>
#include <memory>
#include <mutex>

#include "standin/host/objects/DeviceOperations.h"
#include "standin/host/objects/HostAccess.h"
#include "standin/host/objects/Registry.h"
#include "standin/host/objects/StreamList.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/testing/Faults.h"

namespace XAPEL2 {

using namespace StandIn;

namespace {

// Whether the streams of a list are hidden; by its address, which no other list ever has.
struct Hiding {
    bool bHide = false;    // from the next refresh on
    bool bHidden = false;  // as of the last one
};

struct HiddenLists {
    std::mutex mtx;  // guards the map
    std::map<const DataStreamList*, Hiding> mapLists;
};

HiddenLists& hiddenLists() {
    static HiddenLists* const pLists = new HiddenLists;
    return *pLists;
}

bool isHidden(const DataStreamList& rList) {
    HiddenLists& rLists = hiddenLists();
    const std::lock_guard<std::mutex> lock(rLists.mtx);
    const auto it = rLists.mapLists.find(&rList);
    return it != rLists.mapLists.end() && it->second.bHidden;
}

void noteRefresh(const DataStreamList& rList) {
    HiddenLists& rLists = hiddenLists();
    const std::lock_guard<std::mutex> lock(rLists.mtx);
    const auto it = rLists.mapLists.find(&rList);
    if (it != rLists.mapLists.end()) {
        it->second.bHidden = it->second.bHide;
    }
}

}  // namespace

bool DataStream::IsOpen() {
    return !faultHits(Control::eStreamIsOpen) && isOpen(*this);
}

void DataStream::Open() {
    if (faultHits(Control::eStreamOpen)) {
        XAPEL2_RAISE(AccessDenied, "injected");
    }
    open(*this);
}

std::pair<String, DataStream*>& DataStreamList::iterator::operator*() {
    Walk& rWalk = walkOf(m_pImpl);
    return faultHits(Control::eListEntry) ? rWalk.nothing : rWalk.entry();
}

void DataStreamList::Refresh() {
    if (!faultHits(Control::eListRefresh)) {
        refresh(*this);
        noteRefresh(*this);
    }
}

std::size_t DataStreamList::size() {
    return faultHits(Control::eListSize) || isHidden(*this) ? 0 : sizeOf(*this);
}

DataStreamList::iterator DataStreamList::begin() {
    return faultHits(Control::eListBegin) || isHidden(*this) ? end() : beginOf(*this);
}

DataStreamList* Device::GetDataStreams() {
    return faultHits(Control::eGetDataStreams) ? nullptr : listOf(*this);
}

Node* Device::GetRemoteNode(String strName) {
    const bool bRefused = faultHits(Control::eGetRemoteNode, strName.get());
    Node& rNode = remoteNode(*this, strName.get());
    if (bRefused) {
        raiseNoNode("GetRemoteNode", strName.get());
    }
    return &rNode;
}

void StandIn::Control::hideStreams(Device* pDevice, bool bHide) {
    if (const auto pOpen = Registry::findDevice(pDevice)) {
        HiddenLists& rLists = hiddenLists();
        const std::lock_guard<std::mutex> lock(rLists.mtx);
        rLists.mapLists[pOpen->listShell()].bHide = bHide;
    }
}

}  // namespace XAPEL2
