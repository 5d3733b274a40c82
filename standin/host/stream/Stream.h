// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A data stream: its buffers, the fetches that wait for them, the acquisition that fills them.

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "standin/host/hooks/Hooks.h"
#include "standin/host/stream/Acquisition.h"
#include "standin/host/stream/BufferQueue.h"
#include "standin/host/stream/Waiters.h"

namespace XAPEL2 {
namespace StandIn {

/// The host's own implementation of a stream, behind the hooks. Results are GenTL codes.
/// @threads any thread. Lock order: the control lock, which serialises opening, closing, starting and stopping; the
/// acquisition's; the fetches'; the queue's; then the leaf locks of the camera, its stream, the buffer table and the
/// hooks.
class CStream {
public:
    CStream(std::shared_ptr<ICamera> pCamera, DataStream* pShell, std::string strId);
    ~CStream();
    CStream(const CStream&) = delete;
    CStream& operator=(const CStream&) = delete;

    DataStream* shell() const { return m_pShell; }
    const std::string& id() const { return m_strId; }
    CHooks& hooks() { return m_hooks; }
    /// For buffers.
    CBufferQueue& buffers() { return m_queue; }
    /// For fetches and cancels.
    CWaiters& waiters() { return m_waiters; }

    bool isOpen() const { return m_queue.isOpen(); }
    /// False when it is open already.
    bool open();
    /// GC_ERR_RESOURCE_IN_USE on the thread of the acquisition, as for start() and stop().
    int close();
    int start(uint64_t nFrames);
    int stop();
    /// True on the thread that fills this stream's buffers: it can neither stop nor close the stream.
    bool isProducerThread() const { return m_acquisition.isOwnThread(); }

    /// Bytes of one frame with the camera's present settings; 0 when the stream is not open.
    std::size_t payloadSize() const { return isOpen() ? m_pCamera->payloadSize() : 0; }
    int info(int iInfoCmd, const InfoSlot& rSlot) const;

private:
    const std::shared_ptr<ICamera> m_pCamera;
    DataStream* const m_pShell;
    const std::string m_strId;
    CHooks m_hooks;
    std::mutex m_mtxControl;  // held over each opening, closing, start and stop
    CBufferQueue m_queue;
    CWaiters m_waiters;
    CAcquisition m_acquisition;
};

}  // namespace StandIn
}  // namespace XAPEL2
