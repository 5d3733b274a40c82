// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The frames of a GigE Vision or USB3 Vision camera.

#pragma once

#include "standin/cameras/aravis/AravisCamera.h"

namespace XAPEL2 {
namespace StandIn {

/// @threads see ICameraStream. The transport's thread reports through the camera's events; their lock also orders its
/// writes to a buffer after what the application did with it, and before what the application does next.
class CAravisStream : public ICameraStream {
public:
    /// The caller holds the camera's commands lock. @throws CCameraError
    CAravisStream(CAravisCamera& rCamera, ICameraBuffers& rBuffers);
    ~CAravisStream() override;

    bool hand(const CameraBuffer& rBuffer) override;
    void start() override;
    bool next(CameraFrame& rFrame) override;
    void wake() override;

private:
    enum eEvent { eFrame, eSilence, eWoken, eLost };

    static void onStreamEvent(void* pSelf, ArvStreamCallbackType eType, ArvBuffer* pBuffer);
    eEvent waitForEvent();
    GlibPtr<ArvBuffer> pop();
    void countUnderruns(uint64_t iFrameId);
    void checkControl(bool bLost);
    bool describe(ArvBuffer* pBuffer, CameraFrame& rFrame) const;

    CAravisCamera& m_rCamera;
    ICameraBuffers& m_rBuffers;
    const AravisLayout m_layout;
    bool m_bStarted = false;
    bool m_bLost = false;  // by the thread that waits for frames, which also ends the stream
    // Of the thread that waits for frames.
    uint64_t m_nFrames = 0, m_nCounted = 0, m_iLastFrameId = 0;
    bool m_bAnyFrame = false;
    GlibPtr<ArvStream> m_pStream;
};

}  // namespace StandIn
}  // namespace XAPEL2
