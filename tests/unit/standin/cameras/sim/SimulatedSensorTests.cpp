// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The simulated sensor against its own model: noise, patterns, limits, formats, repeatability.

#include "standin/cameras/sim/SimulatedSensor.h"

#include <cmath>
#include <cstring>
#include <set>
#include <thread>

#include <gtest/gtest.h>

namespace XAPEL2 {
namespace StandIn {
namespace {

typedef std::vector<uint16_t> Samples;

std::size_t sampleCount(const CameraSettings& r) {
    return static_cast<std::size_t>(r.nWidth * r.nHeight * r.pFormat->nChannels);
}

std::vector<uint8_t> fillBytes(IFrameSource& rSource, const CameraSettings& r, eScene eWhat, uint64_t iFrame,
                               uint8_t uBefore = 0xAA) {
    std::vector<uint8_t> aBytes(imageBytes(*r.pFormat, r.nWidth, r.nHeight), uBefore);
    rSource.fill(r, eWhat, iFrame, aBytes.data());
    return aBytes;
}

Samples fillSamples(IFrameSource& rSource, const CameraSettings& r, eScene eWhat, uint64_t iFrame) {
    Samples aSamples(sampleCount(r));
    unpackSamples(*r.pFormat, fillBytes(rSource, r, eWhat, iFrame).data(), 0, aSamples.size(), aSamples.data());
    return aSamples;
}

CSimulatedSensor makeSensor(uint64_t nWidth, uint64_t nHeight, const char* pFormat = "Mono12", uint64_t uSeed = 1) {
    return CSimulatedSensor(uSeed, nWidth, nHeight, *findPixelFormat(pFormat));
}

// Mean of a scene over all samples and its variance from frame to frame, and the mean image.
struct SceneStatistics {
    double fMean = 0.0;
    double fVariance = 0.0;
    std::vector<double> aMeans;
};

SceneStatistics measure(IFrameSource& rSource, const CameraSettings& r, eScene eWhat, unsigned nFrames) {
    std::vector<double> aSquares(sampleCount(r));
    SceneStatistics result;
    result.aMeans.resize(aSquares.size());
    for (unsigned iFrame = 0; iFrame < nFrames; ++iFrame) {
        const Samples aFrame = fillSamples(rSource, r, eWhat, iFrame);
        for (std::size_t i = 0; i < aFrame.size(); ++i) {
            result.aMeans[i] += aFrame[i];
            aSquares[i] += double(aFrame[i]) * aFrame[i];
        }
    }
    for (std::size_t i = 0; i < aSquares.size(); ++i) {
        result.aMeans[i] /= nFrames;
        result.fMean += result.aMeans[i];
        result.fVariance += (aSquares[i] - nFrames * result.aMeans[i] * result.aMeans[i]) / (nFrames - 1);
    }
    result.fMean /= double(aSquares.size());
    result.fVariance /= double(aSquares.size());
    return result;
}

double meanOf(const Samples& a) {
    double fSum = 0.0;
    for (const uint16_t u : a) fSum += u;
    return fSum / double(a.size());
}

TEST(CounterRandom, MomentsAreThoseOfTheDistribution) {
    const CCounterRandom random(CCounterRandom::deriveKey(7, 1));
    const unsigned nDraws = 400000;
    // Negative: the standard normal; otherwise the mean of a Poisson distribution.
    for (const double fPoisson : {-1.0, 0.2, 3.0, 29.5, 30.0, 8000.0}) {
        double aPower[5] = {};
        double fNeighbours = 0.0;
        double fPrevious = 0.0;
        const double fMean = std::max(0.0, fPoisson);
        const double fSigma = fPoisson < 0.0 ? 1.0 : std::sqrt(fPoisson);
        for (unsigned i = 0; i < nDraws; ++i) {
            const double fDraw = fPoisson < 0.0 ? random.normal(2 * i) : random.poisson(fPoisson, 2 * i);
            const double f = (fDraw - fMean) / fSigma;
            for (int iPower = 1; iPower <= 4; ++iPower) aPower[iPower] += std::pow(f, iPower) / nDraws;
            fNeighbours += f * fPrevious / nDraws;
            fPrevious = f;
        }
        const double fExact = fPoisson > 0.0 && fPoisson < CCounterRandom::POISSON_NORMAL_FROM ? 1.0 / fPoisson : 0.0;
        EXPECT_NEAR(aPower[1], 0.0, 0.008) << fPoisson;
        EXPECT_NEAR(aPower[2], 1.0, 0.025 + 0.02 * fExact) << fPoisson;
        EXPECT_NEAR(aPower[3], std::sqrt(fExact), 0.03 + 0.1 * fExact) << fPoisson;
        EXPECT_NEAR(aPower[4], 3.0 + fExact, 0.1 + 0.4 * fExact) << fPoisson;
        EXPECT_NEAR(fNeighbours, 0.0, 0.008) << fPoisson;
    }
}

TEST(SimulatedSensor, VarianceOverMeanIsTheSystemGain) {
    const struct {
        const char* pFormat;
        uint64_t iExposureUs, iGainPercent;
        double fGain;  // DN per electron
        uint64_t nBinning = 1;
    } CASES[] = {
        {"Mono12", 10000, 100, 0.3},    {"Mono12", 4000, 200, 0.6},        {"Mono16", 10, 100, 4.8},
        {"Mono8", 10000, 100, 0.01875}, {"Mono12", 10000, 100, 0.0375, 4},  // 8 pixels
    };
    CSimulatedSensor sensor = makeSensor(160, 120);
    for (const auto& rCase : CASES) {
        CameraSettings settings = sensor.defaultSettings();
        settings.pFormat = findPixelFormat(rCase.pFormat);
        settings.iExposureUs = rCase.iExposureUs;
        settings.iGainPercent = rCase.iGainPercent;
        settings.nWidth /= settings.nBinningX = rCase.nBinning;
        settings.nHeight /= settings.nBinningY = (rCase.nBinning + 1) / 2;
        const SceneStatistics dark = measure(sensor, settings, eSceneDark, 8);
        const SceneStatistics light = measure(sensor, settings, eSceneLight, 8);
        // An 8-bit dark frame is too quiet to show its read noise, so the model's is taken off there.
        const double fNoise = rCase.fGain * sensor.model().temporalNoise(settings, 0.0);
        EXPECT_TRUE(settings.pFormat->nBits == 8 || std::abs(dark.fVariance / (fNoise * fNoise) - 1.0) < 0.05)
            << dark.fVariance;
        const double fDarkVariance = fNoise < 0.5 ? fNoise * fNoise : dark.fVariance;
        const double fSlope = (light.fVariance - fDarkVariance) / (light.fMean - dark.fMean);
        EXPECT_NEAR(fSlope / rCase.fGain, 1.0, 0.03) << rCase.pFormat << " " << rCase.iExposureUs;
        EXPECT_NEAR(sensor.model().systemGain(settings), rCase.fGain, 1e-9);
    }
}

TEST(SimulatedSensor, ExpectedElectronsHavePatternsOfTheirSize) {
    CSimulatedSensor sensor = makeSensor(1024, 768);
    CameraSettings settings = sensor.defaultSettings();
    const auto fnPhoto = [&](uint64_t iX, uint64_t iY) {
        return sensor.expectedPhotoElectrons(settings, eSceneLight, iX, iY);
    };
    unsigned nHot = 0, nDead = 0;
    double fCurvature = 0.0, fCorners = 0.0, fCentre = 0.0;
    for (unsigned i = 0; i < 1024 * 768; ++i) {
        const uint64_t iX = i % 1024, iY = i / 1024;
        settings.iExposureUs = 2000000;
        const double fDark = sensor.expectedDarkElectrons(settings, iX, iY);
        settings.iExposureUs = 10000;
        nHot += fDark > 100000.0;
        EXPECT_TRUE(fDark > 100000.0 || std::abs(fDark - 40.0) < 0.01) << fDark;
        // Neighbours share lens and light but for a slope, and differ by the PRNU.
        const bool bDead = fnPhoto(iX, iY) < 1200.0;
        nDead += bDead;
        if (iX >= 2 && iY < 64 && !bDead && fnPhoto(iX - 1, iY) > 1200.0 && fnPhoto(iX - 2, iY) > 1200.0)
            fCurvature += std::pow((fnPhoto(iX, iY) + fnPhoto(iX - 2, iY)) / fnPhoto(iX - 1, iY) - 2.0, 2);
        if (iX < 8 && iY < 8) {
            fCorners += (fnPhoto(iX, iY) + fnPhoto(1023 - iX, 767 - iY)) / 128;
            fCentre += fnPhoto(508 + iX, 380 + iY) / 64;
        }
    }
    EXPECT_TRUE(nHot >= 10 && nHot <= 40) << nHot;
    EXPECT_TRUE(nDead >= 6 && nDead <= 28) << nDead;
    EXPECT_NEAR(std::sqrt(fCurvature / 6 / (1022 * 64)), 0.01, 0.0004);
    EXPECT_NEAR(fCorners / fCentre, 0.72, 0.03);
    EXPECT_NEAR(fCentre, 8000.0, 400.0);
}

TEST(SimulatedSensor, FramesScatterAboutTheExpectedElectronsByTheTemporalNoise) {
    CSimulatedSensor sensor = makeSensor(1024, 768);
    CameraSettings settings = sensor.defaultSettings();
    settings.nWidth = 256;
    settings.nHeight = 192;
    settings.nOffsetX = 300;
    settings.nOffsetY = 200;
    const double nFrames = 32, nPixels = 256 * 192;
    const auto fnNoise = [&](double f) { return sensor.model().temporalNoise(settings, f); };
    EXPECT_NEAR(fnNoise(100.0), std::sqrt(100.0 + 36.0 + 1.0 / (12 * 0.3 * 0.3)), 1e-9);
    const SceneStatistics dark = measure(sensor, settings, eSceneDark, 32);
    for (const eScene eWhat : {eSceneDark, eSceneLight, eSceneObjects}) {
        const SceneStatistics scene = measure(sensor, settings, eWhat, 32);
        double fMean = 0.0, fSquare = 0.0, fChiSquare = 0.0;
        for (std::size_t i = 0; i < scene.aMeans.size(); ++i) {
            const double fDark = sensor.expectedDarkElectrons(settings, i % 256, i / 256);
            const double fPhoto = sensor.expectedPhotoElectrons(settings, eWhat, i % 256, i / 256);
            const double fPattern = (dark.aMeans[i] - 64.0) / 0.3 - fDark;
            fMean += fPattern / nPixels;
            fSquare += (fPattern * fPattern - std::pow(fnNoise(fDark), 2) / nFrames) / nPixels;
            const double fVariance = std::pow(fnNoise(fDark + fPhoto), 2) + std::pow(fnNoise(fDark), 2);
            fChiSquare += std::pow((scene.aMeans[i] - dark.aMeans[i]) / 0.3 - fPhoto, 2) / fVariance * nFrames;
        }
        if (eWhat == eSceneDark) {
            EXPECT_NEAR(fMean, 0.0, 0.2) << "offset";
            EXPECT_NEAR(std::sqrt(fSquare), 5.0, 0.15) << "DSNU";
            EXPECT_NEAR(std::sqrt(scene.fVariance) / 0.3, fnNoise(0.0), 0.06);
        } else {
            EXPECT_NEAR(fChiSquare / nPixels, 1.0, 0.03) << eWhat;
        }
    }
}

TEST(SimulatedSensor, ClipsAtFullWellAndAtFullScale) {
    CSimulatedSensor sensor = makeSensor(32, 24);
    CameraSettings settings = sensor.defaultSettings();
    settings.iExposureUs = 100000;
    for (const uint16_t u : fillSamples(sensor, settings, eSceneLight, 0)) EXPECT_EQ(u, 4095);
    settings.iGainPercent = 50;  // 15000 e- are 2250 DN above the offset
    for (const uint16_t u : fillSamples(sensor, settings, eSceneLight, 0)) EXPECT_NEAR(u, 2250 + 64, 8);
}

TEST(SimulatedSensor, SameSeedGivesTheSameFramesInAnyOrder) {
    CSimulatedSensor sensor = makeSensor(64, 48);
    const CameraSettings settings = sensor.defaultSettings();
    std::set<std::vector<uint8_t>> aDifferent;
    for (const uint64_t uSeed : {1U, 2U}) {
        CSimulatedSensor first = makeSensor(64, 48, "Mono12", uSeed), second = first;
        for (const eScene eWhat : {eSceneDark, eSceneLight, eSceneObjects}) {
            const std::vector<uint8_t> aZero = fillBytes(first, settings, eWhat, 0);
            const std::vector<uint8_t> aLate = fillBytes(first, settings, eWhat, 1ULL << 40);
            std::thread([&] { EXPECT_EQ(fillBytes(second, settings, eWhat, 1ULL << 40), aLate); }).join();
            EXPECT_EQ(fillBytes(second, settings, eWhat, 0), aZero);
            aDifferent.insert({aZero, aLate});
        }
    }
    EXPECT_EQ(aDifferent.size(), 12U);

    // Compilers and machines agree: the FNV-1a sum of one frame is pinned.
    uint64_t uSum = 0xCBF29CE484222325U;
    for (const uint8_t u : fillBytes(sensor, settings, eSceneObjects, 3)) uSum = (uSum ^ u) * 0x100000001B3U;
    EXPECT_EQ(uSum, 8482520176930577587U);
}

// What it keeps of its pattern belongs to one set of settings: after another one it fills as a new sensor does.
TEST(SimulatedSensor, EachSettingOfTheImageIsShownAfterAnotherOne) {
    CSimulatedSensor sensor = makeSensor(64, 48);
    CameraSettings before = sensor.defaultSettings();
    before.nWidth = 16;
    before.nHeight = 12;
    before.nOffsetX = before.nOffsetY = 0;
    const auto fnAlso = [&before](uint64_t CameraSettings::*pMember, uint64_t uValue) {
        CameraSettings after = before;
        after.*pMember = uValue;
        return after;
    };
    std::vector<CameraSettings> vecAfter = {
        fnAlso(&CameraSettings::nWidth, 15),   fnAlso(&CameraSettings::nHeight, 11),
        fnAlso(&CameraSettings::nOffsetX, 5),  fnAlso(&CameraSettings::nOffsetY, 5),
        fnAlso(&CameraSettings::nBinningX, 2), fnAlso(&CameraSettings::nBinningY, 2),
        fnAlso(&CameraSettings::iReverseX, 1), fnAlso(&CameraSettings::iReverseY, 1),
        fnAlso(&CameraSettings::nWidth, 16)};
    vecAfter.back().pFormat = findPixelFormat("BayerRG12");
    for (std::size_t i = 0; i < vecAfter.size(); ++i) {
        fillBytes(sensor, before, eSceneLight, 0);
        CSimulatedSensor fresh = makeSensor(64, 48);
        EXPECT_EQ(fillBytes(fresh, vecAfter[i], eSceneLight, 0), fillBytes(sensor, vecAfter[i], eSceneLight, 0)) << i;
    }
    fillBytes(sensor, before, eSceneLight, 0);
    CSimulatedSensor fresh = makeSensor(64, 48);
    EXPECT_EQ(fillBytes(fresh, before, eSceneObjects, 0), fillBytes(sensor, before, eSceneObjects, 0));
}

TEST(SimulatedSensor, RegionOfInterestShowsThatPartOfTheFullFrame) {
    const struct {
        uint64_t nWidth, nHeight;
        const char* pFormat;
    } CASES[] = {{80, 60, "Mono12"}, {80, 60, "BayerRG8"}, {80, 60, "RGB8"}, {4096, 2049, "Mono12"}};  // not kept
    for (const auto& rCase : CASES) {
        CSimulatedSensor sensor = makeSensor(rCase.nWidth, rCase.nHeight, rCase.pFormat);
        CameraSettings region = sensor.defaultSettings();
        const std::size_t nChannels = region.pFormat->nChannels;
        const Samples aFull = fillSamples(sensor, region, eSceneObjects, 2);
        region.nWidth = 31;
        region.nHeight = 17;
        region.nOffsetY = rCase.nHeight - 18;
        // A moved region must not be served from the pattern of the one before.
        for (const uint64_t iX : {uint64_t{20}, uint64_t{28}}) {
            region.nOffsetX = iX;
            const Samples aRegion = fillSamples(sensor, region, eSceneObjects, 2);
            for (std::size_t iRow = 0; iRow < 17; ++iRow)
                ASSERT_EQ(
                    std::memcmp(&aRegion[iRow * 31 * nChannels],
                                &aFull[((iRow + region.nOffsetY) * rCase.nWidth + iX) * nChannels], 31 * nChannels * 2),
                    0)
                    << rCase.pFormat << " row " << iRow;
        }
        for (const uint64_t iBeyond : {rCase.nWidth - 30, ~uint64_t{0}}) {
            region.nOffsetX = iBeyond;
            EXPECT_THROW(fillBytes(sensor, region, eSceneLight, 0), std::runtime_error);
        }
    }
}

// With odd sides a filter array looks the same from either end, so that mirrored pixels can be found in the full frame.
TEST(SimulatedSensor, MirroredAndBinnedImagesShowTheSensorsOwnPixels) {
    for (const char* pFormat : {"Mono12", "BayerRG12", "RGB8"}) {
        CSimulatedSensor sensor = makeSensor(81, 61, pFormat);
        const CameraSettings full = sensor.defaultSettings();
        const Samples aFull = fillSamples(sensor, full, eSceneObjects, 5);
        for (unsigned i = 0; i < 16; ++i) {
            CameraSettings settings = full;
            settings.iReverseX = i & 1;
            settings.iReverseY = i >> 1 & 1;
            // Pixels of one colour do not lie side by side in a filter array, whose colours binning lays anew.
            settings.nBinningX = full.pFormat->isCfa() || (i & 4) == 0 ? 1 : 4;
            settings.nBinningY = full.pFormat->isCfa() || (i & 8) == 0 ? 1 : 2;
            settings.nOffsetX = 4, settings.nOffsetY = 2;
            settings.nWidth = 13, settings.nHeight = 9;
            const Samples aShown = fillSamples(sensor, settings, eSceneObjects, 5);
            const std::size_t nChannels = full.pFormat->nChannels, nX = settings.nBinningX, nY = settings.nBinningY;
            for (std::size_t iSample = 0; iSample < aShown.size(); ++iSample) {
                const std::size_t iPixel = iSample / nChannels;
                double fMean = 0.0;
                for (std::size_t iPart = 0; iPart < nX * nY; ++iPart) {
                    std::size_t iX = (iPixel % 13 + 4) * nX + iPart % nX, iY = (iPixel / 13 + 2) * nY + iPart / nX;
                    iX = settings.iReverseX ? 81 / nX * nX - 1 - iX : iX;
                    iY = settings.iReverseY ? 61 / nY * nY - 1 - iY : iY;
                    fMean += aFull[(iY * 81 + iX) * nChannels + iSample % nChannels] / double(nX * nY);
                }
                ASSERT_NEAR(aShown[iSample], fMean, nX * nY == 1 ? 0.0 : 1.0) << pFormat << i << " " << iSample;
            }
        }
    }
}

// A pixel of a binned, mirrored filter array has the colour that its place in the image says.
TEST(SimulatedSensor, FilterArrayBeginsWithTheImage) {
    CSimulatedSensor sensor = makeSensor(400, 300, "BayerGR12");
    CameraSettings settings = sensor.defaultSettings();
    settings.nBinningX = settings.nBinningY = 2;
    settings.iReverseX = settings.iReverseY = 1;
    settings.nOffsetX = settings.nOffsetY = 1;
    settings.nWidth = settings.nHeight = 120;
    double aSum[4] = {}, aExpected[4] = {};
    const Samples aLight = fillSamples(sensor, settings, eSceneLight, 0);
    for (std::size_t i = 0; i < aLight.size(); ++i) {
        const std::size_t iSite = i / 120 % 2 * 2 + i % 2;
        aSum[iSite] += aLight[i] - 64.0;
        aExpected[iSite] += 0.075 * sensor.expectedPhotoElectrons(settings, eSceneLight, i % 120, i / 120);
    }
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(aSum[i] / aExpected[i], 1.0, 0.003) << i;
    EXPECT_NEAR(aSum[1] / aSum[0], 0.85, 0.01);
    EXPECT_NEAR(aSum[2] / aSum[3], 0.75, 0.01);
}

TEST(SimulatedSensor, EveryFormatFillsItsImageWithPlausibleValues) {
    CSimulatedSensor sensor = makeSensor(63, 49);
    EXPECT_EQ(sensor.formats().size(), pixelFormats().size());
    for (const PixelFormat* pFormat : sensor.formats()) {
        SCOPED_TRACE(pFormat->pName);
        CameraSettings settings = sensor.defaultSettings();
        settings.pFormat = pFormat;
        const Samples aLight = fillSamples(sensor, settings, eSceneLight, 0);
        EXPECT_EQ(fillBytes(sensor, settings, eSceneLight, 0, 0xAA), fillBytes(sensor, settings, eSceneLight, 0, 0x55));
        const double fShare = meanOf(aLight) / pFormat->fullScale();
        EXPECT_TRUE(fShare > 0.4 && fShare < 0.8) << fShare;
        EXPECT_NEAR(meanOf(fillSamples(sensor, settings, eSceneDark, 0)) / pFormat->fullScale(), 64.0 / 4095, 0.003);
        if (pFormat->isPacked()) {
            CameraSettings unpacked = settings;
            unpacked.pFormat = findPixelFormat(std::string(
                pFormat->pName, std::strlen(pFormat->pName) - std::strlen(pFormat->bSplit ? "Packed" : "p")));
            EXPECT_EQ(aLight, fillSamples(sensor, unpacked, eSceneLight, 0));
        }
        // Mean of each colour over the even field, against that of a mono sensor.
        double aSum[3] = {}, aCount[3] = {};
        for (std::size_t i = 0; i < aLight.size(); ++i) {
            const std::size_t iPixel = i / pFormat->nChannels;
            const char cSite = pFormat->isCfa()          ? pFormat->pCfa[iPixel / 63 % 2 * 2 + iPixel % 63 % 2]
                               : pFormat->nChannels == 3 ? pFormat->pName[i % 3]
                                                         : 'G';
            const int iColour = cSite == 'R' ? 0 : cSite == 'G' ? 1 : 2;
            aSum[iColour] += aLight[i];
            ++aCount[iColour];
        }
        const double fOffset = sensor.model().offset(*pFormat);
        for (int i : {0, 2}) {
            if (aCount[i] > 0) {
                EXPECT_NEAR((aSum[i] / aCount[i] - fOffset) / (aSum[1] / aCount[1] - fOffset), i == 0 ? 0.85 : 0.75,
                            0.01);
            }
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
