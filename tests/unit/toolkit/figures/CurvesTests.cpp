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

StandIn::ReferenceImage reference(const StandIn::ImageLayout& rLayout, std::vector<float> vecSamples) {
    StandIn::ReferenceImage result;
    result.layout = rLayout;
    result.vecSamples = std::move(vecSamples);
    return result;
}

}  // namespace

TEST(Curves, GainIsTheMeanSignalOfTheColourOverTheSignal) {
    const StandIn::ImageLayout mono = layout("Mono8", 4, 1), rgb = layout("RGB8", 2, 1);
    const StandIn::ReferenceImage dark = reference(mono, {10, 10, 10, 10});
    const StandIn::ReferenceImage light = reference(mono, {110, 60, 10, 11});  // signal 100, 50, 0, 1; mean 37.75
    EXPECT_THAT(gainsOf(&dark, &light), ElementsAre(0.3775F, 0.755F, 1.0F, 16.0F));
    EXPECT_THAT(gainsOf(&dark, nullptr), ElementsAre(1.0F, 1.0F, 1.0F, 1.0F));
    const StandIn::ReferenceImage colour = reference(rgb, {100, 50, 10, 50, 50, 30});
    EXPECT_THAT(gainsOf(nullptr, &colour), Pointwise(FloatNear(1e-6F), {0.75F, 1.0F, 2.0F, 1.5F, 1.0F, 2.0F / 3.0F}));
}

TEST(Curves, CurvesAreMeansInPercentOfTheColour) {
    // Sites of a filter array: signal 100 and 80 in the green ones, red and blue even.
    const MeanImage image{layout("BayerRG8", 4, 2), 1, {50, 110, 50, 90, 110, 30, 90, 30}};
    const std::vector<float> vecRelative = relativeSignal(image, {10, 10, 10, 10});
    EXPECT_THAT(vecRelative, Pointwise(FloatNear(1e-4F),
                                       {100.F, 1000.F / 9, 100.F, 800.F / 9, 1000.F / 9, 100.F, 800.F / 9, 100.F}));
    const Curve columns = profileOf(image.layout, vecRelative, false, 2),
                rows = profileOf(image.layout, vecRelative, true, 9);
    EXPECT_THAT(columns.vecValues, Pointwise(DoubleNear(1e-4), {950.0 / 9, 850.0 / 9}));
    EXPECT_EQ(columns.dFirst, 0.5);
    EXPECT_EQ(columns.dStep, 2.0);
    EXPECT_THAT(rows.vecValues, Pointwise(DoubleNear(1e-4), {100.0, 100.0}));
    const Histograms bins = histogramsOf({0, 0, 100}, {50, 50, 50}, 3);
    EXPECT_THAT(bins.vecBefore, ElementsAre(2, 0, 1));
    EXPECT_THAT(bins.vecAfter, ElementsAre(0, 3, 0));
    const Histograms few = histogramsOf({0, 10, 20, 30, 40, 50}, {0, 10, 20, 30, 40, 50}, 160, 20.0);
    EXPECT_THAT(few.vecBefore, ElementsAre(3, 3)) << "no comb of values and gaps";
    EXPECT_GE(few.dStep, 20.0);
}
