// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The interface between the host and cameras that send frames by themselves: a real camera fills the memory that it
// is handed, when it likes, and may vanish.

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
class CLiveError : public std::runtime_error {
public:
    CLiveError(int32_t iCode, const std::string& strText) : std::runtime_error(strText), m_iCode(iCode) {}
    int32_t code() const { return m_iCode; }

private:
    int32_t m_iCode;
};

/// Memory that the transport has given back.
struct LiveFrame {
    void* pToken = nullptr;  ///< as handed over with the memory
    FrameInfo info;
};

/// One acquisition. Destroying it stops the camera; nothing touches the handed memory from then on.
class ILiveStream {
public:
    virtual ~ILiveStream() = default;

    /// Hands memory to the transport, which writes frames into it in the order of the calls. It stays the transport's
    /// until next() yields its token or the stream is destroyed. @threads any thread; does not wait for the camera.
    virtual void hand(void* pMemory, std::size_t nBytes, void* pToken) = 0;

    /// Starts the camera. @throws CLiveError
    virtual void start() = 0;

    /// Waits for the next frame. False after wake(). @throws CLiveError  the camera is gone or obeys another client.
    /// @threads one thread at a time.
    virtual bool next(LiveFrame& rFrame) = 0;

    /// Ends the present call of next() and all later ones. @threads any thread.
    virtual void wake() = 0;

    /// Frames that found no memory so far. @threads any thread.
    virtual uint64_t underruns() const = 0;
};

/// An open camera, the host's alone. @threads any thread.
class ILiveCamera {
public:
    virtual ~ILiveCamera() = default;

    /// The features that applications reach. The functions may take as long as the network does. They refuse to change
    /// the image's layout while a stream of the camera exists. Called once; the table must not outlive the camera.
    virtual NodeTable nodes() = 0;

    /// Bytes of one frame with the present settings; does not wait for the camera.
    virtual std::size_t payloadSize() const = 0;

    /// @throws CLiveError  the camera does not answer, or its pixel format is not known.
    virtual std::unique_ptr<ILiveStream> makeStream() = 0;
};

struct LiveCameraInfo {
    std::string strId;
    std::string strDescription;
};

/// A way to reach cameras. @threads any thread.
class ILiveProvider {
public:
    virtual ~ILiveProvider() = default;

    /// Looks for cameras; takes a second or two.
    virtual std::vector<LiveCameraInfo> list() = 0;

    /// @throws CLiveError  the camera is not there or another client has it.
    virtual std::unique_ptr<ILiveCamera> open(const std::string& strId) = 0;
};

/// What a module of cameras exports under the name LIVE_PROVIDER_SYMBOL: its provider, never freed, or null when it was
/// built for another version of this interface.
using LiveProviderFunc = ILiveProvider* (*)(int iVersion);
constexpr int LIVE_PROVIDER_VERSION = 1;
constexpr const char* LIVE_PROVIDER_SYMBOL = "xapel2_standin_liveProvider";

}  // namespace StandIn
}  // namespace XAPEL2
