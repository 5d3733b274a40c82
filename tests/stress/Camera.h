// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A camera under stress: its frames, as it sends them and after any facades have corrected them; its stream and
// buffers, its facades, and when these changed.

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "xapel2_standin/Host.h"

#include "standin/processor/correction/Correction.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XapelStress {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

constexpr unsigned SLOTS = 3;  ///< facades that may be enabled on one camera at a time

typedef std::vector<uint16_t> Pixels;

/// How often the stream was started before, and the frame's index since. It stands in the first pixels as bits of value
/// 0 and full scale, which a correction without a dark reference does not change.
typedef std::pair<uint64_t, uint64_t> FrameName;

// Half an image holds the name and some pixels more, so that an incomplete frame shows a correction too.
constexpr unsigned FRAME_BITS = 28, NAME_BITS = 52;
constexpr uint16_t FULL = 65535;

/// A number that looks random, below uEnd.
inline uint16_t number(uint64_t uKey, uint64_t i, unsigned uEnd) {
    uint64_t u = (uKey * 4096 + i + 1) * 0x9E3779B97F4A7C15U;
    u = (u ^ (u >> 29)) * 0xBF58476D1CE4E5B9U;
    return static_cast<uint16_t>((u ^ (u >> 32)) % uEnd);
}

/// One frame in five arrives incomplete.
inline bool isIncomplete(uint64_t iFrame) {
    return number(iFrame, 0, 5) == 0;
}

/// The frames of one camera and the gains of its facades.
class CFrames {
public:
    /// The size tells the cameras apart.
    explicit CFrames(unsigned iCamera) : m_layout{findPixelFormat("Mono16"), 16, 8 + iCamera}, m_iCamera(iCamera) {
        for (unsigned i = 0; i < SLOTS; ++i) {
            const std::vector<float> vecReference = lightReference(i);
            m_aCorrections[i] = makeCorrection(m_layout, nullptr, &vecReference);
        }
    }

    /// The light reference that gives the facade in this slot its gains, up to 1.5.
    std::vector<float> lightReference(unsigned iSlot) const {
        std::vector<float> vecLight(m_layout.samples());
        for (std::size_t i = 0; i < vecLight.size(); ++i) {
            vecLight[i] = static_cast<float>(20000 + number(m_iCamera * SLOTS + iSlot, i, 20000));
        }
        return vecLight;
    }

    Pixels raw(const FrameName& rName) const {
        const uint64_t uName = rName.first << FRAME_BITS | rName.second;
        Pixels vecPixels(m_layout.samples());
        for (std::size_t i = 0; i < vecPixels.size(); ++i) {
            vecPixels[i] = i >= NAME_BITS          ? static_cast<uint16_t>(2000 + number(uName + m_iCamera, i, 8000))
                           : (uName >> i & 1) != 0 ? FULL
                                                   : uint16_t{0};
        }
        return vecPixels;
    }

    /// False when a bit of the name is torn.
    static bool readName(const Pixels& rPixels, FrameName& rName) {
        uint64_t uName = 0;
        for (unsigned i = 0; i < NAME_BITS; ++i) {
            if (rPixels[i] != 0 && rPixels[i] != FULL) {
                return false;
            }
            uName |= static_cast<uint64_t>(rPixels[i] & 1) << i;
        }
        rName = {uName >> FRAME_BITS, uName & ((1U << FRAME_BITS) - 1)};
        return true;
    }

    /// Asked whether slot iNext may correct after the slots of strSoFar ("02": 0, then 2), and, with SLOTS for iNext,
    /// whether nothing more is needed.
    typedef std::function<bool(const std::string& strSoFar, unsigned iNext)> Rule;
    /// The first allowed row of corrections that makes rSeen of rRaw; "torn" when there is none.
    std::string explain(const Pixels& rRaw, const Pixels& rSeen, const Rule& rRule,
                        const std::string& strSoFar = "") const {
        if (rRaw == rSeen && rRule(strSoFar, SLOTS)) {
            return strSoFar;
        }
        std::string strFound = "torn";
        for (unsigned i = 0; i < SLOTS && strFound == "torn"; ++i) {
            if (!rRule(strSoFar, i)) {
                continue;
            }
            Pixels vecNext = rRaw;
            m_aCorrections[i]->correct(vecNext.data());
            strFound = explain(vecNext, rSeen, rRule, strSoFar + std::to_string(i));
        }
        return strFound;
    }

    const ImageLayout m_layout;

private:
    const unsigned m_iCamera;
    std::array<std::unique_ptr<ICorrection>, SLOTS> m_aCorrections;
};

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

constexpr unsigned BUFFERS = 8;
constexpr uint16_t WIPED = 0xA5A5;  ///< every pixel of a buffer that the camera has not written

class CCamera {
public:
    /// @param[in] bFacades  with facades in the first two slots for as long as it lives; otherwise hubs come and go.
    CCamera(unsigned iCamera, const std::string& strFolder, bool bFacades)
        : m_iCamera(iCamera),
          m_strName("camera " + std::to_string(iCamera)),
          m_bFacades(bFacades),
          m_frames(iCamera),
          m_pDevice(openDevice("sim:" + std::to_string(iCamera) + "?width=" + std::to_string(layout().nWidth) +
                               "&height=" + std::to_string(layout().nHeight) + "&format=" + layout().pFormat->pName)),
          m_pStream(firstDataStream(m_pDevice)) {
        remoteNodes(m_pDevice)->GetNode("StandInScene")->SetValue("Dark");  // the fastest; the content is replaced
        for (unsigned i = 0; i < SLOTS; ++i) {
            m_aReferences[i] = strFolder + "/" + std::to_string(iCamera) + std::to_string(i) + ".tif";
            writeReferenceFile(m_aReferences[i],
                               {eReferenceLight, layout(), 1, 0, 30000, 0, "", m_frames.lightReference(i)});
        }
        for (unsigned i = 0; bFacades && i < 2; ++i) {
            m_aSlots[i].pFacade = makeFacade(i);
        }
    }
    ~CCamera() {
        for (Slot& rSlot : m_aSlots) {
            rSlot.pFacade.reset();
        }
        closeDevice(m_pDevice);
    }
    CCamera(const CCamera&) = delete;
    CCamera& operator=(const CCamera&) = delete;

    /// A facade with the gains of the slot applied.
    std::unique_ptr<Shading> makeFacade(unsigned iSlot) const {
        auto pFacade = std::make_unique<Shading>(m_pDevice);
        pFacade->ReferenceLoad(true, m_aReferences[iSlot].c_str());
        pFacade->ReferenceApply();
        return pFacade;
    }

    /// Closes the stream, opens it, and starts it with fresh buffers. @return what went wrong, empty when nothing did.
    std::string reopen() {
        const CChanging stream(m_stream), ends(m_ends);
        // A participant makes the host close twice; a hub that comes to life opens what it finds closed.
        const int iClose = closeDataStream(m_pDevice, m_pStream), iOpen = openDataStream(m_pDevice, m_pStream);
        if ((iClose != GC_ERR_SUCCESS && iClose != GC_ERR_INVALID_HANDLE) ||
            (iOpen != GC_ERR_SUCCESS && iOpen != GC_ERR_RESOURCE_IN_USE)) {
            return "close " + std::to_string(iClose) + ", open " + std::to_string(iOpen);
        }
        ++m_uEpoch;
        for (unsigned i = 0; i < BUFFERS; ++i) {
            Pixels vecPixels(layout().samples(), WIPED);
            BufferHandle hBuffer = nullptr;
            if (announceBuffer(m_pStream, vecPixels.data(), layout().bytes(), &hBuffer) != GC_ERR_SUCCESS ||
                queueBuffer(m_pStream, hBuffer) != GC_ERR_SUCCESS) {
                return "buffers";
            }
            const std::lock_guard<std::mutex> lock(m_mtx);
            m_buffers[hBuffer] = std::move(vecPixels);
        }
        return startAcquisition(m_pStream, m_nFrames) == GC_ERR_SUCCESS ? "" : "start";
    }

    /// The same while no other thread is at work: what was delivered before is forgotten.
    std::string restart() {
        closeDataStream(m_pDevice, m_pStream);
        m_delivered.clear();
        m_buffers.clear();
        return reopen();
    }

    /// The pixels of a buffer; null when it is none of this camera. They outlive the opening of the stream.
    Pixels* pixelsOf(BufferHandle hBuffer) {
        const std::lock_guard<std::mutex> lock(m_mtx);
        const auto it = m_buffers.find(hBuffer);
        return it == m_buffers.end() ? nullptr : &it->second;
    }

    const ImageLayout& layout() const { return m_frames.m_layout; }

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

}  // namespace XapelStress
