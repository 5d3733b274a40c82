// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A stream whose frames of one pixel wait for their fetch.

#pragma once

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "xapel2_standin/Host.h"

namespace XapelBench {

/// One-pixel frames are all produced before the first one is fetched: the camera's thread is over then, so neither its
/// speed nor waking up counts, and what is timed is the fetch alone.
class CTinyStream {
public:
    static constexpr uint8_t PIXEL = 100;  // content of every frame

    explicit CTinyStream(std::size_t nFrames) : m_vecBuffers(nFrames), m_vecMemory(nFrames * 64) {
        using namespace XAPEL2::StandIn;
        require(openDataStream(m_pDevice, m_pStream), "open the stream");
        for (std::size_t i = 0; i < nFrames; ++i) {
            require(announceBuffer(m_pStream, &m_vecMemory[i * 64], 64, &m_vecBuffers[i]), "announce a buffer");
        }
    }
    ~CTinyStream() { XAPEL2::StandIn::closeDevice(m_pDevice); }
    CTinyStream(const CTinyStream&) = delete;
    CTinyStream& operator=(const CTinyStream&) = delete;

    XAPEL2::Device* device() const { return m_pDevice; }
    XAPEL2::DataStream* stream() const { return m_pStream; }

    /// Has the camera fill every buffer.
    void fill() {
        using namespace XAPEL2::StandIn;
        for (const BufferHandle hBuffer : m_vecBuffers) {
            require(queueBuffer(m_pStream, hBuffer), "queue a buffer");
        }
        require(startAcquisition(m_pStream, m_vecBuffers.size()), "start the camera");
        const auto tDeadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (waiting() != m_vecBuffers.size()) {
            if (std::chrono::steady_clock::now() > tDeadline) {
                throw std::runtime_error("the camera does not fill the buffers");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        require(stopAcquisition(m_pStream), "end the camera's thread");
        for (std::size_t i = 0; i < m_vecMemory.size(); i += 64) {
            m_vecMemory[i] = PIXEL;
        }
    }

    /// Fetches frames that wait. @throws std::runtime_error  a fetch failed.
    void fetch(uint64_t nFrames) {
        XAPEL2::StandIn::BufferHandle hBuffer = nullptr;
        int iResult = 0;
        for (uint64_t i = 0; i < nFrames; ++i) {
            iResult |= XAPEL2::StandIn::getFilledBuffer(m_pStream, &hBuffer, 0);
        }
        require(iResult, "fetch a frame");
    }

    /// @throws std::runtime_error  a pixel of the frames has another value.
    void requirePixels(uint8_t uExpected) const {
        for (std::size_t i = 0; i < m_vecMemory.size(); i += 64) {
            if (m_vecMemory[i] != uExpected) {
                throw std::runtime_error("wrong result: a pixel is " + std::to_string(m_vecMemory[i]) + ", not " +
                                         std::to_string(uExpected));
            }
        }
    }

private:
    static void require(int iResult, const char* pWhat) {
        if (iResult != 0) {
            throw std::runtime_error(std::string("cannot ") + pWhat + ": " + std::to_string(iResult));
        }
    }
    std::size_t waiting() const {
        int iType = 0;
        uint64_t nWaiting = 0;
        unsigned long long nSize = sizeof nWaiting;
        XAPEL2::StandIn::getStreamInfo(m_pStream, STREAM_INFO_NUM_AWAIT_DELIVERY, &iType, &nWaiting, &nSize);
        return nWaiting;
    }

    XAPEL2::Device* const m_pDevice = XAPEL2::StandIn::openDevice("sim:7?width=1&height=1&format=Mono8");
    XAPEL2::DataStream* const m_pStream = XAPEL2::StandIn::firstDataStream(m_pDevice);
    std::vector<XAPEL2::StandIn::BufferHandle> m_vecBuffers;
    std::vector<uint8_t> m_vecMemory;
};

}  // namespace XapelBench
