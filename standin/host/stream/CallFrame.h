// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host remembers of an application's stream call on the thread that makes it.

#pragma once

#include <cstdint>
#include <memory>

#include "standin/host/stream/BufferTable.h"

namespace XAPEL2 {

namespace StandIn {

/// Lives for the length of an application call, the hook included. Calls of a hook into the host nest.
class CCallFrame {
public:
    /// @param[in] uCancelStamp  cancels before the call; a call nested in another one of the same stream
    ///                          keeps the outer one's stamp.
    explicit CCallFrame(const DataStream* pStream, uint64_t uCancelStamp = 0);
    ~CCallFrame();
    CCallFrame(const CCallFrame&) = delete;
    CCallFrame& operator=(const CCallFrame&) = delete;

    uint64_t cancelStamp() const { return m_uCancelStamp; }
    bool ownCancelRan() const { return m_bOwnCancelRan; }
    /// Keeps the memory of a fetched buffer until this call returns, even when the stream is closed meanwhile: a hook
    /// may be working on it. What the buffer holds is copied: the caller keeps the camera from filling it meanwhile.
    void keep(std::shared_ptr<Buffer> pBuffer) {
        m_info = pBuffer->info;
        m_pBuffer = std::move(pBuffer);
    }
    /// False until it has fetched.
    bool hasFetched() const { return m_pBuffer != nullptr; }
    /// For a frame that has fetched.
    Buffer& fetched() const { return *m_pBuffer; }
    const FrameInfo& info() const { return m_info; }

    /// The innermost frame of this thread for the stream, null when there is none.
    static CCallFrame* find(const DataStream* pStream);
    /// The innermost frame of this thread, null when there is none.
    static CCallFrame* innermost();
    const CCallFrame* outer() const { return m_pOuter; }
    /// The frame of this thread that fetched this buffer, null when there is none or the handle is dead.
    static const CCallFrame* findFetched(BufferHandle hBuffer);
    /// Notes in all frames of this thread for the stream that the host's own cancel was called.
    static void noteOwnCancel(const DataStream* pStream);

private:
    const DataStream* const m_pStream;
    CCallFrame* const m_pOuter;
    uint64_t m_uCancelStamp;
    bool m_bOwnCancelRan = false;
    std::shared_ptr<Buffer> m_pBuffer;
    FrameInfo m_info;
};

}  // namespace StandIn
}  // namespace XAPEL2
