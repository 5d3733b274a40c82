// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host remembers of an application's stream call on the thread that makes it.

#pragma once

#include <cstdint>
#include <memory>

namespace XAPEL2 {

class DataStream;

namespace StandIn {

struct Buffer;

/// Lives for the length of an application call, the hook included. Calls of a hook into the host nest.
class CCallFrame {
public:
    /// @param[in] uCancelStamp  cancels of the stream before the call; a call nested in another one of the same stream
    ///                          keeps the outer one's stamp.
    explicit CCallFrame(const DataStream* pStream, uint64_t uCancelStamp = 0);
    ~CCallFrame();
    CCallFrame(const CCallFrame&) = delete;
    CCallFrame& operator=(const CCallFrame&) = delete;

    uint64_t cancelStamp() const { return m_uCancelStamp; }
    bool ownCancelRan() const { return m_bOwnCancelRan; }
    /// Keeps the memory of a fetched buffer until this call returns, even when the stream is closed meanwhile: a hook
    /// may be working on it.
    void keep(std::shared_ptr<Buffer> pBuffer) { m_pBuffer = std::move(pBuffer); }

    /// The innermost frame of this thread for the stream, null when there is none.
    static CCallFrame* find(const DataStream* pStream);
    /// The innermost frame of this thread, null when there is none.
    static CCallFrame* innermost();
    /// Notes in all frames of this thread for the stream that the host's own cancel was called.
    static void noteOwnCancel(const DataStream* pStream);

private:
    const DataStream* const m_pStream;
    CCallFrame* const m_pOuter;
    uint64_t m_uCancelStamp;
    bool m_bOwnCancelRan = false;
    std::shared_ptr<Buffer> m_pBuffer;
};

}  // namespace StandIn
}  // namespace XAPEL2
