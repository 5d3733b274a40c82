// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Hands buffers to the transport and takes them back.

#include "standin/cameras/aravis/AravisStream.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace XAPEL2 {
namespace StandIn {

namespace {

// A burst of packets waits here while the transport's thread has no turn. The system may allow less.
constexpr gint SOCKET_BYTES = 8 << 20;

// A camera that has sent nothing for so long is asked whether it is still there: sooner than the transport notices.
constexpr std::chrono::milliseconds SILENCE{1000};

// The transport reports a frame a moment before or after it gives the buffer out.
constexpr guint64 GIVE_OUT_US = 100000;

enum eArrival { eNoFrame, eIncomplete, eComplete };

eArrival arrivalOf(const ArvBufferStatus eStatus) {
    switch (eStatus) {
        case ARV_BUFFER_STATUS_SUCCESS:
            return eComplete;
        case ARV_BUFFER_STATUS_UNKNOWN:  // given back when the transport ends
        case ARV_BUFFER_STATUS_CLEARED:
        case ARV_BUFFER_STATUS_FILLING:
        case ARV_BUFFER_STATUS_ABORTED:
            return eNoFrame;
        default:
            return eIncomplete;
    }
}

uint64_t sizeOf(gint iPixels) {
    return iPixels < 0 ? 0 : static_cast<uint64_t>(iPixels);
}

// Takes the image of a complete frame as the camera described it. False when it has none that the host can read.
bool describeImage(ArvBuffer* pBuffer, FrameInfo& rInfo) {
    gint iPadX = 0;
    gint iPadY = 0;
    if (arv_buffer_get_n_parts(pBuffer) == 0) {
        return false;
    }
    arv_buffer_get_part_padding(pBuffer, 0, &iPadX, &iPadY);
    const auto uPfnc = static_cast<uint64_t>(arv_buffer_get_part_pixel_format(pBuffer, 0));
    if (uPfnc != rInfo.pFormat->uPfnc || iPadX != 0) {
        return false;
    }
    std::size_t nPart = 0;
    const void* pBase = arv_buffer_get_data(pBuffer, nullptr);
    const void* pImage = arv_buffer_get_part_data(pBuffer, 0, &nPart);
    rInfo.nImageOffset = static_cast<std::size_t>(static_cast<const char*>(pImage) - static_cast<const char*>(pBase));
    rInfo.nWidth = sizeOf(arv_buffer_get_part_width(pBuffer, 0));
    rInfo.nHeight = sizeOf(arv_buffer_get_part_height(pBuffer, 0));
    rInfo.geometry.x.nOffset = sizeOf(arv_buffer_get_part_x(pBuffer, 0));
    rInfo.geometry.y.nOffset = sizeOf(arv_buffer_get_part_y(pBuffer, 0));
    return true;
}

// How many frames one is behind another, by their identifiers, of which those of 16 bits go from 65535 on to 1. 0 for
// one that comes late: an incomplete frame may be given out behind the next one.
uint64_t framesAhead(uint64_t iBefore, uint64_t iFrame) {
    constexpr uint64_t LAST = 65535;
    const bool bShort = iBefore <= LAST && iFrame <= LAST;
    const uint64_t nAround = bShort ? LAST - iBefore + iFrame : 0;
    const uint64_t nAhead = iFrame > iBefore ? iFrame - iBefore : nAround;
    return bShort && nAhead > LAST / 2 ? 0 : nAhead;
}

// By its place in the acquisition.
std::string nameOf(uint64_t iFrame) {
    char aName[40];
    std::snprintf(aName, sizeof aName, "frame_%04llu", static_cast<unsigned long long>(iFrame));
    return aName;
}

}  // namespace

CAravisStream::CAravisStream(CAravisCamera& rCamera, ICameraBuffers& rBuffers)
    : m_rCamera(rCamera), m_rBuffers(rBuffers), m_layout(rCamera.layout()) {
    {
        AravisEvents& rEvents = rCamera.events();
        std::lock_guard<std::mutex> lock(rEvents.mtx);
        rEvents.nDone = 0;
        rEvents.bWoken = false;
    }
    CGlibError error;
    m_pStream.reset(arv_camera_create_stream(rCamera.arv(), &onStreamEvent, &rCamera.events(), error.out()));
    error.check();
    if (m_pStream == nullptr) {
        throw CCameraError(GC_ERR_IO, "the camera yields no stream");
    }
    if (ARV_IS_GV_STREAM(m_pStream.get())) {
        g_object_set(m_pStream.get(), "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size",
                     SOCKET_BYTES, nullptr);
    }
    rCamera.streaming() = true;
}

CAravisStream::~CAravisStream() {
    // A camera that is lost would only be waited for.
    if (m_bStarted && !m_bLost) {
        std::lock_guard<std::mutex> lock(m_rCamera.commands());
        arv_camera_stop_acquisition(m_rCamera.arv(), nullptr);
    }
    m_pStream.reset();
    m_rCamera.streaming() = false;
}

void CAravisStream::onStreamEvent(void* pEvents, ArvStreamCallbackType eType, ArvBuffer*) {
    AravisEvents& rEvents = *static_cast<AravisEvents*>(pEvents);
    std::lock_guard<std::mutex> lock(rEvents.mtx);
    if (eType == ARV_STREAM_CALLBACK_TYPE_BUFFER_DONE) {
        ++rEvents.nDone;
        rEvents.cv.notify_all();
    }
}

bool CAravisStream::hand(const CameraBuffer& rBuffer) {
    // With the lock that the transport takes before it writes.
    std::lock_guard<std::mutex> lock(m_rCamera.events().mtx);
    arv_stream_push_buffer(m_pStream.get(),
                           arv_buffer_new_full(rBuffer.nBytes, rBuffer.pBase, rBuffer.pToken, nullptr));
    return true;
}

void CAravisStream::start() {
    std::lock_guard<std::mutex> lock(m_rCamera.commands());
    CGlibError aErrors[2];
    arv_camera_set_acquisition_mode(m_rCamera.arv(), ARV_ACQUISITION_MODE_CONTINUOUS, aErrors[0].out());
    aErrors[0].check();
    m_bStarted = true;
    arv_camera_start_acquisition(m_rCamera.arv(), aErrors[1].out());
    aErrors[1].check();
}

CAravisStream::eEvent CAravisStream::waitForEvent() {
    AravisEvents& rEvents = m_rCamera.events();
    std::unique_lock<std::mutex> lock(rEvents.mtx);
    const auto fnAny = [&] { return rEvents.bWoken || rEvents.bLost || rEvents.nDone != 0; };
    if (!rEvents.cv.wait_for(lock, SILENCE, fnAny)) {
        return eSilence;
    }
    if (rEvents.bWoken) {
        return eWoken;
    }
    if (rEvents.nDone == 0) {
        return eLost;
    }
    return eFrame;
}

// The frame of the oldest event, null when the transport has not given it out yet. The event stays until it has:
// without it every later frame would come one event late.
GlibPtr<ArvBuffer> CAravisStream::pop() {
    GlibPtr<ArvBuffer> pBuffer(arv_stream_timeout_pop_buffer(m_pStream.get(), GIVE_OUT_US));
    if (pBuffer != nullptr) {
        AravisEvents& rEvents = m_rCamera.events();
        std::lock_guard<std::mutex> lock(rEvents.mtx);
        --rEvents.nDone;
    }
    return pBuffer;
}

bool CAravisStream::next(CameraFrame& rFrame) {
    for (;;) {
        const eEvent eWhat = waitForEvent();
        if (eWhat == eWoken) {
            return false;
        }
        if (eWhat != eFrame) {
            checkControl(eWhat == eLost);
            continue;
        }
        const GlibPtr<ArvBuffer> pBuffer = pop();
        if (pBuffer == nullptr) {
            checkControl(false);
        } else if (describe(pBuffer.get(), rFrame)) {
            countUnderruns(rFrame.info.iFrameId);
            rFrame.info.strName = nameOf(m_nFrames++);
            return true;
        }
    }
}

void CAravisStream::checkControl(bool bLost) {
    m_bLost = true;
    m_rCamera.checkControl();
    if (bLost) {
        throw CCameraError(GC_ERR_IO, "the connection to it broke");
    }
    m_bLost = false;
}

// False for a buffer that holds no frame, which then stays where it is until the stream ends.
bool CAravisStream::describe(ArvBuffer* pBuffer, CameraFrame& rFrame) const {
    const eArrival eHow = arrivalOf(arv_buffer_get_status(pBuffer));
    if (eHow == eNoFrame) {
        return false;
    }
    rFrame.pToken = const_cast<void*>(arv_buffer_get_user_data(pBuffer));
    FrameInfo& rInfo = rFrame.info;
    // An incomplete frame may lack the packet that describes it, but the layout is fixed.
    rInfo.pFormat = m_layout.pFormat;
    rInfo.nWidth = m_layout.nWidth;
    rInfo.nHeight = m_layout.nHeight;
    rInfo.geometry = m_layout.geometry;
    rInfo.iFrameId = arv_buffer_get_frame_id(pBuffer);
    rInfo.iTimestamp = arv_buffer_get_timestamp(pBuffer);
    arv_buffer_get_data(pBuffer, &rInfo.nFilled);
    rInfo.bImage = eHow == eIncomplete || describeImage(pBuffer, rInfo);
    rInfo.bIncomplete = eHow == eIncomplete ||
                        rInfo.nFilled < rInfo.nImageOffset + imageBytes(*rInfo.pFormat, rInfo.nWidth, rInfo.nHeight);
    return true;
}

void CAravisStream::wake() {
    AravisEvents& rEvents = m_rCamera.events();
    std::lock_guard<std::mutex> lock(rEvents.mtx);
    rEvents.bWoken = true;
    rEvents.cv.notify_all();
}

// The transport counts USB3 Vision frames that find no buffer, but of GigE Vision each packet. There, frames that are
// missing are held for such ones where it has counted any.
void CAravisStream::countUnderruns(uint64_t iFrameId) {
    guint64 nCounted = 0;
    arv_stream_get_statistics(m_pStream.get(), nullptr, nullptr, &nCounted);
    if (!ARV_IS_GV_STREAM(m_pStream.get())) {
        m_rBuffers.missed(nCounted - m_nCounted);
        m_nCounted = nCounted;
        return;
    }
    const uint64_t nAhead = m_bAnyFrame ? framesAhead(m_iLastFrameId, iFrameId) : 1;
    // A frame whose first packet is lost has no identifier.
    if (iFrameId == 0 || nAhead == 0) {
        return;
    }
    if (nCounted != m_nCounted) {
        m_rBuffers.missed(nAhead - 1);
    }
    m_nCounted = nCounted;
    m_iLastFrameId = iFrameId;
    m_bAnyFrame = true;
}

}  // namespace StandIn
}  // namespace XAPEL2
