// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Samples with fewer bits than their format.

#include "toolkit/judgement/Bits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

namespace XAPEL2 {
namespace Toolkit {
namespace {

TEST(Bits, MissingOnesAreNoticedAndTheirFullScaleIsSaturated) {
    struct Case {
        const char* pFormat;
        StandIn::eReferenceKind eKind;
        uint32_t uLargest;
        double dAtTop;  // share of the samples
        const char* pNamed;
        const char* pSaturated;
        double dNoise = 0.0;  // DN
    };
    for (const Case& r : {Case{"Mono16", StandIn::eReferenceLight, 4000, 0.0, "Mono12", ""},
                          Case{"Mono16", StandIn::eReferenceLight, 1000, 0.0, "Mono10", ""},
                          Case{"BayerGB16", StandIn::eReferenceLight, 4095, 0.05, "BayerGB12", "refusal"},
                          Case{"Mono16", StandIn::eReferenceLight, 16383, 0.005, "Mono14", "warning"},
                          Case{"Mono16", StandIn::eReferenceLight, 16384, 0.5, "", ""},
                          Case{"Mono16", StandIn::eReferenceLight, 0, 0.5, "", ""},
                          Case{"Mono16", StandIn::eReferenceDark, 300, 0.0, "", ""},
                          Case{"Mono16", StandIn::eReferenceDark, 1023, 0.2, "", "refusal"},
                          Case{"Mono12", StandIn::eReferenceLight, 1023, 0.2, "", "refusal"},
                          Case{"Mono12", StandIn::eReferenceLight, 1000, 0.0, "", ""},
                          Case{"Mono8", StandIn::eReferenceLight, 255, 0.5, "", "", 1.0},
                          // 12 bits moved to the left, and a sensor that is full before its samples are
                          Case{"Mono16", StandIn::eReferenceLight, 65520, 0.5, "", "refusal", 80.0},
                          Case{"Mono16", StandIn::eReferenceLight, 65520, 0.005, "", "warning", 80.0},
                          Case{"Mono16", StandIn::eReferenceLight, 65520, 0.0005, "", "", 80.0},
                          Case{"Mono12p", StandIn::eReferenceLight, 3900, 0.2, "", "refusal", 5.0},
                          Case{"Mono8", StandIn::eReferenceLight, 230, 0.2, "", "refusal", 1.0},
                          Case{"Mono8", StandIn::eReferenceLight, 230, 0.2, "", "", 0.3}}) {
        SCOPED_TRACE(std::string(r.pFormat) + " " + std::to_string(r.uLargest));
        StandIn::ReferenceImage reference;
        reference.eKind = r.eKind;
        reference.layout = {StandIn::findPixelFormat(r.pFormat), 100, 100};
        reference.nImages = 16;
        reference.uLargest = r.uLargest;
        reference.dTemporalNoise = r.dNoise;
        reference.vecSamples.assign(10000, static_cast<float>(r.uLargest) * 0.8F);
        std::fill_n(reference.vecSamples.begin(), static_cast<std::size_t>(r.dAtTop * 10000.0),
                    static_cast<float>(r.uLargest));
        std::string strNamed, strSaturated;
        for (const Finding& rFinding : judgeBits(reference)) {
            if (rFinding.strId == "fewer-bits") {
                EXPECT_NE(rFinding.strText.find("No sample is above"), std::string::npos);
                strNamed = rFinding.strAdvice;
            } else {
                strSaturated = rFinding.eLevel == eRefusal ? "refusal" : "warning";
            }
        }
        EXPECT_EQ(strNamed.empty(), *r.pNamed == '\0') << strNamed;
        for (const char* pKey : {"?format=", "?PixelFormat="}) {
            EXPECT_NE(strNamed.find(*r.pNamed == '\0' ? "" : std::string(pKey) + r.pNamed), std::string::npos);
        }
        EXPECT_EQ(strSaturated, r.pSaturated);
    }
}

// A sample that is cut off in some of its frames has its mean below, and counts by its share of them.
TEST(Bits, SamplesThatAreCutOffNowAndThenCount) {
    constexpr unsigned FRAMES = 16;
    constexpr double NOISE = 20.0;
    for (const double dBrightest : {4080.0, 4095.0, 4120.0, 4200.0}) {
        StandIn::ReferenceImage reference;
        reference.eKind = StandIn::eReferenceLight;
        reference.layout = {StandIn::findPixelFormat("Mono16"), 200, 100};
        reference.nImages = FRAMES;
        reference.uLargest = 4095;
        reference.dTemporalNoise = NOISE;
        std::mt19937 random(3);
        std::normal_distribution<double> normal;
        std::size_t nCut = 0;
        for (std::size_t i = 0; i < reference.layout.samples(); ++i) {
            const double dTruth = dBrightest - 0.05 * static_cast<double>(i);  // down to 1,000 DN below
            double dSum = 0.0;
            for (unsigned n = 0; n < FRAMES; ++n) {
                const double dValue = std::min(4095.0, std::floor(dTruth + NOISE * normal(random) + 0.5));
                nCut += dValue == 4095.0 ? 1U : 0U;
                dSum += dValue;
            }
            reference.vecSamples.push_back(static_cast<float>(dSum / FRAMES));
        }
        const Findings vecFindings = judgeBits(reference);
        const double dPercent =
            100.0 * static_cast<double>(nCut) / static_cast<double>(FRAMES * reference.layout.samples());
        ASSERT_EQ(vecFindings.size(), 2U) << dPercent;
        EXPECT_EQ(vecFindings[1].eLevel, dPercent > 1.0 ? eRefusal : eWarning);
        EXPECT_NEAR(std::stod(vecFindings[1].strText) / dPercent, 1.0, 0.1) << vecFindings[1].strText << dPercent;
    }
}

}  // namespace
}  // namespace Toolkit
}  // namespace XAPEL2
