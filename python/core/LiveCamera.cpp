// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera whose frames outlive it: what Python's garbage collection asks for.

#include "python/core/LiveCamera.h"

#include <chrono>
#include <utility>

#include <unistd.h>

#include "toolkit/text/Errors.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Python {

namespace {

using Toolkit::CGenTlError;
using Toolkit::CSession;

constexpr unsigned LEAVING_MS = 5000;

/// Watches a session's waits as long as it lives.
class CWatched {
public:
    CWatched(CSession& rSession, const CLiveCamera::Watch& fnWatch) : m_rSession(rSession) {
        m_rSession.watchWaits(fnWatch);
    }
    ~CWatched() { m_rSession.watchWaits({}); }
    CWatched(const CWatched&) = delete;
    CWatched& operator=(const CWatched&) = delete;

private:
    CSession& m_rSession;
};

class CToldProgress : public Toolkit::IProgress {
public:
    CToldProgress(const CLiveCamera::Watch& fnWatch, const CLiveCamera::Told& fnTold)
        : m_fnWatch(fnWatch), m_fnTold(fnTold) {}
    void show(const std::string&, uint64_t iDone, uint64_t nAll, const std::string&) override {
        m_fnWatch();
        if (m_fnTold) {
            m_fnTold(iDone, nAll);
        }
    }
    void clear() override {}

private:
    const CLiveCamera::Watch& m_fnWatch;
    const CLiveCamera::Told& m_fnTold;
};

LiveFrame describe(CSession& rSession, StandIn::BufferHandle hBuffer) {
    LiveFrame frame;
    frame.facts = rSession.factsOf(hBuffer);
    frame.strName = rSession.frameName(hBuffer);
    frame.bComplete = rSession.isComplete(hBuffer);
    frame.eWhat = rSession.correctionOf(hBuffer);
    frame.strWhy = rSession.whyUncorrected(hBuffer);
    if (rSession.hasImage(hBuffer)) {
        frame.layout = rSession.layoutOf(hBuffer);
        frame.pImage = rSession.imageOf(hBuffer);
    }
    return frame;
}

}  // namespace

/// The one who uses the stream. From inside its use, as by who is told of a recording's progress, there is no other.
/// The session is asked for when the lock is held, and given up before it is: the camera may be closed while one waits.
class CLiveCamera::CStreamUse {
public:
    explicit CStreamUse(CLiveCamera& rCamera) : m_rCamera(rCamera) {
        requireOther(rCamera);
        m_rCamera.m_mtxStream.lock();
        m_rCamera.m_streamUser = std::this_thread::get_id();
    }
    ~CStreamUse() {
        m_rCamera.m_streamUser = std::thread::id();
        m_rCamera.m_mtxStream.unlock();
    }
    CStreamUse(const CStreamUse&) = delete;
    CStreamUse& operator=(const CStreamUse&) = delete;

    // Before a lock is waited for: what fork() has left locked stays so.
    static void requireOther(const CLiveCamera& rCamera) {
        rCamera.requireOwn();
        if (rCamera.m_streamUser.load() == std::this_thread::get_id()) {
            throw CGenTlError(GC_ERR_RESOURCE_IN_USE, rCamera.m_strDevice + ": the camera is recording");
        }
    }

private:
    CLiveCamera& m_rCamera;
};

CLease::CLease(const std::shared_ptr<CLiveCamera>& rpCamera, StandIn::BufferHandle hBuffer,
               std::shared_ptr<const void> pMemory)
    : m_pCamera(rpCamera), m_hBuffer(hBuffer), m_pMemory(std::move(pMemory)) {}

CLease::~CLease() {
    const std::shared_ptr<CLiveCamera> pCamera = m_pCamera.lock();
    if (pCamera) {
        pCamera->giveBack(m_hBuffer);
    }
}

CLiveCamera::CLiveCamera(const std::string& strDevice, double dTimeoutS, std::size_t nBuffers)
    : m_strDevice(strDevice),
      m_iProcess(getpid()),
      m_pSession(std::make_shared<CSession>(
          strDevice, [&] { return StandIn::openDevice(strDevice); }, dTimeoutS, nBuffers)) {}

// The threads of the camera, which its end waits for, are not there in a process that fork() made.
CLiveCamera::~CLiveCamera() {
    if (isInherited()) {
        new std::shared_ptr<CSession>(std::move(m_pSession));
    }
}

bool CLiveCamera::isInherited() const {
    return getpid() != m_iProcess;
}

bool CLiveCamera::isOpen() const {
    if (isInherited()) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mtxSession);
    return m_pSession != nullptr;
}

void CLiveCamera::requireOwn() const {
    if (isInherited()) {
        throw CGenTlError(GC_ERR_INVALID_HANDLE, m_strDevice + ": the camera belongs to the process that opened it");
    }
}

std::shared_ptr<CSession> CLiveCamera::session() const {
    requireOwn();
    const std::lock_guard<std::mutex> lock(m_mtxSession);
    if (!m_pSession) {
        throw CGenTlError(GC_ERR_INVALID_HANDLE, m_strDevice + ": the camera is closed");
    }
    return m_pSession;
}

void CLiveCamera::start(uint64_t nFrames) {
    const CStreamUse use(*this);
    const auto pSession = session();
    if (m_bRunning) {
        throw CGenTlError(GC_ERR_RESOURCE_IN_USE, m_strDevice + ": the camera runs already");
    }
    try {
        pSession->start(nFrames);
    } catch (...) {
        // Those that are queued by now must not stay so.
        pSession->stop();
        throw;
    }
    m_bRunning = true;
}

void CLiveCamera::stop() {
    const CStreamUse use(*this);
    const auto pSession = session();
    pSession->stop();
    m_bRunning = false;
}

void CLiveCamera::requireBuffers(CSession& rSession) const {
    if (rSession.heldCount() >= rSession.bufferCount()) {
        throw CGenTlError(
            GC_ERR_RESOURCE_IN_USE,
            m_strDevice + ": " +
                (rSession.bufferCount() == 1 ? "its only buffer is"
                                             : "all " + std::to_string(rSession.bufferCount()) + " buffers are") +
                " held by frames; release frames, copy their arrays, or open the camera with more buffers");
    }
}

LiveFrame CLiveCamera::fetch(const Watch& fnWatch) {
    const CStreamUse use(*this);
    const auto pSession = session();
    if (!m_bRunning) {
        throw CGenTlError(GC_ERR_NO_DATA, m_strDevice + ": the camera does not run; start() it");
    }
    requireBuffers(*pSession);
    const CWatched watched(*pSession, fnWatch);
    const StandIn::BufferHandle hBuffer = pSession->fetch();
    pSession->hold(hBuffer);
    const auto pLease = std::make_shared<CLease>(shared_from_this(), hBuffer, pSession->memoryOf(hBuffer));
    LiveFrame frame = describe(*pSession, hBuffer);
    frame.pLease = pLease;
    return frame;
}

void CLiveCamera::cancel() {
    const auto pSession = session();
    ++m_nCancels;
    StandIn::cancelGetFilledBuffer(pSession->stream());
}

void CLiveCamera::giveBack(StandIn::BufferHandle hBuffer) {
    if (isInherited()) {
        return;
    }
    std::shared_ptr<CSession> pSession;
    {
        const std::lock_guard<std::mutex> lock(m_mtxSession);
        pSession = m_pSession;
    }
    if (!pSession) {
        return;
    }
    try {
        pSession->giveBack(hBuffer);
    } catch (const std::exception&) {
        // The camera is lost, and the next fetch tells so.
    }
}

void CLiveCamera::close() {
    if (isInherited()) {
        return;
    }
    CStreamUse::requireOther(*this);
    std::shared_ptr<CSession> pSession;
    {
        const std::lock_guard<std::mutex> lock(m_mtxSession);
        pSession = std::move(m_pSession);
        m_pSession.reset();
    }
    if (!pSession) {
        return;
    }
    ++m_nCancels;
    StandIn::cancelGetFilledBuffer(pSession->stream());
    const CStreamUse use(*this);
    const std::lock_guard<std::mutex> shadingLock(m_mtxShading);
    m_bRunning = false;
    m_bCorrecting = false;
    // Whoever reads a node or gives a buffer back is about to leave: the camera is another's when this returns.
    for (unsigned i = 0; pSession.use_count() > 1 && i < LEAVING_MS; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pSession.reset();
}

void CLiveCamera::correct(const Toolkit::PairOptions& rPair) {
    CStreamUse::requireOther(*this);
    const std::lock_guard<std::mutex> lock(m_mtxShading);
    const auto pSession = session();
    m_bCorrecting = false;
    Toolkit::applyPair(*pSession, rPair);
    pSession->attempt("switching correction on", [&] { pSession->shading().SetEnable(true); });
    m_pair = rPair;
    m_bCorrecting = true;
}

void CLiveCamera::stopCorrecting() {
    CStreamUse::requireOther(*this);
    const std::lock_guard<std::mutex> lock(m_mtxShading);
    const auto pSession = session();
    pSession->attempt("switching correction off", [&] { pSession->shading().SetEnable(false); });
    m_bCorrecting = false;
}

// The caller holds m_mtxShading.
void CLiveCamera::restoreCorrection(CSession& rSession) {
    const bool bWanted = m_bCorrecting.exchange(false);
    rSession.attempt("clearing the references", [&] { rSession.shading().ReferenceClear(); });
    if (bWanted) {
        Toolkit::applyPair(rSession, m_pair);
        rSession.attempt("switching correction on", [&] { rSession.shading().SetEnable(true); });
        m_bCorrecting = true;
    }
}

Toolkit::Recording CLiveCamera::record(bool bLight, uint64_t nFrames, const std::string& strFile, bool bKeepOutliers,
                                       const Watch& fnWatch, const Told& fnTold) {
    const CStreamUse use(*this);
    const auto pSession = session();
    if (m_bRunning) {
        throw CGenTlError(GC_ERR_RESOURCE_IN_USE, m_strDevice + ": the camera runs; stop() it to record");
    }
    requireBuffers(*pSession);
    const std::lock_guard<std::mutex> shadingLock(m_mtxShading);
    const CWatched watched(*pSession, fnWatch);
    CToldProgress progress(fnWatch, fnTold);
    Toolkit::Recording result;
    try {
        result = Toolkit::recordReference(*pSession, bLight, nFrames, strFile, progress, bKeepOutliers);
    } catch (...) {
        try {
            pSession->stop();
            restoreCorrection(*pSession);
        } catch (const std::exception&) {
            // Why the recording failed is told; whether frames are corrected, isCorrecting() tells.
        }
        throw;
    }
    try {
        restoreCorrection(*pSession);
    } catch (const std::exception&) {
        // The recording is good; whether frames are corrected, isCorrecting() tells.
    }
    return result;
}

}  // namespace Python
}  // namespace XAPEL2
