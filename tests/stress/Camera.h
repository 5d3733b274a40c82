// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera under stress: its stream and buffers, its facades, and when these changed.

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "xapel2_standin/Host.h"

#include "Frames.h"
#include "xapel2_ext_sc.h"

namespace XapelStress {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

/// Something that changes now and then. Whoever looks before and after a call knows whether it changed meanwhile.
struct Change {
    std::atomic<uint64_t> uBegun{0}, uEnded{0};
};
struct ChangeLook {
    // The ends are read first: when both agree, no change was under way at that moment.
    explicit ChangeLook(const Change& r) : uEnded(r.uEnded), uBegun(r.uBegun) {}
    bool isStillIn(const ChangeLook& rLater) const { return uEnded == uBegun && rLater.uBegun == uBegun; }
    uint64_t uEnded, uBegun;
};
class CChanging {
public:
    explicit CChanging(Change& rChange) : m_rChange(rChange) { ++rChange.uBegun; }
    ~CChanging() { ++m_rChange.uEnded; }
    CChanging(const CChanging&) = delete;
    CChanging& operator=(const CChanging&) = delete;

private:
    Change& m_rChange;
};

/// A facade of the camera, or the place for one.
struct Slot {
    std::unique_ptr<Shading> pFacade;  // of the thread that has the slot in an episode
    Change change;
    std::atomic<bool> bOn{false};
    std::atomic<uint64_t> uEnterBegan{0}, uEntered{0};  // ticks before and after it was enabled last
};
struct SlotLook {
    explicit SlotLook(const Slot& r) : change(r.change), bOn(r.bOn), uEnterBegan(r.uEnterBegan), uEntered(r.uEntered) {}
    ChangeLook change;
    bool bOn;
    uint64_t uEnterBegan, uEntered;
};

class CCamera {
public:
    /// @param[in] bFacades  with facades in the first two slots for as long as it lives; otherwise hubs come and go.
    CCamera(unsigned iCamera, const std::string& strFolder, bool bFacades);
    ~CCamera();
    CCamera(const CCamera&) = delete;
    CCamera& operator=(const CCamera&) = delete;

    /// Closes the stream, opens it, and starts it with fresh buffers. @return what went wrong, empty when nothing did.
    std::string reopen();
    /// The same while no other thread is at work: what was delivered before is forgotten.
    std::string restart();
    /// A facade with the gains of the slot applied.
    std::unique_ptr<Shading> makeFacade(unsigned iSlot) const;
    /// The pixels of a buffer; null when it is none of this camera. They outlive the opening of the stream.
    Pixels* pixelsOf(BufferHandle hBuffer);

    const unsigned m_iCamera;
    const std::string m_strName;
    const bool m_bFacades;
    const CFrames m_frames;
    XAPEL2::Device* const m_pDevice;
    XAPEL2::DataStream* const m_pStream;
    std::array<std::string, SLOTS> m_aReferences;  // files
    std::array<Slot, SLOTS> m_aSlots;
    Change m_stream;                                        // closed and opened
    Change m_ends;                                          // anything that ends a waiting fetch
    std::array<std::atomic<int64_t>, 2> m_atFirstCancel{};  // us, since the fetch began; 0: none
    std::atomic<uint64_t> m_uEpoch{0};                      // starts of the stream
    /// For an episode: frames of each start.
    uint64_t m_nFrames = ~0ULL;
    /// For an episode: a hub may come to life while the stream is opened, and stand without hooks on it.
    bool m_bHubMissesOpening = false;

    std::mutex m_mtx;                                    // guards the members below
    std::map<uint64_t, std::set<uint64_t>> m_delivered;  // frames by epoch

private:
    std::map<BufferHandle, Pixels> m_buffers;
};

/// Value of every pixel of a buffer that the camera has not written.
constexpr uint16_t WIPED = 0xA5A5;

}  // namespace XapelStress
