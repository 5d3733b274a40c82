// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the operations of devices and streams in hostapi/ do. An exception tells the name of the operation there.

#pragma once

#include "xapel2/XapelDevice.h"
#include "xapel2_standin/ImageGeometry.h"

namespace XAPEL2 {
namespace StandIn {

bool isOpen(const DataStream& rStream);
void open(const DataStream& rStream);
/// Null when the device is closed.
DataStreamList* listOf(const Device& rDevice);
/// Notes the device as the one that this thread asks.
Node& remoteNode(const Device& rDevice, const char* pName);
/// Where an image lies that the device takes now of which this thread has last asked a node; false when there is none,
/// or it is closed.
bool geometryOfAsked(ImageGeometry& rGeometry);

}  // namespace StandIn
}  // namespace XAPEL2
