// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera that makes its frames from a source, with its settings as nodes.

#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "standin/cameras/interface/Camera.h"
#include "standin/cameras/interface/FrameSource.h"

namespace XAPEL2 {
namespace StandIn {

/// What the next frame is made of.
struct FrameRequest {
    CameraSettings settings;
    eScene eWhat = eSceneObjects;
    uint64_t iFrame = 0;  ///< of the scene
};

/// @threads any thread; source() is for the thread of the running stream.
class CSourceCamera : public ICamera {
public:
    explicit CSourceCamera(std::unique_ptr<IFrameSource> pSource);

    const NodeTable& nodes() const override { return m_vecTable; }
    std::size_t payloadSize() const override;
    ImageGeometry geometry() const override { return geometryOf(settings()); }
    /// Locks the image settings for the life of the stream.
    std::unique_ptr<ICameraStream> makeStream(ICameraBuffers& rBuffers) override;

    // What the stream asks.
    IFrameSource& source() { return *m_pSource; }
    /// Of recorded frames nobody knows it.
    ImageGeometry geometryOf(const CameraSettings& rSettings) const;
    /// Hz; 0 paces nothing.
    uint64_t frameRate() const;
    /// The settings of the next frame; counts it.
    FrameRequest nextFrame();
    void streamEnds();

private:
    using IntLimits = std::array<int64_t, 2>;

    CameraSettings settings() const;
    void add(NodeSpec spec) { m_vecTable.push_back(std::move(spec)); }
    /// One direction of the image.
    struct Axis {
        uint64_t CameraSettings::*pSize;
        uint64_t CameraSettings::*pOffset;
        uint64_t CameraSettings::*pBinning;
        GeometryAxis ImageGeometry::*pAxis;
    };

    void addAxes();
    void addSize(const char* pName, const Axis& rAxis, uint64_t CameraSettings::*pMember,
                 uint64_t CameraSettings::*pOther, int64_t iMin);
    void addBinning(const char* pName, const Axis& rAxis);
    void addBinningMode(const char* pName, uint64_t& rSum);
    void addMirror(const char* pName, uint64_t& rReverse);
    void addSensorSide(const char* pName, uint64_t nPixels);
    // The caller holds the lock.
    uint64_t binned(const Axis& rAxis) const;
    void change(const std::function<void()>& fnChange);
    void useWhole(const Axis& rAxis);
    NodeSpec numberNode(const char* pName, const uint64_t& rMember);
    void addNumber(const char* pName, uint64_t& rMember, IntLimits limits, bool bWhileStreaming);
    void addText(const char* pName, const std::string& strText);
    void addFormat();
    void addScene();

    const std::unique_ptr<IFrameSource> m_pSource;
    const std::vector<const PixelFormat*> m_vecFormats;
    std::array<uint64_t, 3> m_aFrameCounts{};  // by scene; fixed
    const bool m_bCanResize = false;
    const Axis m_x, m_y;
    NodeTable m_vecTable;

    mutable std::mutex m_mtx;  // guards the members below
    CameraSettings m_settings;
    eScene m_eScene = eSceneObjects;
    uint64_t m_iNextFrame = 0;
    bool m_bStreaming = false;
};

}  // namespace StandIn
}  // namespace XAPEL2
