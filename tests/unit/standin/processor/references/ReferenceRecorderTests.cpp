// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Recordings against plain sums.

#include "standin/processor/references/ReferenceRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "Targets.h"
#include "TestImages.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// Records nImages images that take turns with one another, the last one being at full scale.
void checkRecording(const ImageLayout& rLayout, uint64_t nImages) {
    const uint32_t uFull = rLayout.pFormat->fullScale();
    const std::size_t nSamples = rLayout.samples();
    std::mt19937 oRandom(7);
    std::vector<std::vector<uint16_t>> vImages(3, std::vector<uint16_t>(nSamples, static_cast<uint16_t>(uFull)));
    for (std::size_t i = 0; i < 2 * nSamples; ++i)
        vImages[i / nSamples][i % nSamples] = static_cast<uint16_t>(oRandom() % 7 == 0 ? uFull : oRandom() & uFull);
    vImages[0][nSamples / 2] = 0;

    CReferenceRecorder oRecorder(eReferenceLight);
    for (uint64_t n = 0; n < nImages; ++n) {
        std::vector<uint16_t> vSent = vImages[n % 3];
        // Bits that are none of the sample's: the sample counts as full scale.
        if (rLayout.pFormat->nWireBits == 16)
            std::replace(vSent.begin(), vSent.end(), static_cast<uint16_t>(uFull), uint16_t{0xFFFF});
        std::vector<uint8_t> vImage = pack(rLayout, vSent);
        vImage.insert(vImage.begin(), 0);  // an odd address
        oRecorder.add(rLayout, vImage.data() + 1);
    }

    double dMean = 0.0;
    double dVariance = 0.0;
    double dSaturated = 0.0;
    const double dImages = static_cast<double>(nImages);
    const ReferenceImage sReference = oRecorder.reference();
    for (std::size_t i = 0; i < nSamples; ++i) {
        uint64_t aCounts[3];
        uint64_t uSum = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            aCounts[k] = (nImages + 2 - k) / 3;
            uSum += aCounts[k] * vImages[k][i];
            dSaturated += vImages[k][i] == uFull ? static_cast<double>(aCounts[k]) : 0.0;
        }
        const double dHere = static_cast<double>(uSum) / dImages;
        ASSERT_EQ(sReference.vSamples[i], static_cast<float>(dHere)) << i;
        dMean += dHere;
        for (std::size_t k = 0; k < 3; ++k)
            dVariance += static_cast<double>(aCounts[k]) * std::pow(vImages[k][i] - dHere, 2) / (dImages - 1.0);
    }
    const double dSamples = static_cast<double>(nSamples);
    EXPECT_NEAR(sReference.dMean, dMean / dSamples, 1e-9 * uFull);
    EXPECT_NEAR(sReference.dTemporalNoise, std::sqrt(dVariance / dSamples), 1e-9 * uFull);
    EXPECT_NEAR(sReference.dSaturatedShare, dSaturated / dSamples / dImages, 1e-12);
}

TEST(ReferenceRecorder, CountsEverySampleOfEveryImage) {
    struct Case {
        const char* pFormat;
        uint64_t nWidth, nHeight, nImages;
    };
    // Odd sizes for the rests of vectors; a large one, whose squares overflow 32 bits; many images, whose sums do 16
    // bits three times, and 32 bits.
    for (const Case& r :
         {Case{"Mono8", 1, 1, 2}, Case{"Mono8", 133, 3, 4}, Case{"Mono12", 67, 5, 4}, Case{"RGB8", 31, 3, 5},
          Case{"Mono16", 131, 3, 5}, Case{"Mono12p", 97, 51, 4}, Case{"BayerRG10p", 89, 53, 5},
          Case{"Mono8", 1024, 1100, 3}, Case{"Mono8", 9, 7, 1000}, Case{"Mono16", 3, 1, 200000}}) {
        SCOPED_TRACE(std::string(r.pFormat) + " " + std::to_string(r.nWidth) + "x" + std::to_string(r.nHeight));
        if (r.nImages < 10)
            forEachTarget([&] { checkRecording(layout(r.pFormat, r.nWidth, r.nHeight), r.nImages); });
        else
            checkRecording(layout(r.pFormat, r.nWidth, r.nHeight), r.nImages);
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
