// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera whose frames are as a test wants them: incomplete, without an image, behind an offset, of given content.

#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "standin/cameras/interface/Camera.h"

namespace XAPEL2 {
namespace StandIn {

/// Another camera, and what the switches make of its frames. Without a switch it is that camera.
class CFaultyCamera : public ICamera {
public:
    explicit CFaultyCamera(std::unique_ptr<ICamera> pCamera) : m_pCamera(std::move(pCamera)) {}

    const NodeTable& nodes() const override { return m_pCamera->nodes(); }
    std::size_t payloadSize() const override;
    ImageGeometry geometry() const override { return m_pCamera->geometry(); }
    std::unique_ptr<ICameraStream> makeStream(ICameraBuffers& rBuffers) override;

    void streamEnds() { m_bStreaming = false; }

private:
    const std::unique_ptr<ICamera> m_pCamera;
    std::atomic<bool> m_bStreaming{false};
    std::atomic<std::size_t> m_nOffset{0};  // of the running stream
};

}  // namespace StandIn
}  // namespace XAPEL2
