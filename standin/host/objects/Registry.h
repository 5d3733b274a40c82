// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Says what stands behind the addresses of devices and streams that an application hands in.

#pragma once

#include <memory>
#include <vector>

#include "standin/host/objects/Device.h"

namespace XAPEL2 {
namespace StandIn {

/// A stream together with its device.
struct StreamOfDevice {
    std::shared_ptr<CDevice> pDevice;
    std::shared_ptr<CStream> pStream;
};

/// One short lock; an address that is not alive yields null and is never dereferenced.
namespace Registry {

void add(const std::shared_ptr<CDevice>& pDevice);
/// Makes the address of a stream that was added later known.
void addStream(const std::shared_ptr<CDevice>& pDevice, const std::shared_ptr<CStream>& pStream);
/// Forgets the device and all its streams. False when it is not there.
bool remove(const CDevice& rDevice);

std::shared_ptr<CDevice> findDevice(const void* pShell);
std::shared_ptr<CDevice> findDeviceOfList(const void* pListShell);
std::shared_ptr<CStream> findStream(const void* pShell);
StreamOfDevice findStreamOfDevice(const void* pShell);
std::vector<std::shared_ptr<CDevice>> devices();

}  // namespace Registry

}  // namespace StandIn
}  // namespace XAPEL2
