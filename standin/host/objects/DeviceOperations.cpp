// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Devices and streams as the library sees them.

#include "standin/host/objects/DeviceOperations.h"

#include "standin/host/objects/Registry.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/objects/Trace.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

thread_local const Device* t_pAsked = nullptr;  // looked up, never followed

}  // namespace

bool isOpen(const DataStream& rStream) {
    const auto pStream = Registry::findStream(&rStream);
    return pStream != nullptr && pStream->isOpen();
}

void open(const DataStream& rStream) {
    const StreamOfDevice found = Registry::findStreamOfDevice(&rStream);
    if (found.pStream == nullptr) {
        raise<Exceptions::Xapel_ObjectInvalidException>(__FILE__, __LINE__, "Open", "the stream's device is closed");
    }
    // Nothing is wrong with a stream that is open already.
    const int iResult = found.pDevice->openStream(*found.pStream);
    if (iResult != GC_ERR_SUCCESS && iResult != GC_ERR_RESOURCE_IN_USE) {
        trace(2, "DataStream; Open; the open hook returned " + std::to_string(iResult));
    }
}

DataStreamList* listOf(const Device& rDevice) {
    const auto pDevice = Registry::findDevice(&rDevice);
    return pDevice == nullptr ? nullptr : pDevice->listShell();
}

Node& remoteNode(const Device& rDevice, const char* pName) {
    const auto pDevice = Registry::findDevice(&rDevice);
    if (pDevice == nullptr) {
        raise<Exceptions::Xapel_ObjectInvalidException>(__FILE__, __LINE__, "GetRemoteNode", "the device is closed");
    }
    Node* const pNode = pDevice->nodes().find(pName);
    if (pNode == nullptr) {
        raiseNoNode("GetRemoteNode", pName);
    }
    t_pAsked = &rDevice;
    return *pNode;
}

bool geometryOfAsked(ImageGeometry& rGeometry) {
    const auto pDevice = t_pAsked == nullptr ? nullptr : Registry::findDevice(t_pAsked);
    if (pDevice == nullptr) {
        return false;
    }
    rGeometry = pDevice->geometry();
    return rGeometry.isKnown();
}

}  // namespace StandIn
}  // namespace XAPEL2
