// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A GigE Vision or USB3 Vision camera.

#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "standin/cameras/aravis/Glib.h"
#include "standin/cameras/interface/Camera.h"

namespace XAPEL2 {
namespace StandIn {

/// The image that the camera's settings make. Fixed while it streams.
struct AravisLayout {
    std::string strFormat;                 ///< as the host names it; where it does not know it, as the camera does
    const PixelFormat* pFormat = nullptr;  ///< null when the host does not know it
    uint64_t nWidth = 0, nHeight = 0;
    ImageGeometry geometry;
    std::size_t nPayload = 0;  ///< bytes
};

/// What the transport's threads tell the one that waits for frames.
struct AravisEvents {
    std::mutex mtx;  // guards the members below; a leaf lock
    std::condition_variable cv;
    uint64_t nDone = 0;  // frames that nobody has asked for yet
    bool bWoken = false;
    bool bLost = false;  // control of the camera is lost
};

class CAravisCamera : public ICamera {
public:
    /// @param[in] strId  as the transport lists it, or a network address. @throws CCameraError
    explicit CAravisCamera(const std::string& strId);
    ~CAravisCamera() override;

    const NodeTable& nodes() const override { return m_vecTable; }
    std::size_t payloadSize() const override { return layout().nPayload; }
    ImageGeometry geometry() const override { return layout().geometry; }
    std::unique_ptr<ICameraStream> makeStream(ICameraBuffers& rBuffers) override;

    AravisLayout layout() const;
    /// Reads the layout from the camera. The caller holds commands(). @throws CCameraError
    void refreshLayout();
    /// Formats that the camera can deliver and the host knows. The caller holds commands(). @throws CCameraError
    std::vector<const PixelFormat*> commonFormats() const;

    ArvCamera* arv() const { return m_pCamera.get(); }
    /// Held for the commands to the camera, which may take seconds.
    std::mutex& commands() { return m_mtxCommands; }
    AravisEvents& events() { return *m_pEvents; }
    /// Set while a stream exists, which clears it.
    std::atomic<bool>& streaming() { return m_bStreaming; }

    /// Asks the camera whether it still obeys this client; changes nothing. Takes seconds when it does not answer.
    /// @throws CCameraError  it does not, or is gone.
    void checkControl() const;

private:
    CAravisCamera(const std::string& strId, std::unique_ptr<AravisEvents> pEvents);
    static void onControlLost(ArvDevice* pDevice, void* pEvents);
    static void releaseEvents(void* pEvents, GClosure*);

    std::mutex m_mtxCommands;
    AravisEvents* const m_pEvents;  // goes with the device of m_pCamera
    std::atomic<bool> m_bStreaming{false};
    mutable std::mutex m_mtxLayout;  // guards m_layout; a leaf lock
    AravisLayout m_layout;
    GlibPtr<ArvCamera> m_pCamera;
    NodeTable m_vecTable;
};

}  // namespace StandIn
}  // namespace XAPEL2
