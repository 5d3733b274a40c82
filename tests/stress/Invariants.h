// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What must hold under any load: checked on every fetch and its frame, after every episode, and at the end.

#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "standin/host/testing/Control.h"

#include "Camera.h"

namespace XapelStress {

constexpr uint64_t LONGEST_US = 2000000;

enum eFigure {
    // clang-format off
    eAsked, eAborted, eTimedOut, eRefused, eRaw, eCorrected, eIncomplete, eHooked, eHookedDelivered, eOverrunUs,
    eCancelUs, eListChangeUs, eFrames, eListChanges, eHubLives, eBroken, eFigureCount
    // clang-format on
};
// clang-format off
const char* const FIGURES[] = {
    "fetches_asked", "aborted", "timed_out", "refused_stream_closed", "raw", "corrected", "incomplete",
    "hooked_fetches", "hooked_fetches_that_delivered_at_least", "longest_overrun_of_a_timeout_us",
    "longest_from_cancel_to_end_us", "longest_list_change_us", "frames", "list_changes", "hub_lives",
    "broken_invariants"};
// clang-format on
static_assert(sizeof(FIGURES) / sizeof(FIGURES[0]) == eFigureCount, "one name for each figure");

inline std::atomic<uint64_t>& figure(eFigure eWhich) {
    static std::array<std::atomic<uint64_t>, eFigureCount> s_aFigures{};
    return s_aFigures[eWhich];
}

/// Keeps the longest time, in us.
inline void raiseFigure(eFigure eWhich, int64_t tUs) {
    const uint64_t uNew = tUs < 0 ? 0 : static_cast<uint64_t>(tUs);
    uint64_t uOld = figure(eWhich);
    while (uOld < uNew && !figure(eWhich).compare_exchange_weak(uOld, uNew)) {
    }
}

inline void printFigures() {
    for (unsigned i = 0; i < eFigureCount; ++i) {
        std::printf("%s %llu\n", FIGURES[i], static_cast<unsigned long long>(figure(static_cast<eFigure>(i))));
    }
}

/// Says what is broken, and counts it.
inline void broken(const std::string& strWhere, const std::string& strWhat) {
    if (++figure(eBroken) <= 20) {
        std::fprintf(stderr, "broken: %s: %s\n", strWhere.c_str(), strWhat.c_str());
    }
}

/// What is seen of a camera from outside.
struct CameraLook {
    explicit CameraLook(const CCamera& r)
        : aSlots{SlotLook(r.m_aSlots[0]), SlotLook(r.m_aSlots[1]), SlotLook(r.m_aSlots[2])},
          stream(r.m_stream),
          ends(r.m_ends) {}
    std::array<SlotLook, SLOTS> aSlots;
    ChangeLook stream, ends;
};

/// One fetch of an application, with looks at its camera before and after.
struct Fetch {
    CameraLook before, after;
    int64_t tBegan, tEnded, tFirstCancel;  // us; 0: no cancel meanwhile
    unsigned long long iTimeoutMs;
    int iResult;
    BufferHandle hBuffer;
};

/// Rows of corrections that agree with what is known of the slots: a facade that was on all the time has corrected, one
/// that was off all the time has not, one that was switched meanwhile may have; each once, and in the order of their
/// registrations as far as that is known.
inline CFrames::Rule known(const CCamera& rCamera, const Fetch& rFetch) {
    // While its stream is being opened, a hub has no hooks on it.
    const bool bHooked = rFetch.before.stream.isStillIn(rFetch.after.stream) && !rCamera.m_bHubMissesOpening;
    return [&rFetch, bHooked](const std::string& strSoFar, unsigned iNext) {
        const auto& rSlots = rFetch.before.aSlots;
        const auto fnIn = [&](unsigned i) { return strSoFar.find(std::to_string(i)) != std::string::npos; };
        const auto fnStill = [&](unsigned i) { return rSlots[i].change.isStillIn(rFetch.after.aSlots[i].change); };
        bool bAllowed = iNext == SLOTS || (!fnIn(iNext) && (rSlots[iNext].bOn || !fnStill(iNext)));
        for (unsigned i = 0; i < SLOTS; ++i) {
            const bool bMissing = iNext == SLOTS && bHooked && fnStill(i) && rSlots[i].bOn && !fnIn(i);
            const bool bTooLate = iNext != SLOTS && fnIn(i) && fnStill(i) && fnStill(iNext) &&
                                  rSlots[iNext].uEntered < rSlots[i].uEnterBegan;
            bAllowed = bAllowed && !bMissing && !bTooLate;
        }
        return bAllowed;
    };
}

inline void checkPixels(const CCamera& rCamera, const Fetch& rFetch, const FrameName& rName, const Pixels& rSeen) {
    Pixels vecExpected = rCamera.m_frames.raw(rName);
    const bool bIncomplete = isIncomplete(rName.second);
    if (bIncomplete) {
        std::fill(vecExpected.begin() + static_cast<std::ptrdiff_t>(vecExpected.size() / 2), vecExpected.end(), WIPED);
    }
    const CFrames::Rule rule =
        bIncomplete ? [](const std::string&, unsigned iNext) { return iNext == SLOTS; } : known(rCamera, rFetch);
    const std::string strSlots = rCamera.m_frames.explain(vecExpected, rSeen, rule);
    if (strSlots == "torn") {
        std::string strText = bIncomplete ? "an incomplete frame was changed, facades" : "a frame is torn, facades";
        for (const SlotLook& r : rFetch.before.aSlots) {
            strText += r.bOn ? " on" : " off";
        }
        broken(rCamera.m_strName, strText);
    }
    ++figure(bIncomplete ? eIncomplete : strSlots.empty() ? eRaw : eCorrected);
}

inline void checkFrame(CCamera& rCamera, const Fetch& rFetch) {
    const Pixels* pSeen = rCamera.pixelsOf(rFetch.hBuffer);
    FrameName frame;
    if (pSeen == nullptr || !CFrames::readName(*pSeen, frame)) {
        return broken(rCamera.m_strName, "a buffer holds no frame of this camera");
    }
    checkPixels(rCamera, rFetch, frame, *pSeen);
    const std::lock_guard<std::mutex> lock(rCamera.m_mtx);
    if (!rCamera.m_delivered[frame.first].insert(frame.second).second) {
        broken(rCamera.m_strName, "a frame was delivered twice");
    }
}

inline void checkFetch(CCamera& rCamera, const Fetch& rFetch) {
    const auto fnUnlessChanged = [&](ChangeLook CameraLook::*pWhat, const char* pText) {
        if ((rFetch.before.*pWhat).isStillIn(rFetch.after.*pWhat)) {
            broken(rCamera.m_strName, pText);
        }
    };
    const auto tTimeout = static_cast<int64_t>(rFetch.iTimeoutMs) * 1000;
    const int64_t tTook = rFetch.tEnded - rFetch.tBegan;
    ++figure(eAsked);
    switch (rFetch.iResult) {
        case GC_ERR_SUCCESS:
            ++figure(eFrames);
            checkFrame(rCamera, rFetch);
            break;
        case GC_ERR_ABORT:
            ++figure(eAborted);
            fnUnlessChanged(&CameraLook::ends, "a fetch was aborted by nobody");
            break;
        case GC_ERR_TIMEOUT:
            ++figure(eTimedOut);
            if (rFetch.iTimeoutMs == TIMEOUT_INFINITE || tTook < tTimeout) {
                broken(rCamera.m_strName, "a fetch timed out too early");
            }
            break;
        case GC_ERR_INVALID_HANDLE:
            ++figure(eRefused);
            fnUnlessChanged(&CameraLook::stream, "a fetch was refused by an open stream");
            break;
        default:
            broken(rCamera.m_strName, "a fetch returned " + std::to_string(rFetch.iResult));
    }
    if (rFetch.iResult != GC_ERR_SUCCESS && rFetch.hBuffer != nullptr) {
        broken(rCamera.m_strName, "a fetch that failed delivered a buffer");
    }
    if (rFetch.iTimeoutMs != TIMEOUT_INFINITE) {
        raiseFigure(eOverrunUs, tTook - tTimeout);
    }
    if (rFetch.tFirstCancel != 0) {
        raiseFigure(eCancelUs, rFetch.tEnded - rFetch.tFirstCancel);
    }
}

/// Incomplete buffers are traced, and a buffer whose stream is closed while it is corrected has lost its format.
inline bool isExpectedTrace(const Control::TraceLine& rLine) {
    static const std::string s_strLost = "ImageProcessor; image left untouched; the image is impossible; image  ";
    return rLine.iLevel != 2 || rLine.strText.compare(0, s_strLost.size(), s_strLost) == 0 ||
           rLine.strText == "Extended-API;CVexShadingObj; extended_useFilledBuffer; invalid Buffer;";
}

/// No frame may be missing among those that were delivered.
inline void checkDelivered(CCamera& rCamera) {
    uint64_t nDelivered = 0;
    unsigned long long nSize = sizeof(nDelivered);
    getStreamInfo(rCamera.m_pStream, STREAM_INFO_NUM_DELIVERED, nullptr, &nDelivered, &nSize);
    if (rCamera.m_delivered[rCamera.m_uEpoch].size() != nDelivered) {
        broken(rCamera.m_strName, "the stream has delivered another number of frames");
    }
    for (const auto& rEpoch : rCamera.m_delivered) {
        if (!rEpoch.second.empty() && *rEpoch.second.rbegin() + 1 != rEpoch.second.size()) {
            broken(rCamera.m_strName, "a frame was lost");
        }
    }
}

typedef std::vector<std::unique_ptr<CCamera>> Cameras;

/// While no other thread is at work.
inline void checkEpisode(const Cameras& rCameras) {
    std::size_t nHooks = 0;
    for (const auto& rpCamera : rCameras) {
        checkDelivered(*rpCamera);
        nHooks += rpCamera->m_bFacades ? 5U : 0U;
    }
    if (Control::liveHooks() != nHooks) {
        broken("host", std::to_string(Control::liveHooks()) + " hooks are left");
    }
    for (const Control::TraceLine& rLine : Control::traces()) {
        if (!isExpectedTrace(rLine)) {
            broken("trace", rLine.strText);
        }
    }
    Control::recordTraces(true);
}

inline void checkRun() {
    const uint64_t nFailed = figure(eAborted) + figure(eTimedOut) + figure(eRefused);
    if (figure(eFrames) + nFailed != figure(eAsked)) {
        broken("run", "not every fetch is accounted for");
    }
    // The library calls the host's own fetch once for each intercepted one. Those that failed may have been others.
    figure(eHooked) = Control::calls(Control::eHostFetch);
    figure(eHookedDelivered) = figure(eHooked) - std::min<uint64_t>(figure(eHooked), nFailed);
    figure(eHubLives) = Control::calls(Control::eRegisterOpen);
    if (figure(eHookedDelivered) < figure(eHooked) / 2) {
        broken("run", "less than half of the intercepted fetches delivered a frame");
    }
    for (const eFigure eWhich : {eOverrunUs, eCancelUs, eListChangeUs}) {
        if (figure(eWhich) >= LONGEST_US) {
            broken("run", std::string(FIGURES[eWhich]) + " is too long");
        }
    }
}

}  // namespace XapelStress
