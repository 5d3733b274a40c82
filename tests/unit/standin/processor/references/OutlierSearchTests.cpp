// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What leaves the other frames of a recording is named, and its light is not in the mean.

#include "standin/processor/references/OutlierSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "TestImages.h"
#include "standin/processor/references/ReferenceRecorder.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// A camera with shot and read noise before a field that falls off to one side; pixel 77 of it is hot.
class CField {
public:
    CField(const ImageLayout& rLayout, double dLevel, uint64_t uSeed)
        : m_layout(rLayout), m_dLevel(dLevel), m_random(uSeed) {}

    double truth(std::size_t i) const {
        const double dFull = m_layout.pFormat->fullScale();
        const double dX =
            static_cast<double>(i % m_layout.samplesPerRow()) / static_cast<double>(m_layout.samplesPerRow());
        const double dHot = i == 77 ? 0.1 * dFull : 0.0;
        return dFull * (0.016 + m_dLevel * (1.0 - 0.2 * classOf(m_layout, i)) * (1.0 - 0.4 * dX)) + dHot;
    }
    double noise(std::size_t i) const {
        const double dScale = m_layout.pFormat->fullScale() / 4095.0;
        return std::sqrt(0.3 * dScale * (truth(i) - 64.0 * dScale) + 4.0 * dScale * dScale);
    }
    /// @param[in] dLight  brightness of the lamp.
    std::vector<double> frame(double dLight = 1.0) {
        std::vector<double> vecFrame(m_layout.samples());
        std::normal_distribution<float> normal;
        for (std::size_t i = 0; i < vecFrame.size(); ++i) {
            vecFrame[i] = truth(i) * dLight + noise(i) * static_cast<double>(normal(m_random));
        }
        return vecFrame;
    }
    std::vector<uint8_t> packed(const std::vector<double>& rFrame) const {
        std::vector<uint16_t> vecSamples(rFrame.size());
        const double dFull = m_layout.pFormat->fullScale();
        std::transform(rFrame.begin(), rFrame.end(), vecSamples.begin(), [dFull](double dValue) {
            return static_cast<uint16_t>(std::clamp(std::floor(dValue + 0.5), 0.0, dFull));
        });
        return pack(m_layout, vecSamples);
    }

private:
    ImageLayout m_layout;
    double m_dLevel;
    std::mt19937_64 m_random;
};

struct Box {
    uint64_t nX, nY, nWidth, nHeight;
};

/// Changes the samples of a box of pixels.
void change(const ImageLayout& rLayout, const Box& rBox, std::vector<double>& rFrame,
            const std::function<double(double)>& fnChange) {
    const uint64_t nChannels = rLayout.pFormat->nChannels;
    for (uint64_t iY = rBox.nY; iY < rBox.nY + rBox.nHeight; ++iY) {
        for (uint64_t i = rBox.nX * nChannels; i < (rBox.nX + rBox.nWidth) * nChannels; ++i) {
            double& rSample = rFrame[iY * rLayout.samplesPerRow() + i];
            rSample = fnChange(rSample);
        }
    }
}

/// Largest difference of two references in a box, in standard deviations of the mean of 16.
double farthest(const ImageLayout& rLayout, const CField& rField, const ReferenceImage& rReference, const Box& rBox) {
    double dFar = 0.0;
    for (uint64_t iY = rBox.nY; iY < rBox.nY + rBox.nHeight; ++iY) {
        for (uint64_t iX = rBox.nX; iX < rBox.nX + rBox.nWidth; ++iX) {
            const std::size_t i = iY * rLayout.samplesPerRow() + iX * rLayout.pFormat->nChannels;
            const double dError = rReference.vecSamples[i] - rField.truth(i);
            dFar =
                std::max(dFar, std::abs(dError) / std::sqrt((rField.noise(i) * rField.noise(i) + 1.0 / 12.0) / 15.0));
        }
    }
    return dFar;
}

struct Case {
    const char* pName;
    Box box;
    std::function<double(double)> fnChange;  // relative to full scale
    eOutlier eWhat;
};

const std::vector<Case>& cases() {
    static const std::vector<Case> CASES = {
        {"dark", {0, 0, 320, 240}, [](double d) { return 0.016 + 0.02 * (d - 0.016); }, eOutlierBrightness},
        {"half", {0, 0, 320, 240}, [](double d) { return 0.5 * d; }, eOutlierBrightness},
        {"moved", {100, 30, 110, 180}, [](double d) { return 0.7 * d; }, eOutlierShape},
        {"object", {100, 40, 60, 80}, [](double d) { return 0.3 * d; }, eOutlierSamples},
        {"flash", {120, 80, 10, 10}, [](double d) { return d + 0.15; }, eOutlierSamples},
        {"spike", {201, 33, 1, 1}, [](double d) { return d + 0.3; }, eOutlierSamples},
        {"dropped", {11, 230, 1, 1}, [](double) { return 0.0; }, eOutlierSamples},
    };
    return CASES;
}

using Frames = std::vector<std::vector<double>>;

Frames framesOf(CField& rField, uint64_t nFrames) {
    Frames vecFrames;
    while (vecFrames.size() < nFrames) {
        vecFrames.push_back(rField.frame());
    }
    return vecFrames;
}

/// Records the first nFrames, of which frame iOdd (from 0 on) is changed.
ReferenceImage record(const ImageLayout& rLayout, const CField& rField, const Frames& rFrames, uint64_t nFrames,
                      uint64_t iOdd, const Case* pCase, bool bKeep = false) {
    CReferenceRecorder recorder(eReferenceLight);
    const double dFull = rLayout.pFormat->fullScale();
    for (uint64_t n = 0; n < nFrames; ++n) {
        std::vector<double> vecFrame = rFrames[n];
        if (n == iOdd && pCase) {
            change(rLayout, pCase->box, vecFrame, [&](double d) { return dFull * pCase->fnChange(d / dFull); });
        }
        recorder.add(rLayout, rField.packed(vecFrame).data());
    }
    return recorder.reference(bKeep);
}

TEST(OutlierSearch, WhatLeavesTheOthersIsNamedAndNotInTheMean) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "Mono12p", "BayerRG10p", "BayerGB16", "RGB8"}) {
        const ImageLayout layout = layoutOf(pFormat, 320, 240);
        CField field(layout, 0.55, 5);
        const Frames vecFrames = framesOf(field, 16);
        for (const Case& rCase : cases()) {
            for (const uint64_t iOdd : {0U, 6U}) {
                SCOPED_TRACE(std::string(pFormat) + " " + rCase.pName + " in frame " + std::to_string(iOdd + 1));
                const ReferenceImage reference = record(layout, field, vecFrames, 16, iOdd, &rCase);
                const bool bSamples = rCase.eWhat == eOutlierSamples;
                EXPECT_EQ(reference.outliers.nFramesLeftOut, bSamples ? 0U : 1U);
                EXPECT_EQ(reference.nImages, bSamples ? 16U : 15U);
                ASSERT_EQ(reference.outliers.vecPlaces.size(), 1U);
                const FrameOutlier& rOutlier = reference.outliers.vecPlaces.front();
                EXPECT_EQ(rOutlier.eWhat, rCase.eWhat);
                EXPECT_EQ(rOutlier.iFrame, iOdd + 1);
                EXPECT_TRUE(rOutlier.bLeftOut);
                if (bSamples) {
                    EXPECT_EQ(rOutlier.nX, rCase.box.nX);
                    EXPECT_EQ(rOutlier.nY, rCase.box.nY);
                    EXPECT_EQ(rOutlier.nWidth, rCase.box.nWidth);
                    EXPECT_EQ(rOutlier.nHeight, rCase.box.nHeight);
                    EXPECT_EQ(rOutlier.nSamples, rCase.box.nWidth * rCase.box.nHeight * layout.pFormat->nChannels);
                }
                // 6 standard deviations for the largest of all pixels; what is left of the least change would be 8.
                EXPECT_LT(farthest(layout, field, reference, rCase.box), 6.0);
            }
        }
    }
}

// Where a pixel is watched from the middle of a recording on, few of its samples tell how noisy it is.
TEST(OutlierSearch, WeakSpikesAreLeftOutInWhateverFrame) {
    const ImageLayout layout = layoutOf("Mono12", 320, 240);
    CField field(layout, 0.55, 23);
    for (const uint64_t iOdd : {0U, 4U, 6U, 7U, 8U, 9U, 15U}) {
        Frames vecFrames = framesOf(field, 16);
        uint64_t nSpikes = 0;
        for (uint64_t iY = 4; iY < layout.nHeight; iY += 8) {
            for (uint64_t iX = 4; iX < layout.nWidth; iX += 8, ++nSpikes) {
                const std::size_t i = iY * layout.samplesPerRow() + iX;
                vecFrames[iOdd][i] = field.truth(i) + 12.0 * field.noise(i);
            }
        }
        const ReferenceImage reference = record(layout, field, vecFrames, 16, 16, nullptr);
        EXPECT_EQ(reference.outliers.nSamplesLeftOut, nSpikes) << "frame " << iOdd + 1;
    }
}

TEST(OutlierSearch, StaysInWhereItIsToBeKeptAndOfAFewFrames) {
    const ImageLayout layout = layoutOf("Mono12", 320, 240);
    CField field(layout, 0.55, 9);
    const Frames vecFrames = framesOf(field, 16);
    for (const Case& rCase : cases()) {
        for (const uint64_t nFrames : {3U, 7U, 16U}) {
            SCOPED_TRACE(std::string(rCase.pName) + " of " + std::to_string(nFrames));
            const ReferenceImage kept = record(layout, field, vecFrames, nFrames, 2, &rCase, nFrames == 16);
            ASSERT_EQ(kept.outliers.vecPlaces.size(), 1U);
            EXPECT_EQ(kept.outliers.vecPlaces.front().iFrame, 3U);
            EXPECT_FALSE(kept.outliers.vecPlaces.front().bLeftOut);
            EXPECT_EQ(kept.nImages, nFrames);
            EXPECT_GT(farthest(layout, field, kept, rCase.box), 6.0);
        }
    }
}

// An object that rests for some frames, or comes again; and one frame with an object while another one is dark.
TEST(OutlierSearch, FindsWhatLastsLongerThanAFrame) {
    const ImageLayout layout = layoutOf("Mono12", 320, 240);
    const Case& rObject = cases()[3];
    const Case& rDark = cases()[0];
    for (const std::vector<uint64_t>& rFrames : {std::vector<uint64_t>{0, 1, 2}, {4, 5, 6}, {3, 15}}) {
        CField field(layout, 0.55, 11);
        CReferenceRecorder recorder(eReferenceLight);
        for (uint64_t n = 0; n < 16; ++n) {
            std::vector<double> vecFrame = field.frame();
            const bool bObject = std::count(rFrames.begin(), rFrames.end(), n) != 0;
            const Case* pCase = bObject ? &rObject : n == 9 ? &rDark : nullptr;
            if (pCase) {
                change(layout, pCase->box, vecFrame, [&](double d) { return 4095.0 * pCase->fnChange(d / 4095.0); });
            }
            recorder.add(layout, field.packed(vecFrame).data());
        }
        const ReferenceImage reference = recorder.reference();
        EXPECT_EQ(reference.nImages, 15U);
        ASSERT_EQ(reference.outliers.vecPlaces.size(), rFrames.size() + 1) << reference.outliers.nSamples;
        EXPECT_EQ(reference.outliers.vecPlaces[0].iFrame, 10U);
        for (std::size_t i = 0; i < rFrames.size(); ++i) {
            EXPECT_EQ(std::count_if(reference.outliers.vecPlaces.begin() + 1, reference.outliers.vecPlaces.end(),
                                    [&](const FrameOutlier& r) { return r.iFrame == rFrames[i] + 1; }),
                      1);
        }
        EXPECT_LT(farthest(layout, field, reference, rObject.box), 6.0);
    }
}

// The figures are those of the frames without it.
TEST(OutlierSearch, FiguresAreThoseOfSteadyFrames) {
    const ImageLayout layout = layoutOf("BayerRG12", 320, 240);
    CField field(layout, 0.55, 13);
    const Frames vecFrames = framesOf(field, 16);
    const ReferenceImage steady = record(layout, field, vecFrames, 16, 7, nullptr);
    for (const Case& rCase : cases()) {
        SCOPED_TRACE(rCase.pName);
        const ReferenceImage reference = record(layout, field, vecFrames, 16, 7, &rCase);
        EXPECT_NEAR(reference.dMean, steady.dMean, 0.2);
        for (unsigned k = 0; k < 4; ++k) {
            EXPECT_NEAR(reference.vecClassNoise.at(k) / steady.vecClassNoise.at(k), 1.0, 0.004) << k;
        }
        EXPECT_NEAR(reference.means.dMost, steady.means.dMost, 1.0);
        EXPECT_NEAR(reference.means.dLeast, steady.means.dLeast, 1.0);
        EXPECT_EQ(reference.dSaturatedShare, 0.0);
        EXPECT_LT(reference.uLargest, 3100U);
    }
}

TEST(OutlierSearch, SteadyRecordingsAreNotBlamed) {
    uint64_t nBlamed = 0, nRecordings = 0;
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "BayerRG12p", "RGB8"}) {
        for (const double dLevel : {0.0, 0.01, 0.2, 0.6, 0.9}) {
            const ImageLayout layout = layoutOf(pFormat, 80, 60);
            CField field(layout, dLevel, 17);
            for (int n = 0; n < 40; ++n, ++nRecordings) {
                CReferenceRecorder recorder(dLevel == 0.0 ? eReferenceDark : eReferenceLight);
                std::vector<uint64_t> vecSums(layout.samples());
                const uint64_t nFrames = n % 4 == 0 ? 9 : 16;
                for (uint64_t iFrame = 0; iFrame < nFrames; ++iFrame) {
                    // Some of them with a lamp that warms up or flickers.
                    const double dLight = n % 3 == 0 && dLevel > 0.0   ? 1.0 + 0.004 * static_cast<double>(iFrame)
                                          : n % 3 == 1 && dLevel > 0.0 ? 1.0 + 0.01 * static_cast<double>(iFrame % 2)
                                                                       : 1.0;
                    const std::vector<uint8_t> vecImage = field.packed(field.frame(dLight));
                    recorder.add(layout, vecImage.data());
                    const std::vector<uint16_t> vecSamples = unpack(layout, vecImage);
                    for (std::size_t i = 0; i < vecSums.size(); ++i) {
                        vecSums[i] += vecSamples[i];
                    }
                }
                const ReferenceImage reference = recorder.reference();
                if (!reference.outliers.isEmpty()) {
                    ++nBlamed;
                    const FrameOutlier& r = reference.outliers.vecPlaces.front();
                    ADD_FAILURE() << pFormat << " level " << dLevel << " recording " << n << " what " << r.eWhat
                                  << " frame " << r.iFrame << " at " << r.nX << "," << r.nY << " by " << r.dDeviation;
                }
                for (std::size_t i = 0; i < vecSums.size(); ++i) {
                    const double dMean = static_cast<double>(vecSums[i]) / static_cast<double>(nFrames);
                    ASSERT_EQ(reference.vecSamples[i], static_cast<float>(dMean));
                }
            }
        }
    }
    EXPECT_EQ(nRecordings, 1000U);
    EXPECT_LE(nBlamed, 1U);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
