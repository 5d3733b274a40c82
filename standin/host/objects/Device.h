// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An open device: its camera, its streams, its hooks.

#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "standin/host/hooks/Hooks.h"
#include "standin/host/nodes/Nodes.h"
#include "standin/host/stream/Stream.h"

namespace XAPEL2 {
namespace StandIn {

/// @threads any thread.
class CDevice {
public:
    explicit CDevice(std::shared_ptr<ICamera> pCamera);

    Device* shell() const { return m_pShell; }
    DataStreamList* listShell() const { return m_pListShell; }
    CHooks& hooks() { return m_hooks; }

    /// Where an image lies that the camera takes now.
    ImageGeometry geometry() const { return m_pCamera->geometry(); }

    /// Borrowed for the life of the process; refuses everything once the device is gone.
    const CNodeMapShell& nodes() const { return *m_pNodes; }

    std::vector<std::shared_ptr<CStream>> streams() const;
    /// Null when it is none of this device's streams.
    std::shared_ptr<CStream> findStream(const DataStream* pStream) const;
    /// A stream that the device does not list yet.
    std::shared_ptr<CStream> makeStream() const;
    void putFirst(const std::shared_ptr<CStream>& pStream);

    /// The list as an application sees it: as it was at the last refresh.
    void refreshList();
    std::vector<std::shared_ptr<CStream>> listed() const;

    /// Opens the stream, then runs the open hook.
    /// @return what the hook returned, GC_ERR_RESOURCE_IN_USE when the stream is open already.
    int openStream(CStream& rStream);

private:
    const std::shared_ptr<ICamera> m_pCamera;
    Device* const m_pShell;
    DataStreamList* const m_pListShell;
    const CNodeMapShell* m_pNodes;
    CHooks m_hooks;

    mutable std::mutex m_mtx;  // guards the members below
    std::vector<std::shared_ptr<CStream>> m_vecStreams;
    std::vector<std::shared_ptr<CStream>> m_vecListed;
};

}  // namespace StandIn
}  // namespace XAPEL2
