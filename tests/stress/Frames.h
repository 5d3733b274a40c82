// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a frame looks like as a camera sends it, and after any facades have corrected it in any order.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Correction.h"

namespace XapelStress {

constexpr unsigned SLOTS = 3;  ///< facades that may be enabled on one camera at a time

typedef std::vector<uint16_t> Pixels;

/// How often the stream was started before, and the frame's index since. It stands in the first pixels as bits of value
/// 0 and full scale, which a correction without a dark reference does not change.
typedef std::pair<uint64_t, uint64_t> FrameName;

/// One frame in five arrives incomplete.
bool isIncomplete(uint64_t iFrame);

/// The frames of one camera and the gains of its facades.
class CFrames {
public:
    /// The size tells the cameras apart.
    explicit CFrames(unsigned iCamera);

    Pixels raw(const FrameName& rName) const;
    /// False when a bit of the name is torn.
    static bool readName(const Pixels& rPixels, FrameName& rName);
    /// The light reference that gives the facade in this slot its gains, up to 1.5.
    Pixels lightReference(unsigned iSlot) const;

    /// Asked whether slot iNext may correct after the slots of strSoFar ("02": 0, then 2), and, with SLOTS for iNext,
    /// whether nothing more is needed.
    typedef std::function<bool(const std::string& strSoFar, unsigned iNext)> Rule;
    /// The first allowed row of corrections that makes rSeen of rRaw; "torn" when there is none.
    std::string explain(const Pixels& rRaw, const Pixels& rSeen, const Rule& rRule,
                        const std::string& strSoFar = "") const;

    const XAPEL2::StandIn::ImageLayout m_layout;

private:
    const unsigned m_iCamera;
    std::array<std::unique_ptr<XAPEL2::StandIn::ICorrection>, SLOTS> m_aCorrections;
};

}  // namespace XapelStress
