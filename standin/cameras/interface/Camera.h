// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The interface between the host and its cameras: those that fill a buffer on request and those that send by
// themselves.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "standin/cameras/interface/FrameInfo.h"
#include "standin/cameras/interface/NodeSpec.h"

namespace XAPEL2 {
namespace StandIn {

/// A camera that does not do as asked, with the GenTL code that an application sees.
class CCameraError : public std::runtime_error {
public:
    CCameraError(int32_t iCode, const std::string& strText) : std::runtime_error(strText), m_iCode(iCode) {}
    int32_t code() const { return m_iCode; }

private:
    int32_t m_iCode;
};

/// Memory for one frame.
struct CameraBuffer {
    void* pBase = nullptr;
    std::size_t nBytes = 0;
    void* pToken = nullptr;  ///< comes back with the frame
};

/// A frame that the camera has written, or failed to.
struct CameraFrame {
    void* pToken = nullptr;  ///< as it came with the memory
    NamedFrameInfo info;
    std::string strFailure;  ///< why the frame could not be produced; empty where it was
};

/// The queued buffers, as the stream of a camera sees them. @threads that of ICameraStream::next().
class ICameraBuffers {
public:
    virtual ~ICameraBuffers() = default;

    /// Takes the oldest queued buffer, which is the camera's until next() yields it. False when none is queued.
    virtual bool take(CameraBuffer& rBuffer) = 0;

    /// So many more frames found no buffer.
    virtual void missed(uint64_t nFrames) = 0;
};

/// One acquisition. Destroying it stops the camera; nothing touches the memory that it had from then on.
class ICameraStream {
public:
    virtual ~ICameraStream() = default;

    /// Told of each buffer that is queued, in order. True: the camera keeps the memory, writes one of the next frames
    /// into it, and gives it out by next(). False: it stays queued until the camera takes it.
    /// @threads any thread, with the host's queue locked: does not wait for the camera, calls nothing of the host.
    virtual bool hand(const CameraBuffer& rBuffer) = 0;

    /// Starts the camera. @throws CCameraError
    virtual void start() = 0;

    /// Waits for the next frame. False after wake(). @throws CCameraError  the camera is gone or obeys another client.
    /// @threads one thread at a time.
    virtual bool next(CameraFrame& rFrame) = 0;

    /// Ends the present call of next() and all later ones. @threads any thread.
    virtual void wake() = 0;
};

/// An open camera, the host's alone. @threads any thread.
class ICamera {
public:
    virtual ~ICamera() = default;

    /// The features that applications reach, the same for the camera's life. The functions may take as long as the
    /// network does. They refuse to change the image's size, format, binning and mirror while a stream of the camera
    /// exists.
    virtual const NodeTable& nodes() const = 0;

    /// Bytes of one frame with the present settings; does not wait for the camera.
    virtual std::size_t payloadSize() const = 0;

    /// Where an image taken with the present settings lies on the sensor; does not wait for the camera. The default,
    /// for a camera that cannot tell, is not known.
    virtual ImageGeometry geometry() const { return {}; }

    /// Null while a stream of the camera exists.
    /// @param[in] rBuffers  must outlive the stream.
    /// @throws CCameraError  the camera does not answer, or its pixel format is not known.
    virtual std::unique_ptr<ICameraStream> makeStream(ICameraBuffers& rBuffers) = 0;
};

/// A camera that can be opened.
struct CameraInfo {
    std::string strId;
    std::string strDescription;
};

/// A way to reach cameras. @threads any thread.
class ICameraProvider {
public:
    virtual ~ICameraProvider() = default;

    /// Looks for cameras; takes a second or two.
    virtual std::vector<CameraInfo> list() = 0;

    /// @throws CCameraError  the camera is not there or another client has it.
    virtual std::unique_ptr<ICamera> open(const std::string& strId) = 0;
};

/// What a module of cameras exports under the name CAMERA_PROVIDER_SYMBOL: its provider, never freed, or null when it
/// was built for another version of this interface.
using CameraProviderFunc = ICameraProvider* (*)(int iVersion);
constexpr int CAMERA_PROVIDER_VERSION = 3;
constexpr const char* CAMERA_PROVIDER_SYMBOL = "xapel2_standin_cameraProvider";

}  // namespace StandIn
}  // namespace XAPEL2
