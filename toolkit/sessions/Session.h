// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera that streams through the shading library: device, stream and buffers of one run.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "toolkit/frames/Frame.h"
#include "toolkit/sessions/FetchCanceller.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Answers.h"
#include "xapel2_standin/Host.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// What to look at when a real camera delivers no complete frames; ends a sentence.
constexpr const char* INCOMPLETE_ADVICE =
    "; look at its cable, the network and the socket buffer, docs/cameras.md tells how";

/// Says that the camera found no buffer free for so many frames.
std::string underrunText(uint64_t nUnderruns);

/// The camera delivers no frame in time. The text ends where advice on how to give it more time may follow.
class CTimeoutError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An opened camera with announced buffers and a shading object. Everything is given back by the destructor.
/// What fails is a std::runtime_error that names the step, says why, and what to do; node accesses let host exceptions
/// through. Where interrupts are handled (Interrupt::install), every wait ends with a CInterruptedError.
/// @threads one object per thread, one at a time.
class CSession {
public:
    /// The device, opened; belongs to the host until closed.
    using Opener = std::function<Device*()>;

    /// @param[in] strDevice  device identifier as the host takes it ("sim", "replay:DIR").
    /// @param[in] fTimeoutS  longest wait for a frame beyond its exposure time, seconds.
    explicit CSession(const std::string& strDevice, double dTimeoutS = 10.0);
    /// @param[in] strName  names the device in messages.
    CSession(const std::string& strName, const Opener& fnOpen, double dTimeoutS = 10.0);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    const std::string& device() const { return m_strDevice; }
    Ext::Sc::Shading& shading() { return *m_pShading; }
    /// The stream, the device's.
    DataStream* stream() const { return m_pStream; }

    /// Runs an operation of the shading object. A host exception becomes "strStep: REASON", the reason being the host's
    /// last error where there is one.
    void attempt(const std::string& strStep, const std::function<void()>& fnOperation);

    /// The camera's own nodes, borrowed.
    NodeMap& nodes() const;
    std::string pixelFormat() const;
    uint64_t width() const;
    uint64_t height() const;

    /// Whether the camera can be pointed at a scene; a real one is pointed by its user.
    bool hasScenes() const;
    /// Points the camera at "Dark", "Light" or "Scene" and goes to the first frame of it. For cameras with scenes.
    void selectScene(const char* pScene);
    /// Goes to frame iFrame of the selected scene; nothing for a camera without scenes.
    void seekFrame(uint64_t iFrame);
    /// Frames of the selected scene; 0 when the camera delivers them without end.
    uint64_t frameCount() const;

    /// Starts the camera, which delivers this many frames.
    void start(uint64_t nFrames = ~0ULL);
    /// Stops it and takes all buffers back.
    void stop();
    /// True when a frame is there already.
    bool frameWaits();
    /// Frames since the last start that were lost because no buffer was free.
    uint64_t underruns();
    /// Waits until a frame is there, and its fetch takes no more than the library needs for it; or until none can come
    /// any more, and the fetch tells why.
    void waitForFrame();
    /// The next frame, waited for. It is the caller's until given back.
    StandIn::BufferHandle fetch();
    /// Time that the host took for the last fetch(), ms.
    double lastFetchMs() const { return m_dLastFetchMs; }
    /// Hands the buffer to the camera to be filled again. @threads any, while the session lives and is not stopped.
    void giveBack(StandIn::BufferHandle hBuffer);

    /// False for a frame that came incomplete or without an image.
    bool isComplete(StandIn::BufferHandle hBuffer) const;
    StandIn::ImageLayout layoutOf(StandIn::BufferHandle hBuffer) const;
    /// The image of a complete frame, layoutOf().bytes() long; borrowed until the buffer is given back.
    void* imageOf(StandIn::BufferHandle hBuffer) const;
    /// What image processors made of the frame.
    StandIn::eCorrection correctionOf(StandIn::BufferHandle hBuffer) const;
    /// Why its pixels are not corrected, in the host's words; empty where they are.
    std::string whyUncorrected(StandIn::BufferHandle hBuffer) const;
    /// The name that the camera gives the frame, empty for none.
    std::string frameName(StandIn::BufferHandle hBuffer) const;
    Frame copyFrame(StandIn::BufferHandle hBuffer) const;

    /// Fetches frame iFrame of the selected scene, an incomplete one is an error; of a camera without scenes the next
    /// complete one.
    Frame fetchFrame(uint64_t iFrame);

private:
    Node& node(const char* pName) const;
    void check(int iResult, const char* pStep);
    [[noreturn]] void failWaiting() const;
    double exposureS() const;
    [[noreturn]] void failIncomplete(StandIn::BufferHandle hBuffer) const;
    template <typename T>
    T streamInfo(int iInfoCmd, const char* pStep);
    std::string bufferText(StandIn::BufferHandle hBuffer, int iInfoCmd) const;
    template <typename T>
    T bufferInfo(StandIn::BufferHandle hBuffer, int iInfoCmd) const;

    std::string m_strDevice;
    double m_dTimeoutS;
    double m_dDeadlineS;  // since the last start
    double m_dLastFetchMs = 0.0;
    Device* m_pDevice = nullptr;      // the host's, until the destructor closes it
    DataStream* m_pStream = nullptr;  // the device's
    std::vector<StandIn::BufferHandle> m_vecAhBuffers;
    std::unique_ptr<Ext::Sc::Shading> m_pShading;
    std::unique_ptr<CFetchCanceller> m_pCanceller;
};

}  // namespace Toolkit
}  // namespace XAPEL2
