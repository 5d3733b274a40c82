// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every figure stands under its own name, and warnings are of the right colour.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "Images.h"
#include "toolkit/judgement/Judgement.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {
using nlohmann::ordered_json;
}

TEST(JudgementJson, EveryFigureStandsUnderItsOwnName) {
    PairJudgement pair;
    pair.figures.dGain = 0.5;
    pair.figures.dElectrons = 2.0;
    pair.figures.dResidualPercent = 3.0;
    pair.figures.dSelfTestDn = 4.0;
    pair.figures.unevenness.dGain = 0.25;
    ClassNonUniformity class_;
    class_.strName = "mono";
    class_.dDarkMean = 5.0;
    class_.dLightMean = 6.0;
    class_.dsnu = {7.0, 8.0, 9.0, 10.0};
    class_.prnu = {11.0, 12.0, 13.0, 14.0};
    class_.dsnuUncertainty = {0.003, 16.0, 17.0, 18.0};
    class_.prnuUncertainty = {19.0, 20.0, 21.0, 22.0};
    class_.dsnuLimit = {23.0, 24.0, 25.0, 26.0};
    class_.prnuLimit = {27.0, 28.0, 29.0, 30.0};
    pair.figures.unevenness.vecClasses = {class_};
    const ordered_json json = toJson(pair);
    const std::pair<const char*, double> aPair[] = {
        {"conversionGain", 0.5}, {"electrons", 2.0}, {"predictedResidualPercent", 3.0}, {"selfTestDn", 4.0}};
    for (const auto& [pName, dValue] : aPair) {
        EXPECT_EQ(json.at(pName), dValue) << pName;
    }
    const ordered_json& rClass = json.at("nonUniformity").at("classes").at(0);
    EXPECT_EQ(rClass.at("darkMean"), 5.0);
    EXPECT_EQ(rClass.at("lightMean"), 6.0);
    const std::pair<const char*, double> aGroups[] = {
        {"dsnu", 7.0},       {"prnuPercent", 11.0},     {"dsnuUncertainty", 15.0}, {"prnuPercentUncertainty", 19.0},
        {"dsnuLimit", 23.0}, {"prnuPercentLimit", 27.0}};
    for (const auto& [pGroup, dFirst] : aGroups) {
        double dNext = dFirst;
        for (const char* pPart : {"total", "row", "column", "pixel"}) {
            EXPECT_EQ(rClass.at(pGroup).at(pPart), dNext == 15.0 ? 0.003 : dNext) << pGroup << ' ' << pPart;
            ++dNext;
        }
    }
    // An uncertainty is no 0.00.
    EXPECT_THAT(describe(pair), ::testing::HasSubstr("7.00 +- 0.003 e- (row 8.00, column 9.00, pixel 10.00)"));

    ReferenceJudgement light;
    ReferenceFigures& rFigures = light.figures;
    rFigures.eKind = StandIn::eReferenceLight;
    rFigures.layout = {StandIn::findPixelFormat("RGB8"), 15, 16};
    rFigures.nFrames = 17;
    rFigures.dMean = 18.0;
    rFigures.dMeanPercent = 19.0;
    rFigures.dSaturatedShare = 0.2;
    rFigures.dTemporalNoise = 21.0;
    rFigures.means = {31.0, 32.0, 33.0, 34.0};
    rFigures.vecClassMeans = {22.0, 23.0, 24.0};
    rFigures.vecDefects = {{eDead, 25, 26, 1, 27.0, 28.0}, {eBright, 1, 2, 0, 3.0, 4.0}, {eDead, 5, 6, 2, 7.0, 8.0}};
    const ordered_json told = toJson(light);
    const std::pair<const char*, ordered_json> aLight[] = {
        {"kind", "light"}, {"width", 15},         {"height", 16},          {"frames", 17},
        {"mean", 18.0},    {"meanPercent", 19.0}, {"saturatedShare", 0.2}, {"temporalNoise", 21.0},
        {"deadPixels", 2}, {"brightPixels", 1}};
    for (const auto& [pName, rValue] : aLight) {
        EXPECT_EQ(told.at(pName), rValue) << pName;
    }
    EXPECT_EQ(told.at("frameMeans"), ordered_json({{"first", 31.0}, {"last", 32.0}, {"least", 33.0}, {"most", 34.0}}));
    EXPECT_EQ(told.at("classes").at(2).at("mean"), 24.0);
    const ordered_json defects = toJson(rFigures.vecDefects, *rFigures.layout.pFormat);
    EXPECT_EQ(
        defects.at(0),
        ordered_json({{"kind", "dead"}, {"x", 25}, {"y", 26}, {"class", "G"}, {"value", 27.0}, {"neighbours", 28.0}}));
}

// Where one colour has nothing to correct but noise, the reference does harm there, however uneven the others are.
TEST(JudgementJson, NoiseIsComparedWithTheLeastUnevenColour) {
    const StandIn::ImageLayout layout = {StandIn::findPixelFormat("BayerRG12"), 64, 48};
    const auto fnDark = [](std::size_t) { return 64.0; };
    const StandIn::ReferenceImage dark = makeReference(StandIn::eReferenceDark, layout, fnDark);
    const auto fnFound = [&](double dRed) {
        const StandIn::ReferenceImage light = makeReference(StandIn::eReferenceLight, layout, [&](std::size_t i) {
            const double dOff = i / 64 % 2 == 0 && i % 2 == 0 ? dRed : 0.05;
            return 64.0 + 2000.0 * (i * 2654435761U % 1024U < 512U ? 1.0 - dOff : 1.0 + dOff);
        });
        const Findings vecFound = judgePair(dark, light).vecFindings;
        return std::count_if(vecFound.begin(), vecFound.end(),
                             [](const Finding& r) { return r.strId == "noisy-reference"; });
    };
    EXPECT_EQ(fnFound(0.05), 0);
    EXPECT_EQ(fnFound(0.0), 1);
}

}  // namespace Toolkit
}  // namespace XAPEL2
