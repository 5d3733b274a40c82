// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The operations of devices, streams and stream lists.

#include "standin/host/objects/DeviceOperations.h"
#include "standin/host/objects/StreamList.h"

namespace XAPEL2 {

bool DataStream::IsOpen() {
    return StandIn::isOpen(*this);
}

void DataStream::Open() {
    StandIn::open(*this);
}

std::pair<String, DataStream*>& DataStreamList::iterator::operator*() {
    return StandIn::walkOf(m_pImpl).entry();
}

void DataStreamList::Refresh() {
    StandIn::refresh(*this);
}

std::size_t DataStreamList::size() {
    return StandIn::sizeOf(*this);
}

DataStreamList::iterator DataStreamList::begin() {
    return StandIn::beginOf(*this);
}

DataStreamList* Device::GetDataStreams() {
    return StandIn::listOf(*this);
}

Node* Device::GetRemoteNode(String strName) {
    return &StandIn::remoteNode(*this, strName.get());
}

}  // namespace XAPEL2
