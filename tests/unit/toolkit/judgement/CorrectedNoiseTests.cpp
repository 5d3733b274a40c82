// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The predicted noise of corrected samples beside that of corrected frames of the simulated sensor.

#include "toolkit/judgement/CorrectedNoise.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include <gtest/gtest.h>

#include "Images.h"
#include "TemporaryFolder.h"
#include "toolkit/judgement/FrameStack.h"
#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/NonUniformity.h"
#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"
#include "xapel2_standin/ReferenceFile.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;

namespace {

constexpr uint64_t WIDTH = 160, HEIGHT = 128, FIRST_TEST_FRAME = 1000;

/// A simulated camera that records references and has its frames corrected by them.
class CLab {
public:
    explicit CLab(const char* pFormat, uint64_t nBinning = 1)
        : m_camera({StandIn::findPixelFormat(pFormat), WIDTH, HEIGHT}),
          m_pDevice(StandIn::openDevice("sim:7?width=" + std::to_string(WIDTH) + "&height=" + std::to_string(HEIGHT) +
                                        "&format=" + pFormat)),
          m_pShading(std::make_unique<Ext::Sc::Shading>(m_pDevice)) {
        m_camera.settings.nBinningX = m_camera.settings.nBinningY = nBinning;
    }
    ~CLab() {
        m_pShading.reset();
        StandIn::closeDevice(m_pDevice);
    }
    CLab(const CLab&) = delete;
    CLab& operator=(const CLab&) = delete;

    void expose(uint64_t iMicroseconds) { m_camera.settings.iExposureUs = iMicroseconds; }

    StandIn::ReferenceImage record(bool bLight, uint64_t nFrames, const StandIn::ReferenceOutput& rOutput = {}) {
        const std::string strFile = m_folder / (bLight ? "light.tif" : "dark.tif");
        m_pShading->ReferenceStart(bLight);
        for (uint64_t i = 0; i < nFrames; ++i) {
            add(m_camera.image(bLight ? StandIn::eSceneLight : StandIn::eSceneDark, i));
        }
        m_pShading->ReferenceEnd(strFile.c_str());
        StandIn::ReferenceImage reference = StandIn::readReferenceFile(strFile);
        if (!rOutput.isDefault()) {
            reference.output = rOutput;
            StandIn::writeReferenceFile(strFile, reference);
            m_pShading->ReferenceLoad(bLight, strFile.c_str());
        }
        return reference;
    }
    void apply() { m_pShading->ReferenceApply(); }

    Frame corrected(StandIn::eScene eWhat, uint64_t i) {
        return m_camera.unpacked(add(m_camera.image(eWhat, FIRST_TEST_FRAME + i)));
    }

    const StandIn::ImageLayout& layout() const { return m_camera.layout; }
    const StandIn::SensorModel& model() const { return m_camera.sensor.model(); }

private:
    std::vector<unsigned char> add(std::vector<unsigned char> vecImage) {
        m_pShading->ReferenceAdd(m_camera.layout.pFormat->pName, WIDTH, HEIGHT, vecImage.data(), vecImage.size());
        return vecImage;
    }

    SimulatedFrames m_camera;
    XAPEL2::Test::CTemporaryFolder m_folder;
    Device* m_pDevice;
    std::unique_ptr<Ext::Sc::Shading> m_pShading;
};

/// What is uneven in the mean of many corrected frames, their own noise taken out, percent.
std::vector<double> measuredResiduals(CLab& rLab) {
    constexpr uint64_t FRAMES = 150;
    CFrameStack stack(rLab.layout());
    for (uint64_t i = 0; i < FRAMES; ++i) {
        stack.add(rLab.corrected(StandIn::eSceneLight, i));
    }
    const MeanImage mean = stack.mean();
    std::vector<double> vecResiduals;
    for (unsigned k = 0; k < rLab.layout().classes(); ++k) {
        const CColourPlane plane = colourPlane(mean.layout, mean.vecSamples, k);
        double dMean = 0.0;
        for (const float fSample : plane) {
            dMean += static_cast<double>(fSample) / static_cast<double>(plane.size());
        }
        vecResiduals.push_back(100.0 * std::sqrt(spatialVariances(plane, FRAMES, mean.vecClassVariance[k]).dTotal) /
                               dMean);
    }
    return vecResiduals;
}

}  // namespace

TEST(CorrectedNoise, ResidualIsWhatTheNoiseOfTheReferenceLeaves) {
    const struct {
        const char* pFormat;
        uint64_t iExposureUs, nBinning, nFrames;
    } aRows[] = {
        {"Mono12", 125, 1, 16},                               // 100 e-: as much read noise as a third of the shot noise
        {"Mono12", 1250, 1, 4},                               // 1,000 e-
        {"Mono12", 8750, 1, 16},                              // 7,000 e-
        {"Mono12", 6250, 2, 16},                              // 20,000 e-
        {"Mono8", 1250, 1, 16},                               // the rounding is most of it
        {"Mono8", 8750, 1, 4},                                // a small part of it
        {"Mono8", 8750, 1, 64},  {"BayerRG12", 1250, 1, 16},  // colours of their own light
        {"RGB8", 6250, 1, 16},
    };
    for (const auto& rRow : aRows) {
        CLab lab(rRow.pFormat, rRow.nBinning);
        lab.expose(rRow.iExposureUs);
        const StandIn::ReferenceImage dark = lab.record(false, 64), light = lab.record(true, rRow.nFrames);
        lab.apply();
        const PairFigures figures = judgePair(dark, light).figures;
        const std::vector<double> vecMeasured = measuredResiduals(lab);
        ASSERT_EQ(figures.vecResidualPercent.size(), vecMeasured.size());
        for (std::size_t i = 0; i < vecMeasured.size(); ++i) {
            // A class of the filter array has 5,120 samples, which tell a deviation to 1 %; the others have four times
            // as many.
            EXPECT_NEAR(figures.vecResidualPercent[i] / vecMeasured[i], 1.0, 0.02)
                << rRow.pFormat << ' ' << rRow.iExposureUs << " us, class " << i << ": " << vecMeasured[i];
        }
        EXPECT_EQ(figures.dResidualPercent,
                  *std::max_element(figures.vecResidualPercent.begin(), figures.vecResidualPercent.end()));
    }
}

// Of large images some samples are looked at: of each channel and each site of a filter array.
TEST(CorrectedNoise, EveryColourIsKnownAtEverySize) {
    for (const char* pFormat : {"RGB8", "BayerRG8", "Mono8"}) {
        for (const auto& [nWidth, nHeight] : {std::pair(161U, 121U), {320U, 240U}, {640U, 480U}, {1920U, 1080U}}) {
            StandIn::ReferenceImage dark, light;
            dark.layout = light.layout = {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
            dark.nImages = light.nImages = 16;
            dark.vecSamples.assign(dark.layout.samples(), 10.0F);
            light.vecSamples.assign(light.layout.samples(), 110.0F);
            const std::size_t nClasses = colourClassNames(*light.layout.pFormat).size();
            const CCorrectedNoise noise(dark, light, SensorNoise(nClasses, ClassNoise{0.25, 4.0}));
            for (unsigned i = 0; i < nClasses; ++i) {
                EXPECT_GT(noise.residualPercent(i), 0.5) << pFormat << ' ' << nWidth << ", class " << i;
                EXPECT_GT(noise.deviationOf(i, 100.0), 1.0) << pFormat << ' ' << nWidth << ", class " << i;
            }
        }
    }
}

TEST(CorrectedNoise, DeviationOfSamplesIsThatOfCorrectedFrames) {
    constexpr uint64_t FRAMES = 6, REFERENCE_US = 8000;
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16"}) {
        CLab lab(pFormat);
        lab.expose(REFERENCE_US);
        const SensorNoise noise = sensorNoise(lab.record(false, 64), lab.record(true, 64));
        for (const uint64_t nFrames : {1U, 4U, 16U, 64U}) {
            lab.expose(REFERENCE_US);
            const StandIn::ReferenceImage dark = lab.record(false, nFrames), light = lab.record(true, nFrames);
            lab.apply();
            const CCorrectedNoise predicted(dark, light, noise);
            for (const uint64_t iExposureUs : {800U, 2500U, 5000U, 8000U, 11000U}) {
                lab.expose(iExposureUs);
                double dMean = 0.0, dSquares = 0.0, dCount = 0.0;
                std::vector<Frame> vecFrames;
                for (uint64_t i = 0; i < FRAMES; ++i) {
                    vecFrames.push_back(lab.corrected(StandIn::eSceneLight, i));
                    for (const uint16_t uSample : vecFrames.back().vecSamples) {
                        dMean += uSample / static_cast<double>(FRAMES * WIDTH * HEIGHT);
                    }
                }
                for (const Frame& rFrame : vecFrames) {
                    for (std::size_t i = 0; i < rFrame.vecSamples.size(); ++i) {
                        const double dOff = (rFrame.vecSamples[i] - dMean) / predicted.deviation(i, dMean);
                        // Hot pixels, whose dark signal is another at another exposure, are not noise.
                        if (std::abs(dOff) < 7.0) {
                            dSquares += dOff * dOff;
                            dCount += 1.0;
                        }
                    }
                }
                EXPECT_NEAR(std::sqrt(dSquares / dCount), 1.0, 0.03)
                    << pFormat << ", " << nFrames << " frames, " << iExposureUs << " us: mean " << dMean;
                EXPECT_GT(dCount, 0.999 * FRAMES * WIDTH * HEIGHT);
            }
        }
    }
}

// Without a pedestal a dark scene is cut off at 0, and its mean is too high by 0.4 of its deviation.
TEST(CorrectedNoise, PedestalKeepsTheNoiseOfADarkScene) {
    constexpr uint64_t FRAMES = 20;
    CLab lab("Mono12");
    const StandIn::ReferenceImage dark = lab.record(false, 16);
    StandIn::ReferenceOutput output;
    output.dPedestal = 16.0;
    const StandIn::ReferenceImage light = lab.record(true, 16, output);
    lab.apply();
    const double dGain = 0.3, dRead = lab.model().dReadNoise;
    double dMean = 0.0, dSquares = 0.0, dLaw = 0.0;
    const CCorrectedNoise predicted(dark, light, sensorNoise(dark, light));
    double dTarget = predicted.target(0), dPredicted = 0.0, dMapped = 0.0;
    for (uint64_t k = 0; k < FRAMES; ++k) {
        const Frame frame = lab.corrected(StandIn::eSceneDark, k);
        for (std::size_t i = 0; i < frame.vecSamples.size(); ++i) {
            const double dOff = frame.vecSamples[i] - 16.0;
            const double dScale = dTarget / static_cast<double>(light.vecSamples[i] - dark.vecSamples[i]);
            dMean += dOff;
            dSquares += dOff * dOff;
            // 10 ms of 20 e- per s; the pedestal's own rounding is the last part.
            dLaw += dScale * dScale * (dGain * dGain * (dRead * dRead + 0.2) + 1.0 / 12.0) * (1.0 + 1.0 / 16.0) +
                    1.0 / 12.0;
            dPredicted += std::pow(predicted.deviation(i, 16.0), 2.0);
            dMapped += predicted.deviation(i, frame.vecSamples[i]);
        }
    }
    const double dCount = FRAMES * WIDTH * HEIGHT;
    EXPECT_NEAR(dMean / dCount, 0.0, 0.05);
    EXPECT_NEAR(std::sqrt(dSquares / dLaw), 1.0, 0.02);
    EXPECT_NEAR(std::sqrt(dPredicted / dLaw), 1.0, 0.02);
    // From the noisy samples themselves, as the map of a frame is.
    EXPECT_NEAR(dMapped / dCount / std::sqrt(dLaw / dCount), 1.0, 0.02);
}
