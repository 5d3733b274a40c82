// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The five hooks as the host sees them: registering and removing each.

#pragma once

struct XapelHostFunctions;
class CXapelBypassDevice;

namespace XAPEL2 {
class DataStream;
class Device;
}  // namespace XAPEL2

/// The hooks, in the order of registering and removing. The first three stand on a stream, the others on the device.
enum eXapelHook : unsigned { eHookFetch, eHookCancel, eHookInfo, eHookClose, eHookOpen, eHookCount };

/// First hook that stands on the device.
constexpr unsigned XAPEL_HOOK_FIRST_OF_DEVICE = eHookClose;

/// Asks the host to register a hook, with the hub as context, on rHost.pDataStream or the device.
/// @param[in,out] rHost  gets the host's function and handle; what the host does not write stays.
/// @return false: the host refused. May throw what the host throws.
bool xapelRegisterHook(eXapelHook eHook, XAPEL2::Device* pDevice, CXapelBypassDevice* pHub, XapelHostFunctions& rHost);

/// Asks the host to remove a hook. Does not wait for a call that is under way.
/// @return false: the host refused. May throw what the host throws.
bool xapelRemoveHook(eXapelHook eHook, XAPEL2::Device* pDevice, XAPEL2::DataStream* pDataStream,
                     CXapelBypassDevice* pHub);
