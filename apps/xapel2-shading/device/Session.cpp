// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera that streams through the shading library: device, stream and buffers of one run.

#include "device/Session.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace XAPEL2 {
namespace App {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned BUFFER_COUNT = 4;
constexpr std::chrono::milliseconds FRAME_DEADLINE{10000};

void check(int iResult, const char* pStep) {
    if (iResult != GC_ERR_SUCCESS) {
        throw std::runtime_error(std::string(pStep) + " failed with GenTL code " + std::to_string(iResult));
    }
}

const StandIn::PixelFormat& formatOf(uint64_t uPfnc) {
    for (const StandIn::PixelFormat& rFormat : StandIn::pixelFormats()) {
        if (rFormat.uPfnc == uPfnc) {
            return rFormat;
        }
    }
    throw std::runtime_error("the camera delivers a pixel format that is not known, PFNC value " +
                             std::to_string(uPfnc));
}

}  // namespace

CSession::CSession(const std::string& strDevice)
    : m_pDevice(StandIn::openDevice(strDevice)), m_pStream(StandIn::firstDataStream(m_pDevice)) {
    try {
        check(StandIn::openDataStream(m_pDevice, m_pStream), "opening the data stream");
        for (unsigned i = 0; i < BUFFER_COUNT; ++i) {
            StandIn::BufferHandle hBuffer = nullptr;
            check(StandIn::allocAndAnnounceBuffer(m_pStream, StandIn::payloadSize(m_pStream), &hBuffer),
                  "announcing a buffer");
            m_ahBuffers.push_back(hBuffer);
        }
        m_pShading = std::make_unique<Ext::Sc::Shading>(m_pDevice);
    } catch (...) {
        StandIn::closeDevice(m_pDevice);
        throw;
    }
}

CSession::~CSession() {
    // The library has its hooks in the stream and goes first.
    m_pShading.reset();
    StandIn::closeDataStream(m_pDevice, m_pStream);
    StandIn::closeDevice(m_pDevice);
}

Node& CSession::node(const char* pName) const {
    return *StandIn::remoteNodes(m_pDevice)->GetNode(pName);
}

std::string CSession::pixelFormat() const {
    return node("PixelFormat").GetString().get();
}

uint64_t CSession::width() const {
    return static_cast<uint64_t>(node("Width").GetInt());
}

uint64_t CSession::height() const {
    return static_cast<uint64_t>(node("Height").GetInt());
}

void CSession::selectScene(const char* pScene) {
    node("StandInScene").SetValue(pScene);
}

uint64_t CSession::frameCount() const {
    return static_cast<uint64_t>(node("StandInFrameCount").GetInt());
}

void CSession::start(uint64_t nFrames) {
    for (StandIn::BufferHandle hBuffer : m_ahBuffers) {
        check(StandIn::queueBuffer(m_pStream, hBuffer), "queueing a buffer");
    }
    check(StandIn::startAcquisition(m_pStream, nFrames), "starting the camera");
}

void CSession::stop() {
    check(StandIn::stopAcquisition(m_pStream), "stopping the camera");
    check(StandIn::flushBuffers(m_pStream), "taking the buffers back");
}

void CSession::streamFrames(uint64_t nFrames, const std::function<void(uint64_t)>& fnFetched) {
    node("StandInFrame").SetInt(0);
    start(nFrames);
    for (uint64_t i = 1; i <= nFrames; ++i) {
        const StandIn::BufferHandle hBuffer = fetch();
        check(StandIn::queueBuffer(m_pStream, hBuffer), "queueing a buffer");
        fnFetched(i);
    }
    stop();
}

Frame CSession::fetchFrame(uint64_t iFrame) {
    node("StandInFrame").SetInt(static_cast<long long>(iFrame));
    start(1);
    waitForFrame();
    const Clock::time_point Begin = Clock::now();
    const StandIn::BufferHandle hBuffer = fetch();
    const std::chrono::duration<double, std::milli> Taken = Clock::now() - Begin;
    Frame Result = copyFrame(hBuffer);
    Result.fFetchMs = Taken.count();
    stop();
    return Result;
}

// The time that the camera takes for a frame is none of the correction's: the clock starts when the frame is there.
void CSession::waitForFrame() {
    const Clock::time_point End = Clock::now() + FRAME_DEADLINE;
    while (Clock::now() < End) {
        std::size_t nWaiting = 0;
        unsigned long long nSize = sizeof nWaiting;
        int iType = 0;
        check(StandIn::getStreamInfo(m_pStream, STREAM_INFO_NUM_AWAIT_DELIVERY, &iType, &nWaiting, &nSize),
              "asking for the number of frames that wait");
        if (nWaiting > 0) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    throw std::runtime_error("the camera delivers no frame");
}

StandIn::BufferHandle CSession::fetch() {
    StandIn::BufferHandle hBuffer = nullptr;
    int iResult = GC_ERR_ABORT;
    // A fetch that waits while correction is switched is cancelled and loses no frame.
    while (iResult == GC_ERR_ABORT) {
        iResult = StandIn::getFilledBuffer(m_pStream, &hBuffer, FRAME_DEADLINE.count());
    }
    check(iResult, "fetching a frame");
    if (bufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE)) {
        throw std::runtime_error("frame " + frameName(hBuffer) + " came incomplete");
    }
    return hBuffer;
}

template <typename T>
T CSession::bufferInfo(StandIn::BufferHandle hBuffer, int iInfoCmd) const {
    T Value{};
    unsigned long long nSize = sizeof Value;
    int iType = 0;
    check(StandIn::getBufferInfo(m_pStream, hBuffer, iInfoCmd, &iType, &Value, &nSize),
          "asking for a property of a buffer");
    return Value;
}

std::string CSession::frameName(StandIn::BufferHandle hBuffer) const {
    char acName[1024] = {};
    unsigned long long nSize = sizeof acName - 1;
    int iType = 0;
    check(StandIn::getBufferInfo(m_pStream, hBuffer, StandIn::BUFFER_INFO_STANDIN_FRAME_NAME, &iType, acName, &nSize),
          "asking for the name of a frame");
    return acName;
}

Frame CSession::copyFrame(StandIn::BufferHandle hBuffer) const {
    Frame Result;
    Result.strName = frameName(hBuffer);
    Result.pFormat = &formatOf(bufferInfo<uint64_t>(hBuffer, BUFFER_INFO_PIXELFORMAT));
    Result.nWidth = bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_WIDTH);
    Result.nHeight = bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_HEIGHT);
    Result.aSamples.resize(Result.nWidth * Result.nHeight * Result.pFormat->nChannels);
    const auto* pBase = static_cast<const unsigned char*>(bufferInfo<void*>(hBuffer, BUFFER_INFO_BASE));
    const std::size_t nOffset = bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_IMAGEOFFSET);
    StandIn::unpackSamples(*Result.pFormat, pBase + nOffset, 0, Result.aSamples.size(), Result.aSamples.data());
    return Result;
}

}  // namespace App
}  // namespace XAPEL2
