// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Recordings against plain sums.

#include "standin/processor/references/ReferenceRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <tuple>

#include "Targets.h"
#include "TestImages.h"
#include "standin/processor/references/ReferenceDescription.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// Records nImages images that take turns with one another, the last one being at full scale.
void checkRecording(const ImageLayout& rLayout, uint64_t nImages) {
    const uint32_t uFull = rLayout.pFormat->fullScale();
    const std::size_t nSamples = rLayout.samples();
    std::mt19937 oRandom(7);
    std::vector<std::vector<uint16_t>> vecImages(3, std::vector<uint16_t>(nSamples, static_cast<uint16_t>(uFull)));
    for (std::size_t i = 0; i < 2 * nSamples; ++i) {
        vecImages[i / nSamples][i % nSamples] = static_cast<uint16_t>(oRandom() % 7 == 0 ? uFull : oRandom() & uFull);
    }
    vecImages[0][nSamples / 2] = 0;

    uint32_t uLargest = 0;
    for (std::size_t k = 0; k < std::min<std::size_t>(nImages, 3); ++k) {
        uLargest = std::max<uint32_t>(uLargest, *std::max_element(vecImages[k].begin(), vecImages[k].end()));
    }

    CReferenceRecorder oRecorder(eReferenceLight);
    for (uint64_t n = 0; n < nImages; ++n) {
        std::vector<uint16_t> vecSent = vecImages[n % 3];
        // Bits that are none of the sample's: the sample counts as full scale.
        if (rLayout.pFormat->nWireBits == 16) {
            std::replace(vecSent.begin(), vecSent.end(), static_cast<uint16_t>(uFull), uint16_t{0xFFFF});
        }
        std::vector<uint8_t> vecImage = pack(rLayout, vecSent);
        vecImage.insert(vecImage.begin(), 0);  // an odd address
        oRecorder.add(rLayout, vecImage.data() + 1);
    }

    double dSaturated = 0.0;
    double dNoise = 0.0;
    const double dImages = static_cast<double>(nImages);
    const double dSamples = static_cast<double>(nSamples);
    const ReferenceImage reference = oRecorder.reference();
    double aMeans[3] = {};
    for (unsigned iClass = 0; iClass < rLayout.classes(); ++iClass) {
        double dVariance = 0.0, dMean = 0.0, dSquares = 0.0, dFrames = 0.0, dClass = 0.0;
        double aFrames[3] = {}, aCounts[3] = {};
        for (std::size_t k = 0; k < 3; ++k) {
            aCounts[k] = static_cast<double>((nImages + 2 - k) / 3);
        }
        for (std::size_t i = 0; i < nSamples; ++i) {
            if (classOf(rLayout, i) != iClass) {
                continue;
            }
            dClass += 1.0;
            double dHere = 0.0;
            for (std::size_t k = 0; k < 3; ++k) {
                dHere += aCounts[k] * vecImages[k][i] / dImages;
                aFrames[k] += vecImages[k][i];
                dSaturated += vecImages[k][i] == uFull ? aCounts[k] : 0.0;
            }
            ASSERT_EQ(reference.vecSamples[i], static_cast<float>(dHere)) << i;
            dMean += dHere;
            dSquares += dHere * dHere;
            for (std::size_t k = 0; k < 3; ++k) {
                dVariance += aCounts[k] * std::pow(vecImages[k][i] - dHere, 2) / (dImages - 1.0);
            }
        }
        if (dClass == 0.0) {
            continue;
        }
        for (std::size_t k = 0; k < 3; ++k) {
            dFrames += aCounts[k] * std::pow((aFrames[k] - dMean) / dClass, 2) / (dImages - 1.0);
            aMeans[k] += aFrames[k] / dSamples;
        }
        // What the samples of a class do together is no noise of theirs; of a few samples nobody can tell.
        const double dShape = dSquares * dClass / dMean / dMean;
        dVariance /= dClass;
        if (dClass >= 2.0 * dShape) {
            dVariance = std::max(0.0, dVariance - dShape * dFrames);
        }
        dNoise += dVariance * dClass / dSamples;
        if (!reference.vecClassNoise.empty()) {
            EXPECT_NEAR(reference.vecClassNoise.at(iClass), std::sqrt(dVariance), 1e-9 * uFull);
        }
    }
    EXPECT_EQ(reference.vecClassNoise.empty(), rLayout.samplesOf(rLayout.classes() - 1) == 0);
    const double dMean =
        (aMeans[0] * static_cast<double>((nImages + 2) / 3) + aMeans[1] * static_cast<double>((nImages + 1) / 3) +
         aMeans[2] * static_cast<double>(nImages / 3)) /
        dImages;
    EXPECT_NEAR(reference.dMean, dMean, 1e-9 * uFull);
    EXPECT_NEAR(reference.dTemporalNoise, std::sqrt(dNoise), 1e-9 * uFull);
    EXPECT_NEAR(reference.dSaturatedShare, dSaturated / dSamples / dImages, 1e-12);
    EXPECT_NEAR(reference.means.dFirst, aMeans[0], 1e-9 * uFull);
    EXPECT_NEAR(reference.means.dLast, aMeans[(nImages - 1) % 3], 1e-9 * uFull);
    const std::size_t nShown = std::min<std::size_t>(nImages, 3);
    EXPECT_NEAR(reference.means.dLeast, *std::min_element(aMeans, aMeans + nShown), 1e-9 * uFull);
    EXPECT_NEAR(reference.means.dMost, *std::max_element(aMeans, aMeans + nShown), 1e-9 * uFull);
    EXPECT_EQ(reference.uLargest, uLargest);
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
          Case{"RGB8", 97, 5, 4}, Case{"BayerGB8", 67, 31, 4}, Case{"BayerRG16", 71, 30, 4}, Case{"BayerRG12", 1, 9, 4},
          Case{"Mono16", 131, 3, 5}, Case{"Mono12p", 97, 51, 4}, Case{"BayerRG10p", 89, 53, 5},
          Case{"Mono8", 1024, 1100, 3}, Case{"Mono8", 9, 7, 1000}, Case{"Mono16", 3, 1, 200000}}) {
        SCOPED_TRACE(std::string(r.pFormat) + " " + std::to_string(r.nWidth) + "x" + std::to_string(r.nHeight));
        if (r.nImages < 10) {
            forEachTarget([&] { checkRecording(layoutOf(r.pFormat, r.nWidth, r.nHeight), r.nImages); });
        } else {
            checkRecording(layoutOf(r.pFormat, r.nWidth, r.nHeight), r.nImages);
        }
    }
}

// A light that drifts is no noise: it used to make the conversion gain 2.7 times too high at 1.5 %.
TEST(ReferenceRecorder, NoiseIsThatOfASteadyLightWhateverTheLightDoes) {
    constexpr uint64_t FRAMES = 16;
    for (const char* pFormat : {"Mono12", "BayerRG12", "RGB8"}) {
        const ImageLayout layout = layoutOf(pFormat, 400, 300);
        const double dFull = layout.pFormat->fullScale();
        // The last one tilts, so that the mean stays: only neighbours tell its noise.
        for (const auto& [dDrift, dTilt] :
             {std::pair(0.0, 0.0), {0.002, 0.0}, {0.015, 0.0}, {0.08, 0.0}, {0.0, 0.04}}) {
            SCOPED_TRACE(pFormat + std::to_string(dDrift) + " " + std::to_string(dTilt));
            std::mt19937 oRandom(3);
            CReferenceRecorder oRecorder(eReferenceLight);
            std::vector<uint16_t> vecSamples(layout.samples());
            double aVariance[4] = {};
            for (uint64_t n = 0; n < FRAMES; ++n) {
                const double dTime = static_cast<double>(n) / (FRAMES - 1);
                for (std::size_t i = 0; i < vecSamples.size(); ++i) {
                    const unsigned iClass = classOf(layout, i);
                    const double dX = static_cast<double>(i / layout.pFormat->nChannels % 400) / 400.0;
                    const double dLight = 1.0 + dDrift * dTime + dTilt * (2.0 * dTime - 1.0) * (2.0 * dX - 1.0);
                    const double dSignal = dFull * (0.3 + 0.1 * iClass) * (0.7 + 0.3 * dX) * dLight;
                    std::normal_distribution<double> oNoise(dSignal, std::sqrt(0.0001 * dFull * dSignal));
                    vecSamples[i] = static_cast<uint16_t>(std::lround(oNoise(oRandom)));
                    aVariance[iClass] += (0.0001 * dFull * dSignal + 1.0 / 12.0) / FRAMES /
                                         static_cast<double>(layout.samplesOf(iClass));
                }
                oRecorder.add(layout, pack(layout, vecSamples).data());
            }
            const ReferenceImage reference = oRecorder.reference();
            double dVariance = 0.0;
            for (unsigned k = 0; k < layout.classes(); ++k) {
                const double dRatio = std::pow(reference.vecClassNoise.at(k), 2) / aVariance[k];
                EXPECT_NEAR(dTilt > 0.0 ? 1.0 : dRatio, 1.0, 0.01) << k;
                EXPECT_EQ(dRatio > 1.5, dTilt > 0.0) << k;
                dVariance += aVariance[k] * static_cast<double>(layout.samplesOf(k));
            }
            dVariance /= static_cast<double>(layout.samples());
            EXPECT_NEAR(std::pow(reference.dNeighbourNoise, 2) / dVariance, 1.0, 0.05);
            EXPECT_NEAR(reference.means.dLast / reference.means.dFirst - 1.0, dDrift, dTilt > 0.0 ? 0.01 : 0.0005);
        }
    }
}

// The noise of so few samples is not known, and once each frame counted as unlike the others.
TEST(ReferenceRecorder, SmallImagesAreNotBlamedForTheirNoise) {
    for (const auto& [pFormat, nWidth, nHeight] :
         {std::tuple("Mono12", 3, 2), std::tuple("BayerRG12", 8, 8), std::tuple("BayerRG12", 100, 1)}) {
        const ImageLayout layout = layoutOf(pFormat, nWidth, nHeight);
        std::mt19937 oRandom(5);
        std::normal_distribution<double> oNoise(2000.0, 25.0);
        CReferenceRecorder oRecorder(eReferenceLight);
        std::vector<uint16_t> vecSamples(layout.samples());
        for (unsigned n = 0; n < 16; ++n) {
            for (uint16_t& rSample : vecSamples) {
                rSample = static_cast<uint16_t>(std::lround(oNoise(oRandom)));
            }
            oRecorder.add(layout, pack(layout, vecSamples).data());
        }
        EXPECT_TRUE(oRecorder.reference().outliers.isEmpty()) << pFormat << nWidth;
        EXPECT_EQ(oRecorder.reference().nImages, 16U);
    }
}

// A spike to full scale in a frame that is brighter than the others once lay farther off than samples can, and the
// recording could not be filed.
TEST(ReferenceRecorder, OutliersLieWithinFullScale) {
    const ImageLayout layout = layoutOf("Mono8", 128, 96);
    std::size_t nTold = 0;
    for (unsigned iSeed = 0; iSeed < 20; ++iSeed) {
        std::mt19937 oRandom(iSeed);
        CReferenceRecorder oRecorder(eReferenceLight);
        std::vector<uint16_t> vecSamples(layout.samples());
        for (unsigned n = 0; n < 10; ++n) {
            const double dLight = 1.0 + 0.009 * static_cast<double>((n * 7 + iSeed) % 10) - 0.04;
            std::normal_distribution<double> oNoise(100.0 * dLight, 2.0);
            for (uint16_t& rSample : vecSamples) {
                rSample = static_cast<uint16_t>(std::lround(oNoise(oRandom)));
            }
            vecSamples[777] = n == 9 ? 255 : 0;
            vecSamples[5555] = n == 8 ? 0 : 254;
            oRecorder.add(layout, pack(layout, vecSamples).data());
        }
        const ReferenceImage reference = oRecorder.reference();
        nTold += reference.outliers.vecPlaces.size();
        EXPECT_NO_THROW(makeDescription(reference)) << iSeed;
    }
    EXPECT_GE(nTold, 20U);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
