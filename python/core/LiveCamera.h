// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera whose frames outlive it: what Python's garbage collection asks for.

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <sys/types.h>

#include "toolkit/sessions/Pair.h"
#include "toolkit/sessions/Recording.h"
#include "toolkit/sessions/Session.h"

namespace XAPEL2 {
namespace Python {

class CLiveCamera;

/// A buffer that is the holder's. Its end gives it back to the camera, where that is still open.
class CLease {
public:
    CLease(const std::shared_ptr<CLiveCamera>& rpCamera, StandIn::BufferHandle hBuffer,
           std::shared_ptr<const void> pMemory);
    ~CLease();
    CLease(const CLease&) = delete;
    CLease& operator=(const CLease&) = delete;

private:
    std::weak_ptr<CLiveCamera> m_pCamera;
    StandIn::BufferHandle m_hBuffer;
    std::shared_ptr<const void> m_pMemory;
};

/// A fetched frame.
struct LiveFrame {
    std::shared_ptr<CLease> pLease;
    void* pImage = nullptr;                      ///< in the lease's memory
    std::optional<StandIn::ImageLayout> layout;  ///< empty: there is no image
    Toolkit::FrameFacts facts;
    std::string strName;
    bool bComplete = false;
    StandIn::eCorrection eWhat = StandIn::eNotHanded;
    std::string strWhy;  ///< why it is not corrected; empty: it is
};

/// An open camera.
/// @threads any; of those that need the stream (start, stop, fetch, record, close) one at a time, others wait. Who has
/// waited for a camera that was closed meanwhile is told so. Nothing here wants the interpreter's lock, and callers
/// must not hold it.
class CLiveCamera : public std::enable_shared_from_this<CLiveCamera> {
public:
    using Watch = std::function<void()>;  ///< what it throws ends the wait
    using Told = std::function<void(uint64_t iDone, uint64_t nAll)>;

    CLiveCamera(const std::string& strDevice, double dTimeoutS, std::size_t nBuffers);
    ~CLiveCamera();
    CLiveCamera(const CLiveCamera&) = delete;
    CLiveCamera& operator=(const CLiveCamera&) = delete;

    const std::string& device() const { return m_strDevice; }
    bool isOpen() const;
    bool isInherited() const;  ///< True in a process that fork() has made of the one that opened it.
    bool isRunning() const { return m_bRunning; }
    std::size_t bufferCount() { return session()->bufferCount(); }
    uint64_t underruns() { return session()->underruns(); }

    /// The camera's nodes, for as long as the session is held.
    std::shared_ptr<Toolkit::CSession> session() const;

    void start(uint64_t nFrames);
    void stop();
    LiveFrame fetch(const Watch& fnWatch);
    /// Ends every wait of a fetch that watches cancels().
    void cancel();
    uint64_t cancels() const { return m_nCancels; }
    void close();

    /// Corrects by this pair from now on. Frames that wait already are as they were.
    void correct(const Toolkit::PairOptions& rPair);
    void stopCorrecting();
    bool isCorrecting() const { return m_bCorrecting; }

    /// Records a reference; the correction is as it was then, also where it fails.
    /// @param[in] bKeepOutliers  what left the other frames stays in.
    Toolkit::Recording record(bool bLight, uint64_t nFrames, const std::string& strFile, bool bKeepOutliers,
                              const Watch& fnWatch, const Told& fnTold);

private:
    friend class CLease;
    class CStreamUse;
    void requireOwn() const;
    void giveBack(StandIn::BufferHandle hBuffer);
    void requireBuffers(Toolkit::CSession& rSession) const;
    void restoreCorrection(Toolkit::CSession& rSession);

    const std::string m_strDevice;
    const pid_t m_iProcess;  // of the threads that belong to the camera
    std::atomic<uint64_t> m_nCancels{0};
    std::atomic<bool> m_bRunning{false}, m_bCorrecting{false};

    std::atomic<std::thread::id> m_streamUser{};  // who has m_mtxStream
    std::mutex m_mtxStream;                       // one user of the stream at a time; taken before all others
    std::mutex m_mtxShading;                      // guards m_pair
    Toolkit::PairOptions m_pair;

    mutable std::mutex m_mtxSession;  // guards m_pSession; held for a copy
    std::shared_ptr<Toolkit::CSession> m_pSession;
};

}  // namespace Python
}  // namespace XAPEL2
