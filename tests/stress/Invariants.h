// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What must hold under any load: checked on every fetch and its frame, after every episode, and at the end.

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Camera.h"

namespace XapelStress {

enum eFigure {
    // clang-format off
    eAsked, eAborted, eTimedOut, eRefused, eRaw, eCorrected, eSeveral, eIncomplete, eReopened, eCancels, eFilterCalls,
    eHooked, eHookedDelivered, eOverrunUs, eCancelUs, eListChangeUs, eEpisodes, eFrames, eListChanges, eHubLives,
    eBroken, eFigureCount
    // clang-format on
};
std::atomic<uint64_t>& figure(eFigure eWhich);
/// Keeps the longest time, in us.
void raiseFigure(eFigure eWhich, int64_t tUs);
void printFigures();

/// Says what is broken, and counts it.
void broken(const std::string& strWhere, const std::string& strWhat);

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
void checkFetch(CCamera& rCamera, const Fetch& rFetch);

typedef std::vector<std::unique_ptr<CCamera>> Cameras;

/// While no other thread is at work.
void checkEpisode(const Cameras& rCameras);

void checkRun();

}  // namespace XapelStress
