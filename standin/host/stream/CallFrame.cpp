// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The stack of application calls of a thread.

#include "standin/host/stream/CallFrame.h"

namespace XAPEL2 {
namespace StandIn {

namespace {
// Initial-exec: several looks for each fetch, without a call of the loader for each.
thread_local CCallFrame* t_pInnermost __attribute__((tls_model("initial-exec"))) = nullptr;
}  // namespace

CCallFrame* CCallFrame::find(const DataStream* pStream) {
    CCallFrame* pFrame = t_pInnermost;
    while (pFrame != nullptr && pFrame->m_pStream != pStream) {
        pFrame = pFrame->m_pOuter;
    }
    return pFrame;
}

CCallFrame* CCallFrame::innermost() {
    return t_pInnermost;
}

const CCallFrame* CCallFrame::findFetched(BufferHandle hBuffer) {
    for (const CCallFrame* pFrame = t_pInnermost; pFrame != nullptr; pFrame = pFrame->m_pOuter) {
        const Buffer* pBuffer = pFrame->m_pBuffer.get();
        if (pBuffer != nullptr && pBuffer->hBuffer == hBuffer) {
            return pBuffer->eState.load(std::memory_order_relaxed) == eBufferRevoked ? nullptr : pFrame;
        }
    }
    return nullptr;
}

CCallFrame::CCallFrame(const DataStream* pStream, uint64_t uCancelStamp)
    : m_pStream(pStream), m_pOuter(t_pInnermost), m_uCancelStamp(uCancelStamp) {
    if (const CCallFrame* pSame = find(pStream)) {
        m_uCancelStamp = pSame->m_uCancelStamp;
    }
    t_pInnermost = this;
}

CCallFrame::~CCallFrame() {
    t_pInnermost = m_pOuter;
}

void CCallFrame::noteOwnCancel(const DataStream* pStream) {
    for (CCallFrame* pFrame = t_pInnermost; pFrame != nullptr; pFrame = pFrame->m_pOuter) {
        if (pFrame->m_pStream == pStream) {
            pFrame->m_bOwnCancelRan = true;
        }
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
