// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the operations of devices and streams in hostapi/ do. An exception tells the name of the operation there.

#pragma once

#include "xapel2/XapelDevice.h"

namespace XAPEL2 {
namespace StandIn {

bool isOpen(const DataStream& rStream);
void open(const DataStream& rStream);
/// Null when the device is closed.
DataStreamList* listOf(const Device& rDevice);
Node& remoteNode(const Device& rDevice, const char* pName);

}  // namespace StandIn
}  // namespace XAPEL2
