// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The simulated sensor against its own model: noise, patterns, limits, formats, repeatability.

#include "standin/cameras/sim/SimulatedSensor.h"

#include "standin/cameras/DeviceId.h"

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
    std::vector<uint8_t> vecBytes(imageBytes(*r.pFormat, r.nWidth, r.nHeight), uBefore);
    rSource.fill(r, eWhat, iFrame, vecBytes.data());
    return vecBytes;
}

Samples fillSamples(IFrameSource& rSource, const CameraSettings& r, eScene eWhat, uint64_t iFrame) {
    Samples vecSamples(sampleCount(r));
    unpackSamples(*r.pFormat, fillBytes(rSource, r, eWhat, iFrame).data(), 0, vecSamples.size(), vecSamples.data());
    return vecSamples;
}

CSimulatedSensor makeSensor(uint64_t nWidth, uint64_t nHeight, const char* pFormat = "Mono12", uint64_t uSeed = 1) {
    return CSimulatedSensor(uSeed, nWidth, nHeight, *findPixelFormat(pFormat));
}

// Mean of a scene over all samples and its variance from frame to frame, and the mean image.
struct SceneStatistics {
    double dMean = 0.0;
    double dVariance = 0.0;
    std::vector<double> vecMeans;
};

SceneStatistics measure(IFrameSource& rSource, const CameraSettings& r, eScene eWhat, unsigned nFrames) {
    std::vector<double> vecSquares(sampleCount(r));
    SceneStatistics result;
    result.vecMeans.resize(vecSquares.size());
    for (unsigned iFrame = 0; iFrame < nFrames; ++iFrame) {
        const Samples vecFrame = fillSamples(rSource, r, eWhat, iFrame);
        for (std::size_t i = 0; i < vecFrame.size(); ++i) {
            result.vecMeans[i] += vecFrame[i];
            vecSquares[i] += double(vecFrame[i]) * vecFrame[i];
        }
    }
    for (std::size_t i = 0; i < vecSquares.size(); ++i) {
        result.vecMeans[i] /= nFrames;
        result.dMean += result.vecMeans[i];
        result.dVariance += (vecSquares[i] - nFrames * result.vecMeans[i] * result.vecMeans[i]) / (nFrames - 1);
    }
    result.dMean /= double(vecSquares.size());
    result.dVariance /= double(vecSquares.size());
    return result;
}

double meanOf(const Samples& a) {
    double dSum = 0.0;
    for (const uint16_t u : a) {
        dSum += u;
    }
    return dSum / double(a.size());
}

TEST(CounterRandom, MomentsAreThoseOfTheDistribution) {
    const CCounterRandom random(CCounterRandom::deriveKey(7, 1));
    const unsigned nDraws = 400000;
    // Negative: the standard normal; otherwise the mean of a Poisson distribution.
    for (const double dPoisson : {-1.0, 0.2, 3.0, 29.5, 30.0, 8000.0}) {
        double aPower[5] = {};
        double dNeighbours = 0.0;
        double dPrevious = 0.0;
        const double dMean = std::max(0.0, dPoisson);
        const double dSigma = dPoisson < 0.0 ? 1.0 : std::sqrt(dPoisson);
        for (unsigned i = 0; i < nDraws; ++i) {
            const double dDraw = dPoisson < 0.0 ? random.normal(2 * i) : random.poisson(dPoisson, 2 * i);
            const double f = (dDraw - dMean) / dSigma;
            for (int iPower = 1; iPower <= 4; ++iPower) {
                aPower[iPower] += std::pow(f, iPower) / nDraws;
            }
            dNeighbours += f * dPrevious / nDraws;
            dPrevious = f;
        }
        const double dExact = dPoisson > 0.0 && dPoisson < CCounterRandom::POISSON_NORMAL_FROM ? 1.0 / dPoisson : 0.0;
        EXPECT_NEAR(aPower[1], 0.0, 0.008) << dPoisson;
        EXPECT_NEAR(aPower[2], 1.0, 0.025 + 0.02 * dExact) << dPoisson;
        EXPECT_NEAR(aPower[3], std::sqrt(dExact), 0.03 + 0.1 * dExact) << dPoisson;
        EXPECT_NEAR(aPower[4], 3.0 + dExact, 0.1 + 0.4 * dExact) << dPoisson;
        EXPECT_NEAR(dNeighbours, 0.0, 0.008) << dPoisson;
    }
}

TEST(SimulatedSensor, VarianceOverMeanIsTheSystemGain) {
    const struct {
        const char* pFormat;
        uint64_t iExposureUs, iGainPercent;
        double dGain;  // DN per electron
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
        const double dNoise = rCase.dGain * sensor.model().temporalNoise(settings, 0.0);
        EXPECT_TRUE(settings.pFormat->nBits == 8 || std::abs(dark.dVariance / (dNoise * dNoise) - 1.0) < 0.05)
            << dark.dVariance;
        const double dDarkVariance = dNoise < 0.5 ? dNoise * dNoise : dark.dVariance;
        const double dSlope = (light.dVariance - dDarkVariance) / (light.dMean - dark.dMean);
        EXPECT_NEAR(dSlope / rCase.dGain, 1.0, 0.03) << rCase.pFormat << " " << rCase.iExposureUs;
        EXPECT_NEAR(sensor.model().systemGain(settings), rCase.dGain, 1e-9);
    }
}

TEST(SimulatedSensor, ExpectedElectronsHavePatternsOfTheirSize) {
    CSimulatedSensor sensor = makeSensor(1024, 768);
    CameraSettings settings = sensor.defaultSettings();
    const auto fnPhoto = [&](uint64_t iX, uint64_t iY) {
        return sensor.expectedPhotoElectrons(settings, eSceneLight, iX, iY);
    };
    unsigned nHot = 0, nDead = 0;
    double dCurvature = 0.0, dCorners = 0.0, dCentre = 0.0;
    for (unsigned i = 0; i < 1024 * 768; ++i) {
        const uint64_t iX = i % 1024, iY = i / 1024;
        settings.iExposureUs = 2000000;
        const double dDark = sensor.expectedDarkElectrons(settings, iX, iY);
        settings.iExposureUs = 10000;
        nHot += dDark > 100000.0;
        EXPECT_TRUE(dDark > 100000.0 || std::abs(dDark - 40.0) < 0.01) << dDark;
        // Neighbours share lens and light but for a slope, and differ by the PRNU.
        const bool bDead = fnPhoto(iX, iY) < 1200.0;
        nDead += bDead;
        if (iX >= 2 && iY < 64 && !bDead && fnPhoto(iX - 1, iY) > 1200.0 && fnPhoto(iX - 2, iY) > 1200.0) {
            dCurvature += std::pow((fnPhoto(iX, iY) + fnPhoto(iX - 2, iY)) / fnPhoto(iX - 1, iY) - 2.0, 2);
        }
        if (iX < 8 && iY < 8) {
            dCorners += (fnPhoto(iX, iY) + fnPhoto(1023 - iX, 767 - iY)) / 128;
            dCentre += fnPhoto(508 + iX, 380 + iY) / 64;
        }
    }
    EXPECT_TRUE(nHot >= 10 && nHot <= 40) << nHot;
    EXPECT_TRUE(nDead >= 6 && nDead <= 28) << nDead;
    EXPECT_NEAR(std::sqrt(dCurvature / 6 / (1022 * 64)), 0.01, 0.0004);
    EXPECT_NEAR(dCorners / dCentre, 0.72, 0.03);
    EXPECT_NEAR(dCentre, 8000.0, 400.0);
}

TEST(SimulatedSensor, FramesScatterAboutTheExpectedElectronsByTheTemporalNoise) {
    CSimulatedSensor sensor = makeSensor(1024, 768);
    CameraSettings settings = sensor.defaultSettings();
    settings.nWidth = 256;
    settings.nHeight = 192;
    settings.nOffsetX = 300;
    settings.nOffsetY = 200;
    const double dFrames = 32, dPixels = 256 * 192;
    const auto fnNoise = [&](double f) { return sensor.model().temporalNoise(settings, f); };
    EXPECT_NEAR(fnNoise(100.0), std::sqrt(100.0 + 36.0 + 1.0 / (12 * 0.3 * 0.3)), 1e-9);
    const SceneStatistics dark = measure(sensor, settings, eSceneDark, 32);
    for (const eScene eWhat : {eSceneDark, eSceneLight, eSceneObjects}) {
        const SceneStatistics scene = measure(sensor, settings, eWhat, 32);
        double dMean = 0.0, dSquare = 0.0, dChiSquare = 0.0;
        for (std::size_t i = 0; i < scene.vecMeans.size(); ++i) {
            const double dDark = sensor.expectedDarkElectrons(settings, i % 256, i / 256);
            const double dPhoto = sensor.expectedPhotoElectrons(settings, eWhat, i % 256, i / 256);
            const double dPattern = (dark.vecMeans[i] - 64.0) / 0.3 - dDark;
            dMean += dPattern / dPixels;
            dSquare += (dPattern * dPattern - std::pow(fnNoise(dDark), 2) / dFrames) / dPixels;
            const double dVariance = std::pow(fnNoise(dDark + dPhoto), 2) + std::pow(fnNoise(dDark), 2);
            dChiSquare += std::pow((scene.vecMeans[i] - dark.vecMeans[i]) / 0.3 - dPhoto, 2) / dVariance * dFrames;
        }
        if (eWhat == eSceneDark) {
            EXPECT_NEAR(dMean, 0.0, 0.2) << "offset";
            EXPECT_NEAR(std::sqrt(dSquare), 5.0, 0.15) << "DSNU";
            EXPECT_NEAR(std::sqrt(scene.dVariance) / 0.3, fnNoise(0.0), 0.06);
        } else {
            EXPECT_NEAR(dChiSquare / dPixels, 1.0, 0.03) << eWhat;
        }
    }
}

TEST(SimulatedSensor, ClipsAtFullWellAndAtFullScale) {
    CSimulatedSensor sensor = makeSensor(32, 24);
    CameraSettings settings = sensor.defaultSettings();
    settings.iExposureUs = 100000;
    for (const uint16_t u : fillSamples(sensor, settings, eSceneLight, 0)) {
        EXPECT_EQ(u, 4095);
    }
    settings.iGainPercent = 50;  // 15000 e- are 2250 DN above the offset
    for (const uint16_t u : fillSamples(sensor, settings, eSceneLight, 0)) {
        EXPECT_NEAR(u, 2250 + 64, 8);
    }
}

TEST(SimulatedSensor, SameSeedGivesTheSameFramesInAnyOrder) {
    CSimulatedSensor sensor = makeSensor(64, 48);
    const CameraSettings settings = sensor.defaultSettings();
    std::set<std::vector<uint8_t>> aDifferent;
    for (const uint64_t uSeed : {1U, 2U}) {
        CSimulatedSensor first = makeSensor(64, 48, "Mono12", uSeed), second = first;
        for (const eScene eWhat : {eSceneDark, eSceneLight, eSceneObjects}) {
            const std::vector<uint8_t> vecZero = fillBytes(first, settings, eWhat, 0);
            const std::vector<uint8_t> vecLate = fillBytes(first, settings, eWhat, 1ULL << 40);
            std::thread([&] { EXPECT_EQ(fillBytes(second, settings, eWhat, 1ULL << 40), vecLate); }).join();
            EXPECT_EQ(fillBytes(second, settings, eWhat, 0), vecZero);
            aDifferent.insert({vecZero, vecLate});
        }
    }
    EXPECT_EQ(aDifferent.size(), 12U);

    // Compilers and machines agree: the FNV-1a sum of one frame is pinned.
    uint64_t uSum = 0xCBF29CE484222325U;
    for (const uint8_t u : fillBytes(sensor, settings, eSceneObjects, 3)) {
        uSum = (uSum ^ u) * 0x100000001B3U;
    }
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
        const Samples vecFull = fillSamples(sensor, region, eSceneObjects, 2);
        region.nWidth = 31;
        region.nHeight = 17;
        region.nOffsetY = rCase.nHeight - 18;
        // A moved region must not be served from the pattern of the one before.
        for (const uint64_t iX : {uint64_t{20}, uint64_t{28}}) {
            region.nOffsetX = iX;
            const Samples vecRegion = fillSamples(sensor, region, eSceneObjects, 2);
            for (std::size_t iRow = 0; iRow < 17; ++iRow) {
                ASSERT_EQ(std::memcmp(&vecRegion[iRow * 31 * nChannels],
                                      &vecFull[((iRow + region.nOffsetY) * rCase.nWidth + iX) * nChannels],
                                      31 * nChannels * 2),
                          0)
                    << rCase.pFormat << " row " << iRow;
            }
        }
        for (const uint64_t iBeyond : {rCase.nWidth - 30, ~uint64_t{0}}) {
            region.nOffsetX = iBeyond;
            EXPECT_THROW(fillBytes(sensor, region, eSceneLight, 0), std::runtime_error);
        }
    }
}

// Counted out pixel by pixel, apart from the functions that the sensor uses.
TEST(SimulatedSensor, MirroredAndBinnedImagesShowTheSensorsOwnPixels) {
    for (const char* pFormat : {"Mono12", "BayerRG12", "RGB8"}) {
        CSimulatedSensor sensor = makeSensor(82, 61, pFormat);
        CameraSettings full = sensor.defaultSettings();
        full.iGainPercent = 10;  // sums stay below full scale
        const bool bCfa = full.pFormat->isCfa();
        const Samples vecFull = fillSamples(sensor, full, eSceneObjects, 5);
        for (unsigned i = 0; i < 32; ++i) {
            CameraSettings settings = full;
            settings.iReverseX = i & 1;
            settings.iReverseY = i >> 1 & 1;
            settings.nBinningX = (i & 4) == 0 ? 1 : 4;
            settings.nBinningY = (i & 8) == 0 ? 1 : 2;
            settings.iSumX = i >> 4 & 1;
            settings.nOffsetX = 4, settings.nOffsetY = 3;
            settings.nWidth = 13, settings.nHeight = 9;
            const std::size_t nChannels = full.pFormat->nChannels, nX = settings.nBinningX, nY = settings.nBinningY;
            const auto fnPlace = [bCfa](std::size_t iAt, std::size_t n, bool bReverse, std::size_t nSensor) {
                std::vector<std::vector<std::size_t>> vecBinned;
                const std::size_t nArray = bCfa ? 2 : 1;
                for (std::size_t iFirst = 0; iFirst + nArray * n <= nSensor || (n == 1 && iFirst < nSensor);
                     iFirst += nArray * n) {
                    for (std::size_t iSite = 0; iSite < nArray; ++iSite) {
                        vecBinned.emplace_back();
                        for (std::size_t k = 0; k < n; ++k) {
                            vecBinned.back().push_back(iFirst + iSite + k * nArray);
                        }
                    }
                }
                vecBinned.resize(n == 1 ? nSensor : vecBinned.size());
                return bReverse ? vecBinned[vecBinned.size() - 1 - iAt] : vecBinned[iAt];
            };
            const auto vecX0 = fnPlace(4, nX, settings.iReverseX != 0, 82);
            const auto vecY0 = fnPlace(3, nY, settings.iReverseY != 0, 61);
            settings.pFormat = shiftedFormat(*full.pFormat, vecX0[0], vecY0[0]);
            const Samples vecShown = fillSamples(sensor, settings, eSceneObjects, 5);
            const double dSum = settings.iSumX != 0 ? double(nX) : 1.0;
            for (std::size_t iSample = 0; iSample < vecShown.size(); ++iSample) {
                const std::size_t iPixel = iSample / nChannels;
                double dMean = 0.0;
                for (const std::size_t iX : fnPlace(iPixel % 13 + 4, nX, settings.iReverseX != 0, 82)) {
                    for (const std::size_t iY : fnPlace(iPixel / 13 + 3, nY, settings.iReverseY != 0, 61)) {
                        dMean += vecFull[(iY * 82 + iX) * nChannels + iSample % nChannels] / double(nX * nY);
                    }
                }
                ASSERT_NEAR(vecShown[iSample], dMean * dSum, nX * nY == 1 ? 0.0 : 0.5 + 0.5 * dSum)
                    << pFormat << i << " " << iSample;
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
    const Samples vecLight = fillSamples(sensor, settings, eSceneLight, 0);
    for (std::size_t i = 0; i < vecLight.size(); ++i) {
        const std::size_t iSite = i / 120 % 2 * 2 + i % 2;
        aSum[iSite] += vecLight[i] - 64.0;
        aExpected[iSite] += 0.075 * sensor.expectedPhotoElectrons(settings, eSceneLight, i % 120, i / 120);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(aSum[i] / aExpected[i], 1.0, 0.003) << i;
    }
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
        const Samples vecLight = fillSamples(sensor, settings, eSceneLight, 0);
        EXPECT_EQ(fillBytes(sensor, settings, eSceneLight, 0, 0xAA), fillBytes(sensor, settings, eSceneLight, 0, 0x55));
        const double dShare = meanOf(vecLight) / pFormat->fullScale();
        EXPECT_TRUE(dShare > 0.4 && dShare < 0.8) << dShare;
        EXPECT_NEAR(meanOf(fillSamples(sensor, settings, eSceneDark, 0)) / pFormat->fullScale(), 64.0 / 4095, 0.003);
        if (pFormat->isPacked()) {
            CameraSettings unpacked = settings;
            unpacked.pFormat = findPixelFormat(std::string(
                pFormat->pName, std::strlen(pFormat->pName) - std::strlen(pFormat->bSplit ? "Packed" : "p")));
            EXPECT_EQ(vecLight, fillSamples(sensor, unpacked, eSceneLight, 0));
        }
        // Mean of each colour over the even field, against that of a mono sensor.
        double aSum[3] = {}, aCount[3] = {};
        for (std::size_t i = 0; i < vecLight.size(); ++i) {
            const std::size_t iPixel = i / pFormat->nChannels;
            const char cSite = pFormat->isCfa()          ? pFormat->pCfa[iPixel / 63 % 2 * 2 + iPixel % 63 % 2]
                               : pFormat->nChannels == 3 ? pFormat->pName[i % 3]
                                                         : 'G';
            const int iColour = cSite == 'R' ? 0 : cSite == 'G' ? 1 : 2;
            aSum[iColour] += vecLight[i];
            ++aCount[iColour];
        }
        const double dOffset = sensor.model().offset(*pFormat);
        for (int i : {0, 2}) {
            if (aCount[i] > 0) {
                EXPECT_NEAR((aSum[i] / aCount[i] - dOffset) / (aSum[1] / aCount[1] - dOffset), i == 0 ? 0.85 : 0.75,
                            0.01);
            }
        }
    }
}

// Clusters and columns by the mean light, spikes frame by frame, the lamp by the means of the frames.
TEST(SimulatedSensor, HasClustersColumnsSpikesAndAnUnsteadyLampOnDemand) {
    const auto pPlain = makeFrameSource("sim:3?width=200&height=150");
    const auto pFaulty = makeFrameSource("sim:3?width=200&height=150&clusters=4&badcolumns=1&spikes=5&unsteady=30");
    const CameraSettings settings = pPlain->defaultSettings();
    std::vector<double> vecPlain(30000), vecFaulty(30000);
    std::vector<double> vecLamp;
    for (uint64_t iFrame = 0; iFrame < 32; ++iFrame) {
        const Samples plain = fillSamples(*pPlain, settings, eSceneLight, iFrame);
        const Samples faulty = fillSamples(*pFaulty, settings, eSceneLight, iFrame);
        vecLamp.push_back(meanOf(faulty) / meanOf(plain));
        for (std::size_t i = 0; i < plain.size(); ++i) {
            vecPlain[i] += plain[i];
            vecFaulty[i] += faulty[i] / vecLamp.back();
        }
        const Samples dark = fillSamples(*pPlain, settings, eSceneDark, iFrame);
        const Samples hit = fillSamples(*pFaulty, settings, eSceneDark, iFrame);
        std::size_t nHit = 0;
        for (std::size_t i = 0; i < dark.size(); ++i) {
            nHit += dark[i] != hit[i] ? 1U : 0U;
            EXPECT_TRUE(dark[i] == hit[i] || hit[i] - dark[i] > 1490) << "5000 electrons";
        }
        EXPECT_GE(nHit, 4U);  // two may have hit one pixel
        EXPECT_LE(nHit, 5U);
    }
    std::size_t nDead = 0, nDim = 0;
    for (std::size_t i = 0; i < vecPlain.size(); ++i) {
        const double dRatio = vecFaulty[i] / vecPlain[i];
        nDead += dRatio < 0.3 ? 1U : 0U;
        nDim += dRatio > 0.4 && dRatio < 0.6 ? 1U : 0U;
    }
    EXPECT_EQ(nDead, 4U * 9U);
    EXPECT_NEAR(static_cast<double>(nDim), 150.0, 9.0);
    double dMean = 0.0, dSquares = 0.0;
    for (const double dLamp : vecLamp) {
        dMean += dLamp / 32.0;
    }
    for (const double dLamp : vecLamp) {
        dSquares += (dLamp - dMean) * (dLamp - dMean) / 31.0;
    }
    EXPECT_NEAR(std::sqrt(dSquares), 0.03, 0.01);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
