// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What judgement says of references that are good, bad, and for another camera.

#include <cmath>

#include <gmock/gmock.h>

#include "Images.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

using StandIn::ReferenceImage;
using ::testing::HasSubstr;
typedef std::function<void(ReferenceImage& rDark, ReferenceImage& rLight)> Change;

const char* const SETTINGS =
    R"({"DeviceModelName":"Model 1","DeviceSerialNumber":"A-1","ExposureTime":10000,"Gain":100,"OffsetX":0,"OffsetY":0,"BinningHorizontal":1,"BinningVertical":1,"ReverseX":false,"ReverseY":false})";

StandIn::ImageLayout layoutOf(const char* pFormat, uint64_t nWidth = 64, uint64_t nHeight = 48) {
    return {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
}

/// Differences of 1 DN from pixel to pixel.
ReferenceImage dark(const StandIn::ImageLayout& rLayout) {
    ReferenceImage result = makeReference(StandIn::eReferenceDark, rLayout,
                                          [](std::size_t i) { return i * 2654435761U % 1024U < 512U ? 63.0 : 65.0; });
    result.strCamera = SETTINGS;
    return result;
}

/// Differences of 1 % from pixel to pixel.
ReferenceImage light(const StandIn::ImageLayout& rLayout, double dMean = 2064.0) {
    ReferenceImage result = makeReference(StandIn::eReferenceLight, rLayout, [dMean](std::size_t i) {
        return 64.0 + (dMean - 64.0) * (i * 2654435761U % 1024U < 512U ? 0.99 : 1.01);
    });
    result.strCamera = SETTINGS;
    return result;
}

/// "severity id" of each finding, "!" behind one that --force does not override.
std::vector<std::string> names(const Findings& rFindings) {
    std::vector<std::string> vecNames;
    for (const Finding& rFinding : rFindings) {
        const char* pLevel = rFinding.eLevel == eRefusal   ? "refusal "
                             : rFinding.eLevel == eWarning ? "warning "
                                                           : "note ";
        vecNames.push_back(pLevel + rFinding.strId + (rFinding.bFinal ? "!" : ""));
        EXPECT_TRUE(rFinding.eLevel == eNote || !rFinding.strAdvice.empty()) << rFinding.strId;
    }
    return vecNames;
}

/// The setting's value in the description replaced by another.
void set(ReferenceImage& rReference, const std::string& strName, const std::string& strValue) {
    const std::size_t iBegin = rReference.strCamera.find(strName) + strName.size() + 2;
    const std::size_t iEnd = rReference.strCamera.find_first_of(",}", iBegin);
    rReference.strCamera.replace(iBegin, iEnd - iBegin, strValue);
}

}  // namespace

TEST(Judgement, SaysWhatIsWrongWithThePairAndNothingElse) {
    const struct {
        const char* pExpected;  // of dark, light, pair; empty: all good
        Change fnChange;
    } aCases[] = {
        {"", [](auto&, auto&) {}},
        {"", [](auto& rDark, auto&) { rDark.vecSamples[100] = 2000.0F; }},  // one hot pixel rejects nothing
        {"", [](auto&, auto& rLight) { rLight.dSaturatedShare = 0.0009; }},
        {"warning saturated", [](auto&, auto& rLight) { rLight.dSaturatedShare = 0.01; }},
        {"refusal saturated", [](auto&, auto& rLight) { rLight.dSaturatedShare = 0.0101; }},
        {"refusal saturated", [](auto& rDark, auto&) { rDark.dSaturatedShare = 0.03; }},
        {"", [](auto&, auto& rLight) { rLight = light(rLight.layout, 1640.0); }},
        {"warning dim", [](auto&, auto& rLight) { rLight = light(rLight.layout, 1635.0); }},
        {"", [](auto&, auto& rLight) { rLight = light(rLight.layout, 3270.0); }},
        {"warning bright", [](auto&, auto& rLight) { rLight = light(rLight.layout, 3280.0); }},
        {"warning dim refusal no-light warning noisy-reference",
         [](auto&, auto& rLight) { rLight = light(rLight.layout, 104.0); }},
        {"warning not-dark note dark-worse",
         [](auto& rDark, auto&) { rDark.vecSamples.assign(rDark.vecSamples.size(), 412.0F); }},
        {"warning black-clipped", [](auto& rDark, auto&) { std::fill_n(rDark.vecSamples.begin(), 40, 0.0F); }},
        {"note coarse", [](auto& rDark, auto&) { rDark.dTemporalNoise = 0.23; }},
        {"warning few-frames", [](auto&, auto& rLight) { rLight.nImages = 7; }},
        {"warning few-frames note gain-unknown", [](auto& rDark, auto&) { rDark.nImages = 1; }},
        {"warning no-noise note gain-unknown", [](auto&, auto& rLight) { rLight.dTemporalNoise = 0.0; }},
        {"warning noisy-reference", [](auto&, auto& rLight) { rLight.dTemporalNoise = 100.0; }},
        {"warning no-shot-noise note gain-unknown",
         [](auto& rDark, auto& rLight) { rLight.dTemporalNoise = rDark.dTemporalNoise; }},
        {"warning no-shot-noise note gain-unknown",
         [](auto& rDark, auto& rLight) { rLight.dTemporalNoise = 0.9 * rDark.dTemporalNoise; }},
        {"", [](auto& rDark, auto& rLight) { rLight.dTemporalNoise = std::hypot(rDark.dTemporalNoise, 3.0); }},
        {"",
         [](auto&, auto& rLight) {
             rLight.means = {2064.0, 2065.0, 2062.0, 2066.0};
         }},
        {"note drift",
         [](auto&, auto& rLight) {
             rLight.means = {2064.0, 2064.5, 2062.0, 2066.2};
         }},
        {"warning drift",
         [](auto&, auto& rLight) {
             rLight.means = {2050.0, 2075.0, 2050.0, 2075.0};
         }},
        {"",
         [](auto& rDark, auto&) {
             rDark.means = {64.0, 64.4, 64.0, 64.4};
         }},
        {"note drift",
         [](auto& rDark, auto&) {
             rDark.means = {64.0, 64.6, 64.0, 64.6};
         }},
        {"warning drift",
         [](auto& rDark, auto&) {
             rDark.means = {65.0, 63.0, 63.0, 65.1};
         }},
        {"note coarse",
         [](auto& rDark, auto&) {
             rDark.dTemporalNoise = 0.0;
             rDark.means = {64.0, 64.0, 64.0, 64.0};
         }},
        {"",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetValue, 3000.0, 16.0};
         }},
        {"refusal output-clipped",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetValue, 3000.0, 1095.0};
         }},
        {"refusal output-clipped",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetMean, 0.0, 2095.5};
         }},
        {"warning output-bright",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetMean, 0.0, 1280.0};
         }},
        {"",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetMean, 0.0, 1270.0};
         }},
        {"",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetValue, 41.0, 0.0};
         }},
        {"warning output-dim",
         [](auto&, auto& rLight) {
             rLight.output = {StandIn::eTargetValue, 40.0, 0.0};
         }},
        {"warning few-samples",
         [](auto& rDark, auto& rLight) {
             rDark = dark(layoutOf("Mono12", 5, 3));
             rLight = light(layoutOf("Mono12", 5, 3));
         }},
        {"",
         [](auto& rDark, auto& rLight) {
             rDark = dark(layoutOf("Mono12", 8, 8));
             rLight = light(layoutOf("Mono12", 8, 8));
         }},
        {"refusal other-kind!", [](auto& rDark, auto& rLight) { std::swap(rDark, rLight); }},
        {"refusal other-size!", [](auto& rDark, auto&) { rDark = dark(layoutOf("Mono12", 48, 64)); }},
        {"refusal other-format!", [](auto& rDark, auto&) { rDark = dark(layoutOf("BayerRG12")); }},
        {"", [](auto& rDark, auto&) { rDark = dark(layoutOf("Mono12p")); }},
        {"warning other-exposure", [](auto&, auto& rLight) { set(rLight, "ExposureTime", "10060"); }},
        {"", [](auto&, auto& rLight) { set(rLight, "ExposureTime", "10040"); }},
        {"warning other-gain", [](auto&, auto& rLight) { set(rLight, "Gain", "200"); }},
        {"refusal other-offset", [](auto&, auto& rLight) { set(rLight, "OffsetY", "1"); }},
        {"refusal other-binning", [](auto&, auto& rLight) { set(rLight, "BinningVertical", "2"); }},
        {"refusal other-mirror", [](auto&, auto& rLight) { set(rLight, "ReverseX", "true"); }},
        {"note settings-unknown", [](auto&, auto& rLight) { rLight.strCamera.clear(); }},
        {"note settings-unknown", [](auto& rDark, auto& rLight) { rDark.strCamera = rLight.strCamera = ""; }},
        {"note no-signal", [](auto& rDark, auto& rLight) { rLight.vecSamples[77] = rDark.vecSamples[77]; }},
    };
    for (const auto& rCase : aCases) {
        ReferenceImage darkImage = dark(layoutOf("Mono12")), lightImage = light(layoutOf("Mono12"));
        rCase.fnChange(darkImage, lightImage);
        Findings vecAll = judgeReference(darkImage).vecFindings;
        for (const Findings& rMore :
             {judgeReference(lightImage, &darkImage).vecFindings, judgePair(darkImage, lightImage, 0.7).vecFindings}) {
            vecAll.insert(vecAll.end(), rMore.begin(), rMore.end());
        }
        std::string strIs;
        for (const std::string& rName : names(vecAll)) {
            strIs += (strIs.empty() ? "" : " ") + rName;
        }
        EXPECT_EQ(strIs, rCase.pExpected) << describe(vecAll);
        const bool bRefused = strIs.find("refusal") != std::string::npos;
        EXPECT_EQ(refused(vecAll), bRefused);
        EXPECT_EQ(refused(vecAll, true), strIs.find('!') != std::string::npos);
        EXPECT_STREQ(verdict(vecAll), bRefused                                     ? "refused"
                                      : strIs.find("warning") == std::string::npos ? "good"
                                                                                   : "warning");
    }
}

TEST(Judgement, TellsTheNumbers) {
    ReferenceImage darkImage = dark(layoutOf("Mono12")), lightImage = light(layoutOf("Mono12"));
    lightImage.dSaturatedShare = 0.03;
    EXPECT_THAT(describe(judgeReference(lightImage)), HasSubstr("Refused: 3.00 % of the samples are at full scale"));
    // (20^2 - 2^2) DN^2 / 2000 DN; 2000 DN / K; 1 / sqrt(16 e-)
    const PairFigures figures = judgePair(darkImage, lightImage).figures;
    EXPECT_NEAR(figures.dGain, 0.198, 1e-4);
    EXPECT_NEAR(figures.dElectrons, 10101.0, 10.0);
    EXPECT_NEAR(figures.dResidualPercent, 0.25, 2e-4);  // 20 DN / sqrt(16), of 2,000 DN
    // Levels that tell no gain leave what the pair tells.
    const double dNone = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(judgePair(darkImage, lightImage, dNone, {dNone}).figures.dGain, figures.dGain);
    EXPECT_EQ(judgePair(darkImage, lightImage, dNone, {dNone}).figures.dResidualPercent, figures.dResidualPercent);
    EXPECT_EQ(judgePair(darkImage, lightImage, dNone, {0.25}).figures.dGain, 0.25);
    lightImage.nImages = 1;
    EXPECT_THAT(describe(judgeReference(lightImage)), HasSubstr("temporal noise     unknown"));
    EXPECT_THAT(describe(judgePair(darkImage, lightImage)), HasSubstr("conversion gain    unknown"));
    EXPECT_TRUE(std::isnan(judgePair(darkImage, lightImage).figures.dResidualPercent));
}

TEST(Judgement, DarkImageIsNoLightReferenceAndOneWeakColourIsTold) {
    EXPECT_EQ(names(judgeReference(light(layoutOf("Mono12"), 40.0)).vecFindings),
              std::vector<std::string>{"refusal too-dark"});
    ReferenceImage lightImage = light(layoutOf("BayerRG12"), 2500.0);
    for (std::size_t i = 1; i < lightImage.vecSamples.size(); i += 2) {
        lightImage.vecSamples[i] /= i / 64 % 2 == 1 ? 4.0F : 1.0F;
    }
    EXPECT_THAT(describe(judgeReference(lightImage)), HasSubstr("Warning: Colour B has only 15.3 % of full scale"));
}

TEST(Judgement, SelfTestIsHeldToWhatTheProcessorPromises) {
    const auto fnFindings = [](const char* pFormat, double dSelfTest) {
        const double dScale = StandIn::findPixelFormat(pFormat)->fullScale() / 4095.0;
        ReferenceImage darkImage = dark(layoutOf(pFormat)), lightImage = light(layoutOf(pFormat));
        for (std::size_t i = 0; i < lightImage.vecSamples.size(); ++i) {
            lightImage.vecSamples[i] *= static_cast<float>(dScale);
            darkImage.vecSamples[i] *= static_cast<float>(dScale);
        }
        return names(judgePair(darkImage, lightImage, dSelfTest).vecFindings).size();
    };
    EXPECT_EQ(fnFindings("Mono12", 1.0), 0U);
    EXPECT_EQ(fnFindings("Mono12", 1.01), 1U);
    EXPECT_EQ(fnFindings("Mono16", 1.50), 0U);
    EXPECT_EQ(fnFindings("Mono16", 1.52), 1U);  // 1 + 1.01 / 2
}

TEST(Judgement, CameraIsComparedWithTheReference) {
    const struct {
        const char* pExpected;
        std::function<void(CameraSettings&)> fnChange;
    } aCases[] = {
        {"", [](auto&) {}},
        {"", [](auto& r) { r.strPixelFormat = "Mono12p"; }},
        {"refusal other-format!", [](auto& r) { r.strPixelFormat = "Mono8"; }},
        {"refusal other-format!", [](auto& r) { r.strPixelFormat = "YUV422"; }},
        {"refusal other-size!", [](auto& r) { r.nWidth = 32; }},
        {"refusal other-offset", [](auto& r) { r.mapValues["OffsetX"] = 2; }},
        {"refusal other-binning", [](auto& r) { r.mapValues["BinningHorizontal"] = 2; }},
        {"refusal other-mirror", [](auto& r) { r.mapValues["ReverseY"] = 1; }},
        {"warning other-exposure", [](auto& r) { r.mapValues["ExposureTime"] = 20000; }},
        {"warning other-gain", [](auto& r) { r.mapValues["Gain"] = 120; }},
        {"note settings-unknown", [](auto& r) { r.mapValues.erase("ReverseX"); }},
        {"warning other-camera", [](auto& r) { r.strSerial = "B-2"; }},
        {"warning other-camera", [](auto& r) { r.strModel = "Model 2"; }},
        {"", [](auto& r) { r.strSerial = r.strModel = ""; }},
    };
    for (const auto& rCase : aCases) {
        CameraSettings camera = cameraSettingsFromJson(SETTINGS);
        camera.strPixelFormat = "Mono12";
        camera.nWidth = 64;
        camera.nHeight = 48;
        rCase.fnChange(camera);
        const Findings vecFound = compareWithCamera("the dark reference", dark(layoutOf("Mono12")), camera);
        EXPECT_EQ(names(vecFound),
                  *rCase.pExpected ? std::vector<std::string>{rCase.pExpected} : std::vector<std::string>{});
    }
    CameraSettings other = cameraSettingsFromJson(SETTINGS);
    other.strPixelFormat = "Mono12";
    other.nWidth = other.nHeight = 48;
    other.mapValues = {{"ExposureTime", 20000.0}};
    EXPECT_THAT(
        describe(compareWithCamera("the dark reference", dark(layoutOf("Mono12")), other)),
        ::testing::AllOf(HasSubstr("The dark reference is Mono12, 64 x 48, the camera delivers Mono12, 48 x 48."),
                         HasSubstr("exposure time 10000 us, the camera is set to exposure time 20000 us.")));
}

TEST(Judgement, LightThatMovedIsNoNoise) {
    for (const char* pFormat : {"Mono12", "BayerRG12", "RGB8"}) {
        const ReferenceImage darkOne = dark(layoutOf(pFormat));
        ReferenceImage lightOne = light(layoutOf(pFormat), std::string(pFormat) == "RGB8" ? 128.0 : 2064.0);
        const PairFigures steady = judgePair(darkOne, lightOne).figures;
        lightOne.dNeighbourNoise = lightOne.dTemporalNoise;
        lightOne.dTemporalNoise *= 1.6;
        for (double& rNoise : lightOne.vecClassNoise) {
            rNoise *= 1.6;
        }
        const PairFigures moved = judgePair(darkOne, lightOne).figures;
        EXPECT_NEAR(moved.dGain / steady.dGain, 1.0, 1e-9) << pFormat;
        EXPECT_NEAR(moved.noise.at(0).dGain / steady.noise.at(0).dGain, 1.0, 1e-9) << pFormat;
        EXPECT_NEAR(moved.dResidualPercent / steady.dResidualPercent, 1.0, 1e-9) << pFormat;
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
