// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What people read of a judgement: every figure behind its own name.

#include "toolkit/judgement/JudgementText.h"

#include <gmock/gmock.h>

#include "Images.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {
namespace {

TEST(JudgementText, SettingsHaveTheirNamesAndUnits) {
    const struct {
        const char* pName;
        double dValue;
        const char *pText, *pId;
    } aRows[] = {
        {"ExposureTime", 10000.0, "exposure time 10000 us", "other-exposure"},
        {"Gain", 1.25, "gain 1.25", "other-gain"},
        {"OffsetX", 3.0, "offset X 3", "other-offset"},
        {"OffsetY", 4.0, "offset Y 4", "other-offset"},
        {"BinningHorizontal", 2.0, "binning X 2", "other-binning"},
        {"BinningVertical", 4.0, "binning Y 4", "other-binning"},
        {"ReverseX", 1.0, "mirror X on", "other-mirror"},
        {"ReverseY", 0.0, "mirror Y off", "other-mirror"},
    };
    ASSERT_EQ(cameraSettingNames().size(), std::size(aRows));
    for (const auto& rRow : aRows) {
        EXPECT_EQ(settingText(rRow.pName, rRow.dValue), rRow.pText);
        EXPECT_EQ(settingId(rRow.pName), rRow.pId);
    }
}

TEST(JudgementText, ReferenceTellsEachFigure) {
    ReferenceJudgement judgement;
    ReferenceFigures& rFigures = judgement.figures;
    rFigures.eKind = StandIn::eReferenceDark;
    rFigures.layout = {StandIn::findPixelFormat("Mono12"), 64, 48};
    rFigures.nFrames = 17;
    rFigures.dMean = 65.04;
    rFigures.dMeanPercent = 1.59;
    rFigures.dSaturatedShare = 0.0123;
    rFigures.dTemporalNoise = 2.345;
    rFigures.vecClassMeans = {65.04};
    rFigures.vecDefects = {{eHot, 1, 2, 0, 3.0, 4.0}, {eHot, 2, 2, 0, 3.0, 4.0}, {eDead, 5, 6, 0, 7.0, 8.0}};
    rFigures.settings.mapValues = {{"Gain", 2.0}, {"ExposureTime", 500.0}};
    judgement.vecFindings = {{eRefusal, "a", "So.", "Do."}, {eWarning, "b", "Thus.", ""}, {eNote, "c", "Then.", "Go."}};
    const std::string strTail = "Refused: So. Do.\nWarning: Thus.\nNote: Then. Go.\n";
    EXPECT_EQ(describe(judgement),
              "  image              Mono12, 64 x 48\n"
              "  frames averaged    17\n"
              "  mean               65.0 DN, 1.6 % of full scale\n"
              "  saturated          1.230 %\n"
              "  temporal noise     2.35 DN\n"
              "  hot pixels         2\n"
              "  camera             exposure time 500 us, gain 2\n" +
                  strTail);
    rFigures.eKind = StandIn::eReferenceLight;
    rFigures.layout.pFormat = StandIn::findPixelFormat("RGB8");
    rFigures.vecClassMeans = {11.0, 12.0, 13.0};
    rFigures.vecDefects.push_back({eBright, 1, 1, 0, 3.0, 4.0});
    rFigures.vecDefects.push_back({eBright, 1, 2, 0, 3.0, 4.0});
    rFigures.vecDefects.push_back({eBright, 1, 3, 0, 3.0, 4.0});
    rFigures.settings = {};
    judgement.vecFindings.clear();
    EXPECT_THAT(describe(judgement), ::testing::HasSubstr("\n    R                11.0 DN\n"
                                                          "    G                12.0 DN\n"
                                                          "    B                13.0 DN\n"));
    EXPECT_THAT(describe(judgement), ::testing::EndsWith("\n  dead pixels        1\n"
                                                         "  bright pixels      3\n"
                                                         "  camera             unknown\n"));
}

TEST(JudgementText, PairTellsEachFigureAndWhatIsNotKnown) {
    PairJudgement judgement;
    PairFigures& rFigures = judgement.figures;
    rFigures.dGain = 0.3;
    rFigures.dElectrons = 8000.0;
    rFigures.dResidualPercent = 0.28;
    rFigures.unevenness.dGain = 0.3;
    ClassNonUniformity class_;
    class_.strName = "mono";
    const double dNot = std::numeric_limits<double>::quiet_NaN();
    class_.dsnu = {1.0, dNot, 3.0, 4.0};
    class_.dsnuLimit = {10.0, 20.0, 30.0, 40.0};
    class_.dsnuUncertainty = {0.5, 6.0, 7.0, 8.0};
    class_.prnu = {dNot, dNot, dNot, dNot};
    class_.prnuLimit = {dNot, 0.2, dNot, 0.4};
    class_.prnuUncertainty = {dNot, dNot, dNot, dNot};
    rFigures.unevenness.vecClasses = {class_};
    const std::string strPair =
        "  conversion gain    0.3000 DN/e-\n"
        "  light signal       8000 e-\n"
        "  predicted residual 0.280 %\n"
        "  DSNU1288           1.00 +- 0.50 e- (row not resolved, below 20.00, column 3.00, pixel 4.00)\n"
        "  PRNU1288           unknown (row not resolved, below 0.200, column unknown, pixel not resolved, below "
        "0.400)\n";
    EXPECT_EQ(describe(judgement), strPair);
    rFigures.dSelfTestDn = 0.75;
    EXPECT_EQ(describe(judgement), strPair + "  self test          flat to 0.75 DN\n");
}

// What a finding says, not only that it is there.
TEST(JudgementText, FindingsNameTheirOwnFigures) {
    const StandIn::ImageLayout layout = {StandIn::findPixelFormat("Mono12"), 64, 48};
    StandIn::ReferenceImage light = makeReference(StandIn::eReferenceLight, layout, [](std::size_t) { return 2000.0; });
    light.means = {2010.0, 1990.0, 1980.0, 2040.0};
    light.nImages = 4;
    light.dSaturatedShare = 0.005;
    const std::string strLight = describe(judgeReference(light).vecFindings);
    for (const char* pText :
         {"The mean of a frame went from 2010.00 DN in the first to 1990.00 DN in the last (-1.00 %), within 1980.00 "
          "to "
          "2040.00 DN (3.00 %).",
          "4 frames averaged: the noise of the reference adds 12 % to that of each corrected frame.",
          "0.50 % of the samples are at full scale."}) {
        EXPECT_THAT(strLight, ::testing::HasSubstr(pText));
    }
    StandIn::ReferenceImage dark =
        makeReference(StandIn::eReferenceDark, layout, [](std::size_t i) { return i % 4 == 0 ? 0.0 : 600.0; });
    dark.strCamera = R"({"ExposureTime": 100, "Gain": 2})";
    dark.dTemporalNoise = 0.125;
    const std::string strDark = describe(judgeReference(dark).vecFindings);
    for (const char* pText : {"The mean is 450.0 DN, 11.0 % of full scale: light may have fallen in.",
                              "The noise in the dark is only 0.12 DN", "25.0 % of the samples are 0 in every frame"}) {
        EXPECT_THAT(strDark, ::testing::HasSubstr(pText));
    }
    light.strCamera = R"({"ExposureTime": 200, "OffsetX": 7})";
    CameraSettings camera;
    camera.strPixelFormat = "Mono12";
    camera.nWidth = 64;
    camera.nHeight = 48;
    camera.mapValues = {{"ExposureTime", 300.0}, {"OffsetX", 8.0}};
    const std::string strCamera = describe(compareWithCamera("the light reference", light, camera));
    EXPECT_THAT(strCamera,
                ::testing::HasSubstr("The light reference was taken with exposure time 200 us, the camera is "
                                     "set to exposure time 300 us."));
    camera.nWidth = 65;
    EXPECT_THAT(describe(compareWithCamera("the light reference", light, camera)),
                ::testing::HasSubstr("The light reference is Mono12, 64 x 48, the camera delivers Mono12, 65 x 48."));
    EXPECT_THAT(describe(judgePair(dark, light).vecFindings),
                ::testing::HasSubstr("The dark reference was taken with exposure time 100 us, the light one with "
                                     "exposure time 200 us."));
}

}  // namespace
}  // namespace Toolkit
}  // namespace XAPEL2
