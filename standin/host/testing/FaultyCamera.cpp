// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lets the other camera write and spoils what it wrote.

#include "standin/host/testing/FaultyCamera.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "standin/host/testing/Switches.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Between the host's queue and the stream of the other camera. A frame that is not to reach its buffer whole is written
// to memory of its own first.
class CFaultyStream : public ICameraStream, private ICameraBuffers {
public:
    CFaultyStream(CFaultyCamera& rCamera, ICameraBuffers& rBuffers, std::size_t nOffset)
        : m_rCamera(rCamera), m_rBuffers(rBuffers), m_nOffset(nOffset) {}
    ~CFaultyStream() override {
        m_pStream.reset();
        m_rCamera.streamEnds();
    }

    // False when the camera has a stream already.
    bool open(ICamera& rCamera) {
        m_pStream = rCamera.makeStream(*this);
        return m_pStream != nullptr;
    }

    bool hand(const CameraBuffer& rBuffer) override { return m_pStream->hand(behindOffset(rBuffer)); }
    void start() override { m_pStream->start(); }
    void wake() override { m_pStream->wake(); }

    bool next(CameraFrame& rFrame) override {
        m_taken = CameraBuffer{};
        if (!m_pStream->next(rFrame)) {
            return false;
        }
        rFrame.info.nImageOffset += m_nOffset;
        if (rFrame.strFailure.empty()) {
            try {
                finish(rFrame.info);
            } catch (const std::exception& rError) {
                rFrame.strFailure = rError.what();
                rFrame.info.bIncomplete = true;
                rFrame.info.nFilled = 0;
            }
        }
        ++m_nFrames;
        return true;
    }

private:
    CameraBuffer behindOffset(const CameraBuffer& r) const {
        const std::size_t nOffset = std::min(m_nOffset, r.nBytes);
        return {static_cast<std::byte*>(r.pBase) + nOffset, r.nBytes - nOffset, r.pToken};
    }

    bool take(CameraBuffer& rBuffer) override {
        if (!m_rBuffers.take(m_taken)) {
            return false;
        }
        const auto pFault = switches().fnBufferFault.get();
        m_eFault = pFault == nullptr ? Control::eGood : (*pFault)(m_nFrames);
        const std::size_t nPayload = m_rCamera.payloadSize();
        m_bAside = m_eFault != Control::eGood || m_taken.nBytes < nPayload;
        if (m_bAside) {
            m_vecAside.assign(nPayload, std::byte{0});
        }
        rBuffer = behindOffset(m_bAside ? CameraBuffer{m_vecAside.data(), nPayload, m_taken.pToken} : m_taken);
        return true;
    }

    void missed(uint64_t nFrames) override { m_rBuffers.missed(nFrames); }

    // Only buffers that were taken: what becomes of a frame that was written ahead is its camera's affair.
    void finish(NamedFrameInfo& rInfo) {
        if (m_taken.pBase == nullptr) {
            return;
        }
        if (m_eFault == Control::eNoImage) {
            rInfo.bImage = false;
            rInfo.nFilled = 0;
            return;
        }
        auto* const pBase = m_bAside ? m_vecAside.data() : static_cast<std::byte*>(m_taken.pBase);
        if (const auto pContent = switches().fnFrameContent.get()) {
            (*pContent)(m_nFrames, pBase + m_nOffset, rInfo.nFilled);
        }
        rInfo.nFilled += m_nOffset;
        if (m_bAside) {
            rInfo.bIncomplete = true;
            rInfo.nFilled =
                std::min(m_taken.nBytes, m_eFault == Control::eIncomplete ? rInfo.nFilled / 2 : rInfo.nFilled);
            std::memcpy(m_taken.pBase, pBase, rInfo.nFilled);
        }
    }

    CFaultyCamera& m_rCamera;
    ICameraBuffers& m_rBuffers;
    const std::size_t m_nOffset;
    std::unique_ptr<ICameraStream> m_pStream;

    // Of the thread that asks for frames.
    uint64_t m_nFrames = 0;
    CameraBuffer m_taken;  // for the frame to come
    Control::eBufferFault m_eFault = Control::eGood;
    bool m_bAside = false;
    std::vector<std::byte> m_vecAside;
};

}  // namespace

std::size_t CFaultyCamera::payloadSize() const {
    return m_pCamera->payloadSize() + (m_bStreaming ? m_nOffset : switches().nImageOffset).load();
}

std::unique_ptr<ICameraStream> CFaultyCamera::makeStream(ICameraBuffers& rBuffers) {
    if (m_bStreaming.exchange(true)) {
        return nullptr;
    }
    std::unique_ptr<CFaultyStream> pStream;
    try {
        m_nOffset = switches().nImageOffset.load();
        pStream = std::make_unique<CFaultyStream>(*this, rBuffers, m_nOffset);
    } catch (...) {
        streamEnds();
        throw;
    }
    return pStream->open(*m_pCamera) ? std::move(pStream) : nullptr;
}

}  // namespace StandIn
}  // namespace XAPEL2
