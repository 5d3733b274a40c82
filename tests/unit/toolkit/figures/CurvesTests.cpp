// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Curves and gains, on small data with known answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "toolkit/figures/Curves.h"

using namespace XAPEL2;
using namespace XAPEL2::Toolkit;
using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::FloatNear;
using ::testing::Pointwise;

namespace {

StandIn::ImageLayout layout(const char* pFormat, uint64_t nWidth, uint64_t nHeight) {
    return {StandIn::findPixelFormat(pFormat), nWidth, nHeight};
}

StandIn::ReferenceImage reference(const StandIn::ImageLayout& rLayout, std::vector<float> vSamples) {
    StandIn::ReferenceImage Result;
    Result.sLayout = rLayout;
    Result.vSamples = std::move(vSamples);
    return Result;
}

}  // namespace

TEST(Curves, GainIsTheMeanSignalOfTheColourOverTheSignal) {
    const StandIn::ImageLayout sMono = layout("Mono8", 4, 1), sRgb = layout("RGB8", 2, 1);
    const StandIn::ReferenceImage Dark = reference(sMono, {10, 10, 10, 10});
    const StandIn::ReferenceImage Light = reference(sMono, {110, 60, 10, 11});  // signal 100, 50, 0, 1; mean 37.75
    EXPECT_THAT(gainsOf(&Dark, &Light), ElementsAre(0.3775F, 0.755F, 1.0F, 16.0F));
    EXPECT_THAT(gainsOf(&Dark, nullptr), ElementsAre(1.0F, 1.0F, 1.0F, 1.0F));
    const StandIn::ReferenceImage Colour = reference(sRgb, {100, 50, 10, 50, 50, 30});
    EXPECT_THAT(gainsOf(nullptr, &Colour), Pointwise(FloatNear(1e-6F), {0.75F, 1.0F, 2.0F, 1.5F, 1.0F, 2.0F / 3.0F}));
}

TEST(Curves, CurvesAreMeansInPercentOfTheColour) {
    // Sites of a filter array: signal 100 and 80 in the green ones, red and blue even.
    const MeanImage Image{layout("BayerRG8", 4, 2), 1, {50, 110, 50, 90, 110, 30, 90, 30}};
    const std::vector<float> vRelative = relativeSignal(Image, {10, 10, 10, 10});
    EXPECT_THAT(vRelative, Pointwise(FloatNear(1e-4F),
                                     {100.F, 1000.F / 9, 100.F, 800.F / 9, 1000.F / 9, 100.F, 800.F / 9, 100.F}));
    const Curve Columns = profileOf(Image.sLayout, vRelative, false, 2),
                Rows = profileOf(Image.sLayout, vRelative, true, 9);
    EXPECT_THAT(Columns.vValues, Pointwise(DoubleNear(1e-4), {950.0 / 9, 850.0 / 9}));
    EXPECT_EQ(Columns.dFirst, 0.5);
    EXPECT_EQ(Columns.dStep, 2.0);
    EXPECT_THAT(Rows.vValues, Pointwise(DoubleNear(1e-4), {100.0, 100.0}));
    const Histograms Bins = histogramsOf({0, 0, 100}, {50, 50, 50}, 3);
    EXPECT_THAT(Bins.vBefore, ElementsAre(2, 0, 1));
    EXPECT_THAT(Bins.vAfter, ElementsAre(0, 3, 0));
}
