// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Makes the objects that an application sees ("shells"), and reads what they hold.
//
// A shell of a device is an address and nothing more: the registry says what stands behind it. Shells are never
// freed, so that the address of a dead object is never given to another one and can be refused for good.

#pragma once

#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2/XapelNodes.h"

namespace XAPEL2 {

struct HostAccess {
    /// Shells that the process keeps for ever.
    static DataStream* newStream();
    static DataStreamList* newStreamList();
    static Device* newDevice();

    /// Shells that the caller owns.
    static NodeMap* newNodeMap(void* pImpl) { return new NodeMap(pImpl); }
    static Node* newNode(void* pImpl) { return new Node(pImpl); }

    static void* impl(const Node& rNode) { return rNode.m_pImpl; }
    static void* impl(const NodeMap& rMap) { return rMap.m_pImpl; }
    static void* impl(const Exceptions::IException& rException) { return rException.m_pImpl; }
    static DataStreamList::iterator makeIterator(void* pImpl) { return DataStreamList::iterator(pImpl); }
};

}  // namespace XAPEL2
