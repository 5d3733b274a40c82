// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Windows, binned and mirrored images against the formula on references that are derived here by counting pixels out.

#include "standin/processor/AppliedReferences.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "TestImages.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

using Places = std::vector<std::vector<std::size_t>>;

/// The pixels of a sensor that make each of its binned, mirrored ones: arrays of one or two colours are laid side by
/// side, each binned with what follows.
Places binnedSensor(const GeometryAxis& r, bool bCfa) {
    Places vecBinned;
    const std::size_t nArray = bCfa && r.nBinning > 1 ? 2 : 1;
    for (std::size_t iFirst = 0; iFirst + nArray * r.nBinning <= r.nSensor; iFirst += nArray * r.nBinning) {
        for (std::size_t iSite = 0; iSite < nArray; ++iSite) {
            vecBinned.emplace_back();
            for (std::size_t k = 0; k < r.nBinning; ++k) {
                vecBinned.back().push_back(iFirst + iSite + k * nArray);
            }
        }
    }
    if (r.bReverse) {
        std::reverse(vecBinned.begin(), vecBinned.end());
    }
    return vecBinned;
}

class CScene {
public:
    CScene(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight, std::mt19937& rRandom)
        : m_sensor{&rFormat, nWidth, nHeight}, m_rRandom(rRandom) {
        const double dFull = rFormat.fullScale();
        const auto fnPart = [&] { return std::uniform_real_distribution<double>(0.0, 1.0)(m_rRandom); };
        ReferencePair pair;
        for (const eReferenceKind eKind : {eReferenceDark, eReferenceLight}) {
            auto pReference = std::make_shared<ReferenceImage>();
            pReference->eKind = eKind;
            pReference->layout = m_sensor;
            pReference->geometry = {{nWidth, 0, 1, eBinningAverage, false}, {nHeight, 0, 1, eBinningAverage, false}};
            for (std::size_t i = 0; i < m_sensor.samples(); ++i) {
                const double dDark = dFull * 0.03 * fnPart();
                const double dLight = dFull * (0.3 + 0.1 * classOf(m_sensor, i)) * (0.8 + 0.4 * fnPart());
                pReference->vecSamples.push_back(static_cast<float>(eKind == eReferenceDark ? dDark : dLight));
            }
            pair[eKind] = pReference;
        }
        m_pair = pair;
        m_pApplied = std::make_unique<CAppliedReferences>(m_pair);
        m_pApplied->prepare({});
        for (std::size_t i = 0; i < m_sensor.samples(); ++i) {
            m_adTargets[classOf(m_sensor, i)] += light(i) - dark(i);
            ++m_anSamples[classOf(m_sensor, i)];
        }
    }

    const ImageLayout& sensor() const { return m_sensor; }
    CAppliedReferences& applied() { return *m_pApplied; }
    uint64_t draw(uint64_t nLeast, uint64_t nMost) {
        return std::uniform_int_distribution<uint64_t>(nLeast, nMost)(m_rRandom);
    }

    /// A region of the sensor in any place.
    void drawPlace(uint64_t nBinning, ImageLayout& rLayout, ImageGeometry& rPlace) {
        const bool bCfa = m_sensor.pFormat->isCfa();
        const auto fnAxis = [&](uint64_t nSensor, uint64_t& rSize) {
            GeometryAxis axis{nSensor, 0, nBinning, draw(0, 1) != 0 ? eBinningSum : eBinningAverage, draw(0, 1) != 0};
            const uint64_t nBinned = binnedSensor(axis, bCfa).size();
            rSize = draw(1, nBinned);
            axis.nOffset = draw(0, nBinned - rSize);
            return axis;
        };
        rPlace.x = fnAxis(m_sensor.nWidth, rLayout.nWidth);
        rPlace.y = fnAxis(m_sensor.nHeight, rLayout.nHeight);
        const std::size_t iX = binnedSensor(rPlace.x, bCfa)[rPlace.x.nOffset][0];
        const std::size_t iY = binnedSensor(rPlace.y, bCfa)[rPlace.y.nOffset][0];
        rLayout.pFormat = m_sensor.pFormat;
        for (const PixelFormat& rFormat : pixelFormats()) {
            bool bRight = bCfa && rFormat.isCfa() && rFormat.nBits == m_sensor.pFormat->nBits &&
                          rFormat.nWireBits == m_sensor.pFormat->nWireBits &&
                          rFormat.bSplit == m_sensor.pFormat->bSplit;
            for (std::size_t i = 0; bRight && i < 4; ++i) {
                bRight = rFormat.pCfa[i] == m_sensor.pFormat->pCfa[(i / 2 + iY) % 2 * 2 + (i + iX) % 2];
            }
            rLayout.pFormat = bRight ? &rFormat : rLayout.pFormat;
        }
    }

    /// Corrects a drawn image. @return largest error against the formula by what is allowed; 1 is the bound.
    double errorOf(const ImageLayout& rLayout, const ImageGeometry& rPlace) {
        const uint32_t uFull = rLayout.pFormat->fullScale();
        std::vector<uint16_t> vecIn(rLayout.samples());
        std::generate(vecIn.begin(), vecIn.end(), [&] { return static_cast<uint16_t>(draw(0, uFull)); });
        std::vector<uint8_t> vecImage = pack(rLayout, vecIn);
        if (m_pApplied->obstacle(rLayout, rPlace) != eNoObstacle) {
            return 1e9;
        }
        const CorrectionInUse* pInUse = m_pApplied->find(rLayout, rPlace);
        (pInUse ? *pInUse : m_pApplied->build(rLayout, rPlace)).pCorrection->correct(vecImage.data());
        m_vecResult = unpack(rLayout, vecImage);
        const bool bCfa = rLayout.pFormat->isCfa();
        const Places vecX = binnedSensor(rPlace.x, bCfa), vecY = binnedSensor(rPlace.y, bCfa);
        const std::size_t nChannels = rLayout.pFormat->nChannels;
        double dWorst = 0.0;
        for (std::size_t i = 0; i < vecIn.size(); ++i) {
            const std::size_t iPixel = i / nChannels;
            double dDark = 0.0, dLight = 0.0, dParts = 0.0;
            std::size_t iSample = 0;
            for (const std::size_t iX : vecX[rPlace.x.nOffset + iPixel % rLayout.nWidth]) {
                for (const std::size_t iY : vecY[rPlace.y.nOffset + iPixel / rLayout.nWidth]) {
                    iSample = (iY * m_sensor.nWidth + iX) * nChannels + i % nChannels;
                    dDark += dark(iSample);
                    dLight += light(iSample);
                    ++dParts;
                }
            }
            const double dScale = scaleOf(rPlace.x) * scaleOf(rPlace.y);
            dDark *= dScale / dParts, dLight *= dScale / dParts;
            const unsigned iClass = classOf(m_sensor, iSample);
            const double dTarget = dScale * m_adTargets[iClass] / m_anSamples[iClass];
            const double dGain = std::min(dTarget / (dLight - dDark), 16.0);
            const double dWanted =
                vecIn[i] == uFull ? uFull : std::clamp((vecIn[i] - dDark) * dGain, 0.0, double(uFull));
            const double dBound = rLayout.pFormat->nBits <= 12 ? 1.0 : 1.0 + dGain / 2;
            dWorst = std::max(dWorst, std::abs(m_vecResult[i] - dWanted) / dBound);
        }
        return dWorst;
    }

    const ReferencePair& pair() const { return m_pair; }
    const std::vector<uint16_t>& result() const { return m_vecResult; }

private:
    static double scaleOf(const GeometryAxis& r) { return r.eMode == eBinningSum ? double(r.nBinning) : 1.0; }
    double dark(std::size_t i) const { return double(m_pair[eReferenceDark]->vecSamples[i]); }
    double light(std::size_t i) const { return double(m_pair[eReferenceLight]->vecSamples[i]); }

    ImageLayout m_sensor;
    std::mt19937& m_rRandom;
    ReferencePair m_pair;
    std::unique_ptr<CAppliedReferences> m_pApplied;
    std::vector<uint16_t> m_vecResult;
    double m_adTargets[4] = {}, m_anSamples[4] = {};
};

// 12 regions of each of the 43 formats, more than 500; and as many binned ones.
TEST(AppliedReferences, EveryPlaceIsCorrectedAsTheFormulaSays) {
    std::mt19937 random(18);
    for (const PixelFormat& rFormat : pixelFormats()) {
        CScene scene(rFormat, 61 + random() % 4, 47 + random() % 2, random);
        for (unsigned i = 0; i < 24; ++i) {
            const uint64_t nBinning = i < 12 ? 1 : i % 2 != 0 ? 2 : 4;
            ImageLayout layout;
            ImageGeometry place;
            scene.drawPlace(nBinning, layout, place);
            EXPECT_LE(scene.errorOf(layout, place), 1.0)
                << rFormat.pName << " " << inWords(place, layout.nWidth, layout.nHeight, rFormat.isCfa());
        }
    }
}

// A window is the same as the crop of the whole frame, within the last bit; a mirrored image the mirrored frame.
TEST(AppliedReferences, WindowsAreCropsOfTheCorrectedFrame) {
    std::mt19937 random(19);
    for (const char* pFormat : {"Mono8", "Mono10p", "Mono12Packed", "BayerRG12p", "RGB8", "Mono12"}) {
        CScene scene(*findPixelFormat(pFormat), 62, 48, random);
        const ImageLayout& rSensor = scene.sensor();
        const ImageGeometry& rWhole = scene.pair()[eReferenceLight]->geometry;
        std::vector<uint16_t> vecFull(rSensor.samples());
        std::generate(vecFull.begin(), vecFull.end(),
                      [&] { return static_cast<uint16_t>(random() % (rSensor.pFormat->fullScale() + 1)); });
        std::vector<uint8_t> vecImage = pack(rSensor, vecFull);
        scene.applied().build(rSensor, rWhole).pCorrection->correct(vecImage.data());
        const std::vector<uint16_t> vecCorrected = unpack(rSensor, vecImage);
        for (unsigned i = 0; i < 20; ++i) {
            ImageLayout layout;
            ImageGeometry place;
            scene.drawPlace(1, layout, place);
            const std::size_t nChannels = layout.pFormat->nChannels;
            std::vector<std::size_t> vecFrom;
            for (std::size_t k = 0; k < layout.samples(); ++k) {
                std::size_t iX = place.x.nOffset + k / nChannels % layout.nWidth;
                std::size_t iY = place.y.nOffset + k / nChannels / layout.nWidth;
                iX = place.x.bReverse ? 61 - iX : iX;
                iY = place.y.bReverse ? 47 - iY : iY;
                vecFrom.push_back((iY * 62 + iX) * nChannels + k % nChannels);
            }
            std::vector<uint16_t> vecCrop;
            for (const std::size_t k : vecFrom) {
                vecCrop.push_back(vecFull[k]);
            }
            std::vector<uint8_t> vecWindow = pack(layout, vecCrop);
            scene.applied().build(layout, place).pCorrection->correct(vecWindow.data());
            const std::vector<uint16_t> vecResult = unpack(layout, vecWindow);
            int iWorst = 0;
            for (std::size_t k = 0; k < vecFrom.size(); ++k) {
                iWorst = std::max(iWorst, std::abs(int{vecResult[k]} - int{vecCorrected[vecFrom[k]]}));
            }
            EXPECT_LE(iWorst, 1) << pFormat << " " << inWords(place, layout.nWidth, layout.nHeight, false);
        }
    }
}

TEST(AppliedReferences, TheLastFourPlacesAreKept) {
    std::mt19937 random(20);
    CScene scene(*findPixelFormat("Mono8"), 64, 48, random);
    const auto fnPlace = [](uint64_t nOffset) {
        return ImageGeometry{{64, nOffset, 1, eBinningAverage, false}, {48, 0, 1, eBinningAverage, false}};
    };
    const ImageLayout layout = layoutOf("Mono8", 8, 8);
    for (const uint64_t nOffset : {0, 1, 2, 3}) {
        scene.errorOf(layout, fnPlace(nOffset));
    }
    EXPECT_NE(scene.applied().find(layout, fnPlace(0)), nullptr);
    scene.errorOf(layout, fnPlace(4));
    EXPECT_EQ(scene.applied().find(layout, fnPlace(1)), nullptr) << "that which was used longest ago makes way";
    for (const uint64_t nOffset : {0, 2, 3, 4}) {
        EXPECT_NE(scene.applied().find(layout, fnPlace(nOffset)), nullptr) << nOffset;
    }
}

// A defect of the sensor is one of every pixel that it is part of.
TEST(AppliedReferences, DefectsGoWithTheirPixels) {
    const ImageLayout sensor = layoutOf("BayerRG8", 16, 12);
    const ImageGeometry whole = {{16, 0, 1, eBinningAverage, false}, {12, 0, 1, eBinningAverage, false}};
    ImageGeometry place = {{16, 1, 2, eBinningAverage, true}, {12, 0, 1, eBinningAverage, false}};
    std::vector<uint8_t> vecMap(16 * 12, 0);
    vecMap[3 * 16 + 9] = eDefectHot;  // column 9 with 11 makes column 5 of 8, which mirrored is 2, in the window 1
    const ImageLayout window = layoutOf("BayerRG8", 4, 12);
    const CDerivation way(sensor, whole, window, place);
    ASSERT_EQ(way.obstacle(), eNoObstacle);
    const std::vector<uint8_t> vecDerived = way.defects(vecMap);
    for (std::size_t i = 0; i < vecDerived.size(); ++i) {
        EXPECT_EQ(vecDerived[i], i == 3 * 4 + 1 ? eDefectHot : 0) << i;
    }
}

TEST(AppliedReferences, WhatCannotBeDerivedHasAReason) {
    constexpr uint64_t HUGE_NUMBER = ~uint64_t{0};
    ReferenceImage reference;
    reference.layout = layoutOf("BayerRG12", 40, 30);
    reference.geometry = {{64, 8, 1, eBinningAverage, false}, {48, 6, 1, eBinningAverage, false}};
    reference.vecSamples.assign(reference.layout.samples(), 100.0F);
    const CAppliedReferences applied({nullptr, std::make_shared<ReferenceImage>(reference)});
    const GeometryAxis y = {48, 6, 1, eBinningAverage, false};
    const struct {
        ePlaceObstacle eWhy;
        GeometryAxis x;
        uint64_t nWidth;
        const char* pFormat;
    } CASES[] = {
        {eNoObstacle, {64, 8, 1, eBinningAverage, false}, 40, "BayerRG12"},
        {eNoObstacle, {64, 9, 1, eBinningUnknown, false}, 8, "BayerGR12"},
        {eNoObstacle, {64, 4, 2, eBinningSum, false}, 8, "BayerRG12"},
        {eOtherSensor, {65, 8, 1, eBinningAverage, false}, 40, "BayerRG12"},
        {eOtherSensor, {HUGE_NUMBER, 8, 1, eBinningAverage, false}, 40, "BayerRG12"},
        {eOutside, {64, 7, 1, eBinningAverage, false}, 40, "BayerGR12"},
        {eOutside, {64, 9, 1, eBinningAverage, false}, 40, "BayerGR12"},
        {eOutside, {64, 60, 1, eBinningAverage, false}, 8, "BayerRG12"},
        {eOutside, {64, HUGE_NUMBER, 1, eBinningAverage, false}, 8, "BayerRG12"},
        {eOutside, {64, HUGE_NUMBER - 7, 1, eBinningAverage, true}, 8, "BayerRG12"},
        {eOutside, {64, 8, 128, eBinningAverage, false}, 8, "BayerRG12"},
        {eOutside, {64, 8, HUGE_NUMBER, eBinningSum, false}, 8, "BayerRG12"},
        {eOutside, {64, 8, 0, eBinningSum, false}, 8, "BayerRG12"},
        {eUnknownMode, {64, 4, 2, eBinningUnknown, false}, 8, "BayerRG12"},
        {eOtherFilterArray, {64, 9, 1, eBinningAverage, false}, 8, "BayerRG12"},
        {eOtherFilterArray, {64, 16, 1, eBinningAverage, true}, 8, "BayerRG12"},
    };
    for (const auto& rCase : CASES) {
        EXPECT_EQ(applied.obstacle(layoutOf(rCase.pFormat, rCase.nWidth, 30), {rCase.x, y}), rCase.eWhy)
            << inWords({rCase.x, y}, rCase.nWidth, 30, true);
    }
    reference.geometry.x = {128, 8, 2, eBinningUnknown, false};
    const CAppliedReferences binned({nullptr, std::make_shared<ReferenceImage>(reference)});
    const ImageGeometry finer = {{128, 8, 1, eBinningAverage, false}, y};
    EXPECT_EQ(binned.obstacle(reference.layout, reference.geometry), eNoObstacle) << "alike, however they are binned";
    EXPECT_EQ(binned.obstacle(reference.layout, finer), eUnknownMode);
    reference.geometry.x.eMode = eBinningSum;
    const CAppliedReferences summed({nullptr, std::make_shared<ReferenceImage>(reference)});
    EXPECT_EQ(summed.obstacle(reference.layout, finer), eOtherBinning);
}

// A dark reference of an older file beside a light one that tells its place: once every place was corrected alike.
TEST(AppliedReferences, OneThatTellsNoPlaceGoesWithTheOtherOneThere) {
    for (const bool bLightTells : {true, false}) {
        auto pDark = std::make_shared<ReferenceImage>();
        auto pLight = std::make_shared<ReferenceImage>();
        pDark->layout = pLight->layout = layoutOf("Mono12", 16, 8);
        pDark->vecSamples.assign(128, 10.0F);
        pLight->vecSamples.assign(128, 1000.0F);
        const ImageGeometry place = {{64, 8, 1, eBinningUnknown, false}, {48, 6, 1, eBinningUnknown, false}};
        (bLightTells ? pLight : pDark)->geometry = place;
        CAppliedReferences applied({pDark, pLight});
        applied.prepare({});
        ImageGeometry moved = place, mirrored = place;
        moved.x.nOffset = 9;
        mirrored.x.bReverse = true;
        EXPECT_TRUE(applied.isPlaced());
        EXPECT_TRUE(applied.isWindow());
        EXPECT_EQ(applied.obstacle(pLight->layout, place), eNoObstacle);
        EXPECT_EQ(applied.obstacle(pLight->layout, {}), eNoObstacle);
        EXPECT_EQ(applied.obstacle(layoutOf("Mono12", 8, 8), place), eHalfPlaced);
        EXPECT_NE(applied.obstacle(pLight->layout, moved), eNoObstacle);
        EXPECT_NE(applied.obstacle(pLight->layout, mirrored), eNoObstacle);
        pDark->layout = layoutOf("Mono12", 16, 4);
        EXPECT_THROW(CAppliedReferences({pDark, pLight}), CAppliedReferences::CUnfitPair);
    }
}

// One row of an area sensor is no line.
TEST(AppliedReferences, ARowOfAnAreaSensorServesThatRow) {
    auto pLight = std::make_shared<ReferenceImage>();
    pLight->layout = layoutOf("Mono12", 16, 1);
    pLight->vecSamples.assign(16, 1000.0F);
    pLight->geometry = {{16, 0, 1, eBinningUnknown, false}, {48, 6, 1, eBinningUnknown, false}};
    const CAppliedReferences row({nullptr, pLight});
    ImageGeometry whole = pLight->geometry;
    whole.y.nOffset = 0;
    EXPECT_EQ(row.obstacle(layoutOf("Mono12", 16, 48), whole), eOutside);
    EXPECT_EQ(row.obstacle(pLight->layout, pLight->geometry), eNoObstacle);
    pLight->geometry.y = {1, 0, 1, eBinningUnknown, false};
    const CAppliedReferences line({nullptr, pLight});
    EXPECT_EQ(line.obstacle(layoutOf("Mono12", 16, 48), whole), eNoObstacle);
}

// Rows of a packed format begin within a byte where the width is odd.
TEST(AppliedReferences, ALineServesEveryRow) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono10p", "Mono12p", "Mono12Packed", "RGB8"}) {
        for (const uint64_t nHeight : {1, 2, 3, 7, 64}) {
            const ImageLayout line = layoutOf(pFormat, 37, 1);
            const ImageLayout image = layoutOf(pFormat, 37, nHeight);
            auto pDark = std::make_shared<ReferenceImage>();
            auto pLight = std::make_shared<ReferenceImage>();
            double dTarget[3] = {};
            const std::size_t nChannels = line.pFormat->nChannels;
            for (std::size_t i = 0; i < line.samples(); ++i) {
                pDark->vecSamples.push_back(static_cast<float>(i % 7));
                pLight->vecSamples.push_back(static_cast<float>(100 + i));
                dTarget[i % nChannels] += (100.0 + double(i) - double(i % 7)) / 37.0;
            }
            pDark->layout = pLight->layout = line;
            CAppliedReferences applied({pDark, pLight});
            applied.prepare({});
            ASSERT_TRUE(applied.isOwnSize(image));
            std::vector<uint16_t> vecIn;
            for (std::size_t i = 0; i < image.samples(); ++i) {
                vecIn.push_back(static_cast<uint16_t>(20 + i % 200));
            }
            std::vector<uint8_t> vecImage = pack(image, vecIn);
            applied.build(image, {}).pCorrection->correct(vecImage.data());
            const std::vector<uint16_t> vecResult = unpack(image, vecImage);
            for (std::size_t i = 0; i < vecIn.size(); ++i) {
                const std::size_t k = i % line.samples();
                const double dGain = dTarget[i % nChannels] / (100.0 + double(k) - double(k % 7));
                const double dFull = image.pFormat->fullScale();
                ASSERT_NEAR(vecResult[i], std::min(dFull, (vecIn[i] - double(k % 7)) * dGain), 1.0)
                    << pFormat << " " << nHeight << " " << i;
            }
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
