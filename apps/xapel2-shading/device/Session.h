// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera that streams through the shading library: device, stream and buffers of one run.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "images/Frame.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace App {

/// An opened camera with announced buffers and a shading object. Everything is given back by the destructor.
/// Host exceptions pass through; a stream call that fails is a std::runtime_error that names the step and the code.
/// @threads one object per thread.
class CSession {
public:
    /// @param[in] strDevice  device identifier as the host takes it ("sim", "replay:DIR").
    explicit CSession(const std::string& strDevice);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    Ext::Sc::Shading& shading() { return *m_pShading; }

    std::string pixelFormat() const;
    uint64_t width() const;
    uint64_t height() const;

    /// Points the camera at "Dark", "Light" or "Scene" and goes to the first frame of it.
    void selectScene(const char* pScene);
    /// Frames of the selected scene; 0 when the camera delivers them without end.
    uint64_t frameCount() const;

    /// Fetches nFrames frames of the selected scene, from its first one on, and drops them: what the library does with
    /// each on the way is all that is wanted.
    /// @param[in] fnFetched  called after each with the number fetched so far.
    void streamFrames(uint64_t nFrames, const std::function<void(uint64_t)>& fnFetched);

    /// Fetches frame iFrame of the selected scene.
    Frame fetchFrame(uint64_t iFrame);

private:
    Node& node(const char* pName) const;
    void start(uint64_t nFrames);
    void stop();
    void waitForFrame();
    StandIn::BufferHandle fetch();
    Frame copyFrame(StandIn::BufferHandle hBuffer) const;
    template <typename T>
    T bufferInfo(StandIn::BufferHandle hBuffer, int iInfoCmd) const;
    std::string frameName(StandIn::BufferHandle hBuffer) const;

    Device* m_pDevice;      // the host's, until the destructor closes it
    DataStream* m_pStream;  // the device's
    std::vector<StandIn::BufferHandle> m_ahBuffers;
    std::unique_ptr<Ext::Sc::Shading> m_pShading;
};

}  // namespace App
}  // namespace XAPEL2
