// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames that were fetched with correction on, and what became of them.

#include "toolkit/sessions/CorrectedStream.h"

#include <chrono>
#include <stdexcept>

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr uint64_t UNCORRECTED_FRAMES = 32;
constexpr std::chrono::seconds UNCORRECTED_LONGEST{1};
// So many frames are waited for, that the time of their fetch can be told; later ones are timed where they wait anyway.
constexpr std::size_t TIMED_FRAMES = 1000;

}  // namespace

CCorrectedStream::CCorrectedStream(CSession& rSession, bool bKeepRaw) : m_rSession(rSession), m_bKeepRaw(bKeepRaw) {}

void CCorrectedStream::measureUncorrected() {
    CTimes times;
    const Clock::time_point tBegin = Clock::now();
    m_rSession.start();
    while (times.count() < UNCORRECTED_FRAMES && Clock::now() - tBegin < UNCORRECTED_LONGEST) {
        m_rSession.waitForFrame();
        const StandIn::BufferHandle hBuffer = m_rSession.fetch();
        times.add(m_rSession.lastFetchMs());
        m_rSession.giveBack(hBuffer);
    }
    m_rSession.stop();
    m_dUncorrectedMs = times.median();
    m_tally.nUncorrected = times.count();
}

void CCorrectedStream::start(uint64_t iFirst, bool bTimed, uint64_t nFrames) {
    m_rSession.attempt("switching correction off", [&] { m_rSession.shading().SetEnable(false); });
    if (!m_bKeepRaw) {
        m_bTimed = bTimed;
        if (m_bTimed) {
            measureUncorrected();
        }
        m_rSession.attempt("switching correction on", [&] { m_rSession.shading().SetEnable(true); });
    }
    m_rSession.seekFrame(iFirst);
    m_tBegin = Clock::now();
    m_rSession.start(nFrames);
}

// Frames that a camera could not deliver whole count as one reason, whatever was wrong with each.
void CCorrectedStream::judge(Fetched& rFetched) const {
    const StandIn::eCorrection eWhat = m_rSession.correctionOf(rFetched.hBuffer);
    if (eWhat == StandIn::eCorrected) {
        return;
    }
    rFetched.strDetail = m_rSession.whyUncorrected(rFetched.hBuffer);
    rFetched.strUntouched = "incomplete, or without an image";
    if (m_rSession.isComplete(rFetched.hBuffer)) {
        rFetched.strUntouched = rFetched.strDetail;
        // Nothing else tells of a host that does not let the library see the stream.
        if (eWhat == StandIn::eNotHanded && m_tally.nCorrected == 0) {
            throw std::runtime_error("correction cannot be switched on: " + rFetched.strDetail);
        }
    }
}

void CCorrectedStream::correctInPlace(Fetched& rFetched) {
    rFetched.raw = m_rSession.copyFrame(rFetched.hBuffer);
    const StandIn::ImageLayout layout = m_rSession.layoutOf(rFetched.hBuffer);
    void* pImage = m_rSession.imageOf(rFetched.hBuffer);
    const Clock::time_point tBegin = Clock::now();
    m_rSession.attempt("correcting a frame", [&] {
        m_rSession.shading().ReferenceAdd(layout.pFormat->pName, layout.nWidth, layout.nHeight, pImage, layout.bytes());
    });
    m_tally.added.add(secondsSince(tBegin) * 1e3);
}

CCorrectedStream::Fetched CCorrectedStream::next() {
    Fetched result;
    const bool bTimed = m_bTimed && (m_tally.added.count() < TIMED_FRAMES || m_rSession.frameWaits());
    if (bTimed) {
        m_rSession.waitForFrame();
    }
    result.hBuffer = m_rSession.fetch();
    if (m_bKeepRaw && m_rSession.isComplete(result.hBuffer)) {
        correctInPlace(result);
    }
    judge(result);
    ++m_tally.nFrames;
    m_tally.dSeconds = secondsSince(m_tBegin);
    if (!result.strUntouched.empty()) {
        result.bNewReason = ++m_tally.mapUntouched[result.strUntouched] == 1;
        return result;
    }
    ++m_tally.nCorrected;
    if (bTimed) {
        m_tally.added.add(m_rSession.lastFetchMs() - m_dUncorrectedMs);
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
