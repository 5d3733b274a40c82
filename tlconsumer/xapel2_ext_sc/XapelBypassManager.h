// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registry of interception hubs.

#pragma once

#include <map>
#include <mutex>

class CXapelBypassDevice;

namespace XAPEL2 {
class Device;
}

/// The process-wide registry: one hub for each device in use.
class CXapelBypassManager {
public:
    /// The device's hub, built when there is none; held by the caller until it hands it back.
    /// @throws what building a hub throws; the registry is then as before.
    static CXapelBypassDevice* getXapelBypassDevice(XAPEL2::Device* pDevice);

    /// Hands a hub back; with the last holder it is destroyed. A hub that is not registered is ignored.
    /// @throws std::system_error  the registry lock cannot be taken; nothing has changed.
    static void removeXapelBypassDevice(CXapelBypassDevice* pHub);

private:
    static std::mutex m_mtx;  // guards mParticipants; held while a hub is built or destroyed
    static std::map<CXapelBypassDevice*, int> mParticipants;  // number of participants that hold the hub
};
