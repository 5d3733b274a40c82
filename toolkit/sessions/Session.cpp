// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera that streams through the shading library: device, stream and buffers of one run.

#include "toolkit/sessions/Session.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "standin/pixels/LargeMemory.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Times.h"
#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

// A camera that waits for its buffers does with a few. One that does not sends on while frames are written or judged.
constexpr std::size_t BUFFERS_LEAST = 4, BUFFERS_MOST = 64, BUFFER_BYTES = 256U << 20;
// Incomplete frames in a row from a camera that goes on sending, after which more are not worth waiting for.
constexpr unsigned INCOMPLETE_MAX = 50;
constexpr std::chrono::microseconds POLL_SHORTEST{50}, POLL_LONGEST{1000};
constexpr double WATCH_MS = 50.0;

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

std::string underrunText(uint64_t nUnderruns) {
    return counted(nUnderruns, "frame") + " of the camera found no buffer free: this machine is too slow for its rate";
}

CSession::CSession(const std::string& strDevice, double dTimeoutS)
    : CSession(
          strDevice, [&] { return StandIn::openDevice(strDevice); }, dTimeoutS) {}

CSession::CSession(const std::string& strName, const Opener& fnOpen, double dTimeoutS, std::size_t nBuffers)
    : m_strDevice(strName), m_dTimeoutS(dTimeoutS), m_dDeadlineS(dTimeoutS), m_nBuffersWanted(nBuffers) {
    m_pDevice = fnOpen();
    m_pStream = StandIn::firstDataStream(m_pDevice);
    try {
        check(StandIn::openDataStream(m_pDevice, m_pStream), "opening the data stream");
        announceBuffers();
        m_pShading = std::make_unique<Ext::Sc::Shading>(m_pDevice);
        m_pCanceller = std::make_unique<CFetchCanceller>(m_pStream);
    } catch (...) {
        m_pShading.reset();
        StandIn::closeDevice(m_pDevice);
        throw;
    }
}

// Their memory is the session's, which can hand it on.
void CSession::announceBuffers() {
    const std::size_t nPayload = StandIn::payloadSize(m_pStream);
    const std::size_t nFit = hasScenes() || nPayload == 0 ? 0 : BUFFER_BYTES / nPayload;
    const std::size_t nBuffers =
        m_nBuffersWanted != 0 ? m_nBuffersWanted : std::clamp(nFit, BUFFERS_LEAST, BUFFERS_MOST);
    m_vecAhBuffers.reserve(nBuffers);
    while (m_vecAhBuffers.size() < nBuffers) {
        const std::shared_ptr<uint8_t> pMemory(StandIn::allocateLarge(std::max<std::size_t>(nPayload, 1)).release(),
                                               StandIn::FreeMemory());
        StandIn::BufferHandle hBuffer = nullptr;
        check(StandIn::announceBuffer(m_pStream, pMemory.get(), nPayload, &hBuffer), "announcing a buffer");
        m_vecAhBuffers.push_back(hBuffer);
        m_mapMemory[hBuffer] = pMemory;
    }
    m_nPayload = nPayload;
}

// What is held is revoked, too; its memory stays with the holder.
void CSession::revokeBuffers() {
    while (!m_vecAhBuffers.empty()) {
        const StandIn::BufferHandle hBuffer = m_vecAhBuffers.back();
        check(StandIn::revokeBuffer(m_pStream, hBuffer), "taking a buffer back");
        m_vecAhBuffers.pop_back();
        m_mapMemory.erase(hBuffer);
        m_setHeld.erase(hBuffer);
    }
}

CSession::~CSession() {
    m_pCanceller.reset();
    // The library has its hooks in the stream and goes before it.
    m_pShading.reset();
    StandIn::closeDataStream(m_pDevice, m_pStream);
    StandIn::closeDevice(m_pDevice);
}

void CSession::check(int iResult, const char* pStep) {
    if (iResult == GC_ERR_SUCCESS) {
        return;
    }
    const StandIn::LastError error = StandIn::lastError();
    const std::string strWhy = error.iCode == iResult ? error.strText : "";
    throw CGenTlError(iResult, m_strDevice + ": " + pStep + " failed with GenTL code " + std::to_string(iResult) +
                                   (strWhy.empty() ? "" : ", " + strWhy));
}

void CSession::attempt(const std::string& strStep, const std::function<void()>& fnOperation) {
    StandIn::clearLastError();
    try {
        fnOperation();
    } catch (const Exceptions::IException& rError) {
        const StandIn::LastError error = StandIn::lastError();
        throw CGenTlError(
            error.iCode != 0 ? error.iCode : gentlCode(rError),
            strStep + ": " + (error.strText.empty() ? rError.GetErrorDescription().get() : error.strText));
    }
}

NodeMap& CSession::nodes() const {
    return *StandIn::remoteNodes(m_pDevice);
}

Node& CSession::node(const char* pName) const {
    return *nodes().GetNode(pName);
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

bool CSession::hasScenes() const {
    return nodes().GetNodePresent("StandInScene");
}

void CSession::selectScene(const char* pScene) {
    node("StandInScene").SetValue(pScene);
}

void CSession::seekFrame(uint64_t iFrame) {
    if (hasScenes()) {
        node("StandInFrame").SetInt(static_cast<long long>(iFrame));
    }
}

uint64_t CSession::frameCount() const {
    return hasScenes() ? static_cast<uint64_t>(node("StandInFrameCount").GetInt()) : 0;
}

void CSession::start(uint64_t nFrames) {
    m_dDeadlineS = m_dTimeoutS + exposureS();
    const std::lock_guard<std::mutex> lock(m_mtxHeld);
    if (StandIn::payloadSize(m_pStream) != m_nPayload) {
        revokeBuffers();
        announceBuffers();
    }
    for (StandIn::BufferHandle hBuffer : m_vecAhBuffers) {
        if (m_setHeld.count(hBuffer) == 0) {
            check(StandIn::queueBuffer(m_pStream, hBuffer), "queueing a buffer");
        }
    }
    StandIn::clearLastError();
    check(StandIn::startAcquisition(m_pStream, nFrames), "starting the camera");
    m_bRunning = true;
}

void CSession::stop() {
    check(StandIn::stopAcquisition(m_pStream), "stopping the camera");
    const std::lock_guard<std::mutex> lock(m_mtxHeld);
    m_bRunning = false;
    check(StandIn::flushBuffers(m_pStream), "taking the buffers back");
}

template <typename T>
T CSession::streamInfo(int iInfoCmd, const char* pStep) {
    T value{};
    unsigned long long nSize = sizeof value;
    int iType = 0;
    check(StandIn::getStreamInfo(m_pStream, iInfoCmd, &iType, &value, &nSize), pStep);
    return value;
}

bool CSession::frameWaits() {
    return streamInfo<std::size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY, "asking for the number of frames that wait") > 0;
}

uint64_t CSession::underruns() {
    return streamInfo<uint64_t>(STREAM_INFO_NUM_UNDERRUN, "asking for the number of frames that found no buffer");
}

// An exposure can be longer than any sensible time-out.
double CSession::exposureS() const {
    const bool bTold = nodes().GetNodePresent("ExposureTime");
    return bTold ? std::strtod(node("ExposureTime").GetString().get(), nullptr) * 1e-6 : 0.0;
}

void CSession::failWaiting() const {
    throw CTimeoutError(m_strDevice + ": the camera delivers no frame for " + fixed(m_dDeadlineS, 1) +
                        " s; look at its cable and trigger, or give it more time");
}

void CSession::waitForFrame() {
    const Clock::time_point tBegin = Clock::now();
    std::chrono::microseconds pause = POLL_SHORTEST;
    for (;;) {
        // In this order: the last frame comes before the end of the acquisition does.
        const bool bMayCome = streamInfo<bool>(STREAM_INFO_IS_GRABBING, "asking whether the camera runs");
        if (frameWaits() || !bMayCome) {
            return;
        }
        Interrupt::check();
        if (m_fnWatch) {
            m_fnWatch();
        }
        if (secondsSince(tBegin) > m_dDeadlineS) {
            failWaiting();
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, POLL_LONGEST);
    }
}

StandIn::BufferHandle CSession::fetch() {
    const Clock::time_point tBegin = Clock::now();
    for (;;) {
        Interrupt::check();
        const double dLeftMs = std::max(0.0, (m_dDeadlineS - secondsSince(tBegin)) * 1e3);
        const bool bLast = !m_fnWatch || dLeftMs < WATCH_MS;
        const auto iLeftMs = static_cast<unsigned long long>(bLast ? dLeftMs : WATCH_MS) + 1;
        StandIn::BufferHandle hBuffer = nullptr;
        StandIn::clearLastError();
        const Clock::time_point tCall = Clock::now();
        const int iResult = StandIn::getFilledBuffer(m_pStream, &hBuffer, iLeftMs);
        m_dLastFetchMs = secondsSince(tCall) * 1e3;
        // A fetch that waits while correction is switched is cancelled and loses no frame; so is one that an interrupt
        // ends.
        if ((iResult == GC_ERR_TIMEOUT && bLast) || (iResult == GC_ERR_ABORT && dLeftMs <= 0.0)) {
            Interrupt::check();
            failWaiting();
        }
        if (iResult != GC_ERR_ABORT && iResult != GC_ERR_TIMEOUT) {
            check(iResult, "fetching a frame");
            return hBuffer;
        }
        if (m_fnWatch) {
            m_fnWatch();
        }
    }
}

void CSession::hold(StandIn::BufferHandle hBuffer) {
    const std::lock_guard<std::mutex> lock(m_mtxHeld);
    m_setHeld.insert(hBuffer);
}

std::size_t CSession::heldCount() {
    const std::lock_guard<std::mutex> lock(m_mtxHeld);
    return m_setHeld.size();
}

void CSession::giveBack(StandIn::BufferHandle hBuffer) {
    const std::lock_guard<std::mutex> lock(m_mtxHeld);
    m_setHeld.erase(hBuffer);
    if (!m_bRunning || m_mapMemory.count(hBuffer) == 0) {
        return;
    }
    check(StandIn::queueBuffer(m_pStream, hBuffer), "queueing a buffer");
}

template <typename T>
T CSession::bufferInfo(StandIn::BufferHandle hBuffer, int iInfoCmd) const {
    T value{};
    unsigned long long nSize = sizeof value;
    int iType = 0;
    if (StandIn::getBufferInfo(m_pStream, hBuffer, iInfoCmd, &iType, &value, &nSize) != GC_ERR_SUCCESS) {
        throw std::runtime_error(m_strDevice + ": the camera does not tell property " + std::to_string(iInfoCmd) +
                                 " of a frame");
    }
    return value;
}

bool CSession::hasImage(StandIn::BufferHandle hBuffer) const {
    return bufferInfo<bool>(hBuffer, BUFFER_INFO_IMAGEPRESENT);
}

bool CSession::isComplete(StandIn::BufferHandle hBuffer) const {
    return !bufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE) && hasImage(hBuffer);
}

StandIn::ImageLayout CSession::layoutOf(StandIn::BufferHandle hBuffer) const {
    return {&formatOf(bufferInfo<uint64_t>(hBuffer, BUFFER_INFO_PIXELFORMAT)),
            bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_WIDTH), bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_HEIGHT)};
}

void* CSession::imageOf(StandIn::BufferHandle hBuffer) const {
    auto* pBase = static_cast<unsigned char*>(bufferInfo<void*>(hBuffer, BUFFER_INFO_BASE));
    return pBase + bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_IMAGEOFFSET);
}

FrameFacts CSession::factsOf(StandIn::BufferHandle hBuffer) const {
    FrameFacts facts{bufferInfo<uint64_t>(hBuffer, BUFFER_INFO_TIMESTAMP),
                     bufferInfo<uint64_t>(hBuffer, BUFFER_INFO_FRAMEID)};
    if (hasImage(hBuffer)) {
        facts.nOffsetX = bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_XOFFSET);
        facts.nOffsetY = bufferInfo<std::size_t>(hBuffer, BUFFER_INFO_YOFFSET);
    }
    return facts;
}

std::string CSession::bufferText(StandIn::BufferHandle hBuffer, int iInfoCmd) const {
    unsigned long long nSize = 0;
    int iType = 0;
    if (StandIn::getBufferInfo(m_pStream, hBuffer, iInfoCmd, &iType, nullptr, &nSize) != GC_ERR_SUCCESS) {
        return "";
    }
    std::vector<char> vecText(static_cast<std::size_t>(nSize) + 1);
    const int iResult = StandIn::getBufferInfo(m_pStream, hBuffer, iInfoCmd, &iType, vecText.data(), &nSize);
    return iResult == GC_ERR_SUCCESS ? vecText.data() : "";
}

StandIn::eCorrection CSession::correctionOf(StandIn::BufferHandle hBuffer) const {
    return static_cast<StandIn::eCorrection>(bufferInfo<uint64_t>(hBuffer, StandIn::BUFFER_INFO_STANDIN_CORRECTION));
}

std::string CSession::whyUncorrected(StandIn::BufferHandle hBuffer) const {
    return bufferText(hBuffer, StandIn::BUFFER_INFO_STANDIN_CORRECTION_REASON);
}

std::string CSession::frameName(StandIn::BufferHandle hBuffer) const {
    return bufferText(hBuffer, StandIn::BUFFER_INFO_STANDIN_FRAME_NAME);
}

Frame CSession::copyFrame(StandIn::BufferHandle hBuffer) const {
    const StandIn::ImageLayout layout = layoutOf(hBuffer);
    Frame result;
    result.strName = frameName(hBuffer);
    result.pFormat = layout.pFormat;
    result.nWidth = layout.nWidth;
    result.nHeight = layout.nHeight;
    result.vecSamples.resize(layout.samples());
    StandIn::unpackSamples(*layout.pFormat, imageOf(hBuffer), 0, result.vecSamples.size(), result.vecSamples.data());
    return result;
}

void CSession::failIncomplete(StandIn::BufferHandle hBuffer) const {
    throw std::runtime_error(m_strDevice + ": frame " + frameName(hBuffer) +
                             " cannot be used: " + whyUncorrected(hBuffer) + (hasScenes() ? "" : INCOMPLETE_ADVICE));
}

Frame CSession::fetchFrame(uint64_t iFrame) {
    seekFrame(iFrame);
    for (unsigned nMore = hasScenes() ? 0 : INCOMPLETE_MAX;; --nMore) {
        start(1);
        // The time that the camera takes for a frame is none of the correction's: the clock starts when the frame is
        // there.
        waitForFrame();
        const StandIn::BufferHandle hBuffer = fetch();
        if (isComplete(hBuffer)) {
            Frame result = copyFrame(hBuffer);
            result.dFetchMs = m_dLastFetchMs;
            stop();
            return result;
        }
        if (nMore == 0) {
            failIncomplete(hBuffer);
        }
        stop();
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
