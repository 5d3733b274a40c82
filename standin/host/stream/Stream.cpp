// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Opening, closing, starting, stopping, and the information on a stream.

#include "standin/host/stream/Stream.h"

#include <utility>

#include "standin/host/stream/Parts.h"

namespace XAPEL2 {
namespace StandIn {

CStream::CStream(std::shared_ptr<ICamera> pCamera, DataStream* pShell, std::string strId)
    : m_pCamera(std::move(pCamera)),
      m_pShell(pShell),
      m_strId(std::move(strId)),
      m_queue(pShell),
      m_waiters(m_queue, makeCancelPolicy()),
      m_acquisition(*m_pCamera, m_queue, m_waiters) {}

CStream::~CStream() {
    close();
}

bool CStream::open() {
    const std::lock_guard<std::mutex> control(m_mtxControl);
    if (isOpen()) {
        return false;
    }
    m_waiters.open();
    m_queue.open();
    return true;
}

int CStream::close() {
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    const std::lock_guard<std::mutex> control(m_mtxControl);
    m_acquisition.stop();
    if (!isOpen()) {
        return GC_ERR_INVALID_HANDLE;
    }
    m_waiters.close();
    m_queue.close();
    m_hooks.dropAll();
    return GC_ERR_SUCCESS;
}

int CStream::start(uint64_t nFrames) {
    if (nFrames == 0) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    const std::lock_guard<std::mutex> control(m_mtxControl);
    return isOpen() ? m_acquisition.start(nFrames) : GC_ERR_INVALID_HANDLE;
}

int CStream::stop() {
    if (isProducerThread()) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    const std::lock_guard<std::mutex> control(m_mtxControl);
    if (!isOpen()) {
        return GC_ERR_INVALID_HANDLE;
    }
    m_acquisition.stop();
    return GC_ERR_SUCCESS;
}

int CStream::info(int iInfoCmd, const InfoSlot& rSlot) const {
    if (!isOpen()) {
        return GC_ERR_INVALID_HANDLE;
    }
    switch (iInfoCmd) {
        case STREAM_INFO_ID:
            return writeText(rSlot, m_strId.c_str());
        case STREAM_INFO_NUM_DELIVERED:
            return writeUint64(rSlot, m_queue.counts().nDelivered);
        case STREAM_INFO_NUM_UNDERRUN:
            return writeUint64(rSlot, m_queue.counts().nUnderrun);
        case STREAM_INFO_NUM_ANNOUNCED:
            return writeSize(rSlot, m_queue.counts().nAnnounced);
        case STREAM_INFO_NUM_QUEUED:
            return writeSize(rSlot, m_queue.counts().nQueued);
        case STREAM_INFO_NUM_AWAIT_DELIVERY:
            return writeSize(rSlot, m_queue.counts().nFilled);
        case STREAM_INFO_NUM_STARTED:
            return writeSize(rSlot, m_queue.counts().nStarted);
        case STREAM_INFO_PAYLOAD_SIZE:
            return writeSize(rSlot, m_pCamera->payloadSize());
        case STREAM_INFO_STANDIN_NUM_INCOMPLETE:
            return writeUint64(rSlot, m_queue.counts().nIncomplete);
        case STREAM_INFO_IS_GRABBING:
            return writeBool(rSlot, m_acquisition.isRunning() && m_waiters.failure() == 0);
        default:
            return GC_ERR_NOT_IMPLEMENTED;
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
