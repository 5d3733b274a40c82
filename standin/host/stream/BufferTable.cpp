// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The table of buffers and the queries on them.

#include "standin/host/stream/BufferTable.h"

#include <algorithm>
#include <utility>

#include "standin/host/stream/CallFrame.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

int queryImage(const FrameInfo& rInfo, int32_t iInfoCmd, const InfoSlot& rSlot) {
    if (!rInfo.bImage) {
        return GC_ERR_NOT_AVAILABLE;
    }
    switch (iInfoCmd) {
        case BUFFER_INFO_WIDTH:
            return writeSize(rSlot, rInfo.nWidth);
        case BUFFER_INFO_HEIGHT:
            return writeSize(rSlot, rInfo.nHeight);
        case BUFFER_INFO_XOFFSET:
            return writeSize(rSlot, rInfo.geometry.x.nOffset);
        case BUFFER_INFO_YOFFSET:
            return writeSize(rSlot, rInfo.geometry.y.nOffset);
        case BUFFER_INFO_XPADDING:
            return writeSize(rSlot, 0);
        case BUFFER_INFO_IMAGEOFFSET:
            return writeSize(rSlot, rInfo.nImageOffset);
        case BUFFER_INFO_PIXELFORMAT:
            return writeUint64(rSlot, rInfo.pFormat->uPfnc);
        default:
            return GC_ERR_NOT_IMPLEMENTED;
    }
}

int queryBuffer(const Buffer& rBuffer, const FrameInfo& rInfo, int32_t iInfoCmd, const InfoSlot& rSlot) {
    switch (iInfoCmd) {
        case BUFFER_INFO_BASE:
            return writeInfo(rSlot, INFO_DATATYPE_PTR, &rBuffer.pBase, sizeof rBuffer.pBase);
        case BUFFER_INFO_SIZE:
            return writeSize(rSlot, rBuffer.nBytes);
        case BUFFER_INFO_IS_QUEUED: {
            const eBufferState eState = rBuffer.eState.load(std::memory_order_relaxed);
            return writeBool(rSlot, eState == eBufferQueued || eState == eBufferFilling || eState == eBufferFilled);
        }
        case BUFFER_INFO_TIMESTAMP:
            return writeUint64(rSlot, rInfo.iTimestamp);
        case BUFFER_INFO_IS_INCOMPLETE:
            return writeBool(rSlot, rInfo.bIncomplete);
        case BUFFER_INFO_SIZE_FILLED:
            return writeSize(rSlot, rInfo.nFilled);
        case BUFFER_INFO_FRAMEID:
            return writeUint64(rSlot, rInfo.iFrameId);
        case BUFFER_INFO_IMAGEPRESENT:
            return writeBool(rSlot, rInfo.bImage);
        default:
            return queryImage(rInfo, iInfoCmd, rSlot);
    }
}

// Why the image of the frame is not corrected.
std::string reasonOf(const CCorrectionState& rState, const NamedFrameInfo& rInfo) {
    const char* const pReason = rState.reason();
    if (pReason != nullptr) {
        return std::string(rState.code() == eCorrected ? "corrected once, but not by all: " : "") + pReason;
    }
    if (rState.code() == eCorrected) {
        return "";
    }
    if (!rInfo.strTrouble.empty()) {
        return rInfo.strTrouble;
    }
    return !rInfo.bImage       ? "the frame has no image"
           : rInfo.bIncomplete ? "the frame is incomplete"
                               : "no image processor got the frame";
}

const void* imageOf(const Buffer& rBuffer, const FrameInfo& rInfo) {
    return static_cast<const std::byte*>(rBuffer.pBase) + rInfo.nImageOffset;
}

// The call of this thread that fetched the image; null when there is none.
const CCallFrame* frameWith(const void* pImage) {
    const CCallFrame* pFrame = CCallFrame::innermost();
    while (pFrame != nullptr && !(pFrame->hasFetched() && imageOf(pFrame->fetched(), pFrame->info()) == pImage)) {
        pFrame = pFrame->outer();
    }
    return pFrame;
}

// What is not in the copy that a fetch has of its frame.
bool isOwnInfo(int32_t iInfoCmd) {
    return iInfoCmd >= BUFFER_INFO_STANDIN_FRAME_NAME && iInfoCmd <= BUFFER_INFO_STANDIN_CORRECTION_REASON;
}

int queryOwn(const Buffer& rBuffer, int32_t iInfoCmd, const InfoSlot& rSlot) {
    switch (iInfoCmd) {
        case BUFFER_INFO_STANDIN_FRAME_NAME:
            return writeText(rSlot, rBuffer.info.strName.c_str());
        case BUFFER_INFO_STANDIN_CORRECTION:
            return writeUint64(rSlot, rBuffer.correction.code());
        default:
            return writeText(rSlot, reasonOf(rBuffer.correction, rBuffer.info).c_str());
    }
}

}  // namespace

CBufferTable& CBufferTable::instance() {
    static CBufferTable* const pTable = new CBufferTable;
    return *pTable;
}

void CBufferTable::add(const std::shared_ptr<Buffer>& pBuffer) {
    std::lock_guard<std::mutex> lock(m_mtx);
    // Steps of 16 keep the handles apart from small integers and look like addresses in a log.
    m_iNext += 16;
    const BufferHandle hBuffer = reinterpret_cast<BufferHandle>(m_iNext);
    const auto itMemory = m_mapMemory.emplace(pBuffer->pBase, pBuffer.get());
    try {
        m_mapBuffers.emplace(hBuffer, pBuffer);
    } catch (...) {
        m_mapMemory.erase(itMemory);
        throw;
    }
    pBuffer->hBuffer = hBuffer;
}

void CBufferTable::remove(BufferHandle hBuffer) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto itBuffer = m_mapBuffers.find(hBuffer);
    if (itBuffer == m_mapBuffers.end()) {
        return;
    }
    const Buffer* const pBuffer = itBuffer->second.get();
    const auto range = m_mapMemory.equal_range(pBuffer->pBase);
    m_mapMemory.erase(
        std::find_if(range.first, range.second, [&](const auto& rEntry) { return rEntry.second == pBuffer; }));
    m_mapBuffers.erase(itBuffer);
}

bool CBufferTable::isAlive(BufferHandle hBuffer) {
    return CCallFrame::findFetched(hBuffer) != nullptr || find(hBuffer) != nullptr;
}

std::shared_ptr<Buffer> CBufferTable::find(BufferHandle hBuffer) {
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_mapBuffers.find(hBuffer);
    return it == m_mapBuffers.end() ? nullptr : it->second;
}

void CBufferTable::setInfo(Buffer& rBuffer, NamedFrameInfo& rInfo) {
    std::lock_guard<std::mutex> lock(m_mtx);
    std::swap(rBuffer.info, rInfo);
}

int CBufferTable::query(BufferHandle hBuffer, int32_t iInfoCmd, const InfoSlot& rSlot) {
    const bool bOwn = isOwnInfo(iInfoCmd);
    if (const CCallFrame* pFrame = bOwn ? nullptr : CCallFrame::findFetched(hBuffer)) {
        return queryBuffer(pFrame->fetched(), pFrame->info(), iInfoCmd, rSlot);
    }
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_mapBuffers.find(hBuffer);
    if (it == m_mapBuffers.end()) {
        return GC_ERR_INVALID_HANDLE;
    }
    const Buffer& rBuffer = *it->second;
    return bOwn ? queryOwn(rBuffer, iInfoCmd, rSlot) : queryBuffer(rBuffer, rBuffer.info, iInfoCmd, rSlot);
}

template <class F>
void CBufferTable::forEachWith(const void* pImage, F fnTake) {
    // The image lies in the memory that begins next before it.
    const void* pBase = nullptr;
    for (auto itMemory = m_mapMemory.upper_bound(pImage); itMemory != m_mapMemory.begin();) {
        Buffer& rBuffer = *(--itMemory)->second;
        if (pBase != nullptr && rBuffer.pBase != pBase) {
            return;
        }
        pBase = rBuffer.pBase;
        // What is queued is the camera's.
        if (imageOf(rBuffer, rBuffer.info) == pImage && rBuffer.eState.load(std::memory_order_relaxed) == eBufferIdle) {
            fnTake(rBuffer);
        }
    }
}

bool CBufferTable::geometryOf(const void* pImage, ImageGeometry& rGeometry) {
    if (const CCallFrame* pFrame = frameWith(pImage)) {
        rGeometry = pFrame->info().geometry;
        return pFrame->info().bImage;
    }
    std::lock_guard<std::mutex> lock(m_mtx);
    unsigned nFound = 0;
    forEachWith(pImage, [&](const Buffer& rBuffer) {
        rGeometry = rBuffer.info.geometry;
        nFound += rBuffer.info.bImage ? 1 : 2;
    });
    return nFound == 1;
}

void CBufferTable::noteCorrection(const void* pImage, eCorrection eCode, const char* pReason) noexcept {
    if (const CCallFrame* pFrame = frameWith(pImage)) {
        pFrame->fetched().correction.add(eCode, pReason);
        return;
    }
    std::lock_guard<std::mutex> lock(m_mtx);
    forEachWith(pImage, [&](Buffer& rBuffer) { rBuffer.correction.add(eCode, pReason); });
}

const PixelFormat* CBufferTable::imageFormat(BufferHandle hBuffer, bool& rAlive) {
    if (const CCallFrame* pFrame = CCallFrame::findFetched(hBuffer)) {
        rAlive = true;
        return pFrame->info().bImage ? pFrame->info().pFormat : nullptr;
    }
    std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_mapBuffers.find(hBuffer);
    rAlive = it != m_mapBuffers.end();
    return rAlive && it->second->info.bImage ? it->second->info.pFormat : nullptr;
}

int hostBufferInfo(int32_t iInfoCmd, int32_t* piType, void* pValue, uint64_t* piSize, void* pBuffer) {
    return CBufferTable::instance().query(pBuffer, iInfoCmd, {piType, pValue, piSize});
}

int hostBufferPixelFormat(std::string& rPixelFormat, void* pBuffer) {
    bool bAlive = false;
    const PixelFormat* pFormat = CBufferTable::instance().imageFormat(pBuffer, bAlive);
    if (pFormat == nullptr) {
        return bAlive ? GC_ERR_NOT_AVAILABLE : GC_ERR_INVALID_HANDLE;
    }
    rPixelFormat = pFormat->pName;
    return GC_ERR_SUCCESS;
}

}  // namespace StandIn
}  // namespace XAPEL2
