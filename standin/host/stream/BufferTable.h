// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The announced buffers of the process, found by their handles.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "standin/cameras/interface/FrameInfo.h"
#include "standin/host/stream/InfoValue.h"
#include "xapel2_standin/Answers.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace StandIn {

enum eBufferState { eBufferIdle, eBufferQueued, eBufferHeld, eBufferFilling, eBufferFilled, eBufferRevoked };

/// What image processors made of the image in a buffer. Written by the thread that the image belongs to.
class CCorrectionState {
public:
    void reset() {
        m_eCode.store(eNotHanded, std::memory_order_relaxed);
        m_pReason.store(nullptr, std::memory_order_relaxed);
    }
    /// @param[in] pReason  why it is not corrected; never freed.
    void add(eCorrection eCode, const char* pReason) {
        if (eCode != eCorrected) {
            m_pReason.store(pReason, std::memory_order_relaxed);
        }
        if (m_eCode.load(std::memory_order_relaxed) != eCorrected) {
            m_eCode.store(eCode, std::memory_order_relaxed);
        }
    }
    eCorrection code() const { return m_eCode.load(std::memory_order_relaxed); }
    /// Null when there is none.
    const char* reason() const { return m_pReason.load(std::memory_order_relaxed); }

private:
    // Atomic, because a buffer may be asked about while it is processed.
    std::atomic<eCorrection> m_eCode{eNotHanded};
    std::atomic<const char*> m_pReason{nullptr};
};

struct Buffer {
    using List = std::list<std::shared_ptr<Buffer>>;

    BufferHandle hBuffer = nullptr;
    const DataStream* pStream = nullptr;
    std::unique_ptr<std::byte[]> pOwned;  // null for memory of the application
    void* pBase = nullptr;
    std::size_t nBytes = 0;
    /// Changed under the lock of its queue only.
    std::atomic<eBufferState> eState{eBufferIdle};
    List::iterator itPlace;  // guarded by the same lock
    /// Written under the table's lock, and only while the camera is filling the buffer.
    NamedFrameInfo info;
    CCorrectionState correction;
};

/// One lock, held for the copy of one value. Inside a fetch, questions about the buffer that it fetched take no lock:
/// they are answered from what the fetch found in it, for as long as the handle is alive. Handles are numbers that are
/// used once, so that a dead one is refused.
class CBufferTable {
public:
    static CBufferTable& instance();

    /// Gives the buffer its handle.
    void add(const std::shared_ptr<Buffer>& pBuffer);
    void remove(BufferHandle hBuffer);
    /// False for a dead handle.
    bool isAlive(BufferHandle hBuffer);
    /// Null when the handle is not alive.
    std::shared_ptr<Buffer> find(BufferHandle hBuffer);
    void setInfo(Buffer& rBuffer, NamedFrameInfo& rInfo);

    /// Answers an information query; GC_ERR_INVALID_HANDLE for a dead handle.
    int query(BufferHandle hBuffer, int32_t iInfoCmd, const InfoSlot& rSlot);
    /// Null when the buffer is dead or holds no image.
    const PixelFormat* imageFormat(BufferHandle hBuffer, bool& rAlive);

    /// Where the image at this address lay on its sensor when the camera wrote it: of the buffer that a fetch of this
    /// thread is about, else of one that the application has. False where no buffer holds it, or several do.
    bool geometryOf(const void* pImage, ImageGeometry& rGeometry);

    /// Keeps what a processor made of the image at this address with the buffer that holds it: the one that a fetch of
    /// this thread is about, else those that the application has. An address in no buffer is none of the host's.
    void noteCorrection(const void* pImage, eCorrection eCode, const char* pReason) noexcept;

private:
    CBufferTable() = default;

    /// Calls fnTake(buffer) for those that hold the image at this address and are the application's. The caller holds
    /// the lock.
    template <class F>
    void forEachWith(const void* pImage, F fnTake);

    std::mutex m_mtx;  // guards all members and the info of all buffers
    std::unordered_map<BufferHandle, std::shared_ptr<Buffer>> m_mapBuffers;
    std::multimap<const void*, Buffer*> m_mapMemory;  // the same by their base; memory may be announced twice
    std::uintptr_t m_iNext = 0;
};

// As an extension library calls them.

int hostBufferInfo(int32_t iInfoCmd, int32_t* piType, void* pValue, uint64_t* piSize, void* pBuffer);
int hostBufferPixelFormat(std::string& rPixelFormat, void* pBuffer);

/// Hands out the host's function for this buffer.
template <class tFunction>
int yieldFunction(void* pBuffer, tFunction pfnHost, tFunction* ppfn) {
    if (ppfn == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (!CBufferTable::instance().isAlive(pBuffer)) {
        return GC_ERR_INVALID_HANDLE;
    }
    *ppfn = pfnHost;
    return GC_ERR_SUCCESS;
}

}  // namespace StandIn
}  // namespace XAPEL2
