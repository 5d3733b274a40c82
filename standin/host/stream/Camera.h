// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera: a frame source with its settings as remote nodes, or a live camera with its own.

#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "standin/cameras/interface/FrameSource.h"
#include "standin/cameras/interface/LiveCamera.h"
#include "standin/host/nodes/Nodes.h"

namespace XAPEL2 {
namespace StandIn {

/// What the next frame is made of.
struct FrameRequest {
    CameraSettings settings;
    eScene eWhat = eSceneObjects;
    uint64_t iFrame = 0;  ///< of the scene
};

/// @threads any thread; source() is for the thread of the running acquisition, but for frameName().
class CCamera {
public:
    explicit CCamera(std::unique_ptr<IFrameSource> pSource);
    explicit CCamera(std::unique_ptr<ILiveCamera> pLive);

    const NodeTable& table() const { return m_table; }
    /// Null for a camera whose frames are made from a source. The other way round, source() is for those only.
    ILiveCamera* live() const { return m_pLive.get(); }
    IFrameSource& source() { return *m_pSource; }
    /// Bytes of an image with the present settings.
    std::size_t imageSize() const;

    /// Locks the image settings. False while another acquisition of this camera runs.
    bool beginAcquisition();
    void endAcquisition();

    /// Hz; 0 paces nothing.
    uint64_t frameRate() const;
    /// The settings of the next frame; counts it.
    FrameRequest nextFrame();

private:
    using IntLimits = std::array<int64_t, 2>;

    CameraSettings settings() const;
    void add(NodeSpec spec) { m_table.push_back(std::move(spec)); }
    /// One direction of the image.
    struct Axis {
        uint64_t CameraSettings::*pSize;
        uint64_t CameraSettings::*pOffset;
        uint64_t CameraSettings::*pBinning;
        uint64_t CameraSettings::*pReverse;
        uint64_t nSensor;  // pixels

        uint64_t binned(const CameraSettings& r) const { return nSensor / r.*pBinning; }
    };

    void addAxes();
    void addSize(const char* pName, const Axis& rAxis, uint64_t CameraSettings::*pMember,
                 uint64_t CameraSettings::*pOther, int64_t iMin);
    void addBinning(const char* pName, const Axis& rAxis);
    void addReverse(const char* pName, const Axis& rAxis);
    NodeSpec imageNode(const char* pName, uint64_t CameraSettings::*pMember);
    void addModelName();
    void addFree(const char* pName, uint64_t* pMember, IntLimits limits);
    void addFormat();
    void addScene();

    const std::unique_ptr<IFrameSource> m_pSource;
    const std::unique_ptr<ILiveCamera> m_pLive;
    const std::vector<const PixelFormat*> m_vecFormats;
    std::array<uint64_t, 3> m_aFrameCounts{};  // by scene; fixed
    const bool m_bCanResize = false;
    NodeTable m_table;

    mutable std::mutex m_mtx;  // guards the members below
    CameraSettings m_settings;
    eScene m_eScene = eSceneObjects;
    uint64_t m_iNextFrame = 0;
    bool m_bAcquiring = false;
};

}  // namespace StandIn
}  // namespace XAPEL2
