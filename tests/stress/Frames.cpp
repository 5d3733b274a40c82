// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames and their corrections, as the image processor's own formula gives them.

#include "Frames.h"

namespace XapelStress {

namespace {

// Half an image holds the name and some pixels more, so that an incomplete frame shows a correction too.
constexpr unsigned FRAME_BITS = 28, NAME_BITS = 52;
constexpr uint16_t FULL = 65535;

/// A number that looks random, below uEnd.
uint16_t number(uint64_t uKey, uint64_t i, unsigned uEnd) {
    uint64_t u = (uKey * 4096 + i + 1) * 0x9E3779B97F4A7C15U;
    u = (u ^ (u >> 29)) * 0xBF58476D1CE4E5B9U;
    return static_cast<uint16_t>((u ^ (u >> 32)) % uEnd);
}

}  // namespace

bool isIncomplete(uint64_t iFrame) {
    return number(iFrame, 0, 5) == 0;
}

CFrames::CFrames(unsigned iCamera)
    : m_layout{XAPEL2::StandIn::findPixelFormat("Mono16"), 16, 8 + iCamera}, m_iCamera(iCamera) {
    for (unsigned i = 0; i < SLOTS; ++i) {
        const Pixels light = lightReference(i);
        const std::vector<float> reference(light.begin(), light.end());
        m_aCorrections[i] = XAPEL2::StandIn::makeCorrection(m_layout, nullptr, &reference);
    }
}

Pixels CFrames::lightReference(unsigned iSlot) const {
    Pixels light(m_layout.samples());
    for (std::size_t i = 0; i < light.size(); ++i)
        light[i] = static_cast<uint16_t>(20000 + number(m_iCamera * SLOTS + iSlot, i, 20000));
    return light;
}

Pixels CFrames::raw(const FrameName& rName) const {
    const uint64_t uName = rName.first << FRAME_BITS | rName.second;
    Pixels pixels(m_layout.samples());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = i >= NAME_BITS          ? static_cast<uint16_t>(2000 + number(uName + m_iCamera, i, 8000))
                    : (uName >> i & 1) != 0 ? FULL
                                            : uint16_t{0};
    }
    return pixels;
}

bool CFrames::readName(const Pixels& rPixels, FrameName& rName) {
    uint64_t uName = 0;
    for (unsigned i = 0; i < NAME_BITS; ++i) {
        if (rPixels[i] != 0 && rPixels[i] != FULL)
            return false;
        uName |= static_cast<uint64_t>(rPixels[i] & 1) << i;
    }
    rName = {uName >> FRAME_BITS, uName & ((1U << FRAME_BITS) - 1)};
    return true;
}

std::string CFrames::explain(const Pixels& rRaw, const Pixels& rSeen, const Rule& rRule,
                             const std::string& strSoFar) const {
    if (rRaw == rSeen && rRule(strSoFar, SLOTS))
        return strSoFar;
    std::string strFound = "torn";
    for (unsigned i = 0; i < SLOTS && strFound == "torn"; ++i) {
        if (!rRule(strSoFar, i))
            continue;
        Pixels next = rRaw;
        m_aCorrections[i]->correct(next.data());
        strFound = explain(next, rSeen, rRule, strSoFar + std::to_string(i));
    }
    return strFound;
}

}  // namespace XapelStress
