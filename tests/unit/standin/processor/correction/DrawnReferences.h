// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References and images drawn at random, and what correction makes of them.

#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "TestImages.h"
#include "standin/processor/correction/Correction.h"

namespace XAPEL2 {
namespace StandIn {

/// Marks of the pixels of an image, 0 for a good one.
using Map = std::vector<uint8_t>;

struct References {
    std::vector<float> vecDark, vecLight;
};

/// Darks from dDark to twice that, gains from about 0.8 to dGains, all in shares of full scale.
inline References draw(const ImageLayout& rLayout, double dDark, double dGains) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> d01(0.0, 1.0);
    References references;
    const double dFull = rLayout.pFormat->fullScale();
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        const double d = dFull * dDark * (1.0 + d01(random));
        references.vecDark.push_back(static_cast<float>(d));
        references.vecLight.push_back(static_cast<float>(d + dFull * 0.7 / (1.0 + (dGains - 1.0) * d01(random))));
    }
    return references;
}

inline std::vector<uint16_t> corrected(const ImageLayout& rLayout, const References& rReferences,
                                       const CorrectionOutput& rOutput, const std::vector<uint16_t>& rIn,
                                       const char* pTarget = nullptr) {
    std::vector<uint8_t> vecImage = pack(rLayout, rIn);
    makeCorrection(rLayout, &rReferences.vecDark, &rReferences.vecLight, pTarget, rOutput)->correct(vecImage.data());
    return unpack(rLayout, vecImage);
}

inline std::vector<uint16_t> randomImage(const ImageLayout& rLayout, std::mt19937& rRandom) {
    std::vector<uint16_t> vecSamples(rLayout.samples());
    for (std::size_t i = 0; i < vecSamples.size(); ++i) {
        const uint32_t uFull = rLayout.pFormat->fullScale();
        const uint32_t uAny = static_cast<uint32_t>(rRandom()) % (uFull + 1);
        vecSamples[i] = static_cast<uint16_t>(i % 11 == 0 ? uFull : i % 3 == 0 ? uAny / 16 : uAny);
    }
    return vecSamples;
}

}  // namespace StandIn
}  // namespace XAPEL2
