// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Targets and pedestals of corrected images.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "DrawnReferences.h"
#include "TestImages.h"
#include "standin/processor/correction/Correction.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// T of each class as it is told, in double precision.
std::array<double, 4> targets(const ImageLayout& rLayout, const References& rReferences, const CorrectionOutput& rOut) {
    std::array<double, 4> aTargets = {};
    if (rOut.output.eTarget == eTargetValue) {
        aTargets.fill(rOut.output.dTarget);
        return aTargets;
    }
    const bool bMax = rOut.output.eTarget == eTargetMax;
    const std::size_t nCell = bMax ? 16 : rLayout.nWidth + rLayout.nHeight;
    for (std::size_t iTop = 0; iTop < rLayout.nHeight; iTop += nCell) {
        for (std::size_t iLeft = 0; iLeft < rLayout.nWidth; iLeft += nCell) {
            if (bMax && (iTop + nCell > rLayout.nHeight || iLeft + nCell > rLayout.nWidth)) {
                continue;
            }
            std::array<double, 4> aSums = {}, aCounts = {};
            for (std::size_t i = 0; i < rLayout.samples(); ++i) {
                const std::size_t iPixel = i / rLayout.pFormat->nChannels;
                const std::size_t iX = iPixel % rLayout.nWidth, iY = iPixel / rLayout.nWidth;
                const bool bMarked = bMax && rOut.pDefects && (*rOut.pDefects)[iPixel] != 0;
                if (iX >= iLeft && iX < iLeft + nCell && iY >= iTop && iY < iTop + nCell && !bMarked) {
                    aSums[classOf(rLayout, i)] += double{rReferences.vecLight[i]} - double{rReferences.vecDark[i]};
                    aCounts[classOf(rLayout, i)] += 1.0;
                }
            }
            for (std::size_t c = 0; c < 4; ++c) {
                aTargets[c] = aCounts[c] > 0.0 ? std::max(aTargets[c], aSums[c] / aCounts[c]) : aTargets[c];
            }
        }
    }
    return aTargets;
}

TEST(Output, KeepsTheFormulasBoundForEveryTargetAndPedestalInEveryFormat) {
    std::mt19937 random(3);
    for (const PixelFormat& rFormat : pixelFormats()) {
        const ImageLayout layout{&rFormat, 37, 35};
        const double dFull = rFormat.fullScale();
        for (const auto& [dDark, dGains] : {std::pair(0.02, 1.5), std::pair(0.1, 2.5), std::pair(0.003, 14.0)}) {
            const References references = draw(layout, dDark, dGains);
            for (const ReferenceOutput& rOutput :
                 {ReferenceOutput{eTargetMax, 0, 0}, ReferenceOutput{eTargetValue, dFull * 0.3, 0},
                  ReferenceOutput{eTargetMean, 0, dFull * 0.004 + 0.3}, ReferenceOutput{eTargetValue, dFull, dFull / 2},
                  ReferenceOutput{eTargetMax, 0, dFull * 0.06}, ReferenceOutput{eTargetValue, 0.01, 1.0}}) {
                const CorrectionOutput out{rOutput, nullptr};
                const std::array<double, 4> aTargets = targets(layout, references, out);
                const std::vector<uint16_t> vecIn = randomImage(layout, random);
                const std::vector<uint16_t> vecOut = corrected(layout, references, out, vecIn);
                for (std::size_t i = 0; i < vecIn.size(); ++i) {
                    const double dSignal = double{references.vecLight[i]} - double{references.vecDark[i]};
                    const double dGain = std::min(16.0, aTargets[classOf(layout, i)] / dSignal);
                    const double dResult = (vecIn[i] - double{references.vecDark[i]}) * dGain + rOutput.dPedestal;
                    const double dWanted = vecIn[i] >= dFull ? dFull : std::clamp(dResult, 0.0, dFull);
                    ASSERT_LE(std::abs(vecOut[i] - dWanted), rFormat.nBits <= 12 ? 1.0 : 1.0 + dGain / 2)
                        << rFormat.pName << ", " << dDark << ", target " << rOutput.eTarget << " " << rOutput.dTarget
                        << ", pedestal " << rOutput.dPedestal << ", sample " << i << ", gain " << dGain;
                }
                for (const char* pTarget : targetsWithout({" near", " far"})) {
                    ASSERT_EQ(vecOut, corrected(layout, references, out, vecIn, pTarget)) << rFormat.pName << pTarget;
                }
            }
        }
    }
}

/// A pedestal above the darks, all in DN, and what tables hold it.
struct PedestalCase {
    const char* pFormat;
    double dDark, dRange, dGains, dPedestal;
    const char* pTable;  // in the description
};

// Where D - P / G is negative the layouts lend an offset a sign, and need not be four times as large.
TEST(Output, UsualPedestalsKeepSmallTables) {
    constexpr std::array<PedestalCase, 14> CASES = {{
        {"Mono8", 3, 2, 1.5, 16, "dark u3.5-13, gain u1.15, 3 B"},
        {"BayerRG8", 0, 1, 3, 16, "gain u2.14, 3 B"},
        {"RGB8", 3, 2, 6, 16, "gain u3.13, 3 B"},
        {"Mono8", 3, 30, 12, 40, "gain u4.12, 4 B"},
        {"Mono8", 3, 2, 1, 255, "B/sample, 0 exceptions"},
        {"Mono10", 10, 3, 1.3, 16, "gain u1.15, 3 B"},
        {"BayerGR10", 4, 300, 1.5, 16, "gain u1.15, 4 B"},
        {"Mono12", 12, 3, 1.2, 16, "gain u1.15, 3 B"},
        {"Mono12", 2, 600, 3, 16, "gain u2.14, 4 B"},
        {"Mono14", 10, 5, 1.5, 64, "gain u1.15, 3 B"},
        {"Mono10p", 10, 3, 1.3, 16, "gain u1.15, 3 B"},
        {"BayerGB12p", 2, 600, 1.5, 16, "gain u1.15, 4 B"},
        {"Mono10Packed", 4, 300, 1.5, 16, "gain u1.15, 4 B"},
        {"Mono12Packed", 12, 3, 1.2, 16, "gain u1.15, 3 B"},
    }};
    std::mt19937 random(3);
    for (const PedestalCase& rCase : CASES) {
        const ImageLayout layout = layoutOf(rCase.pFormat, 67, 35);
        const double dFull = layout.pFormat->fullScale();
        References references;
        std::uniform_real_distribution<double> d01(0.0, 1.0);
        for (std::size_t i = 0; i < layout.samples(); ++i) {
            const double dDark = rCase.dDark + rCase.dRange * d01(random);
            const double dSignal = dFull * 0.6 / (1.0 + (rCase.dGains - 1.0) * d01(random));
            references.vecDark.push_back(static_cast<float>(dDark));
            references.vecLight.push_back(static_cast<float>(dDark + dSignal));
        }
        const CorrectionOutput out{{eTargetValue, dFull * 0.6, rCase.dPedestal}, nullptr};
        EXPECT_THAT(makeCorrection(layout, &references.vecDark, &references.vecLight, "scalar", out)->description(),
                    testing::HasSubstr(rCase.pTable))
            << rCase.pFormat;
        for (unsigned iImage = 0; iImage < 8; ++iImage) {
            std::vector<uint16_t> vecIn = randomImage(layout, random);
            for (std::size_t i = 0; i < vecIn.size(); i += 3) {
                vecIn[i] = static_cast<uint16_t>(iImage * 3 + i % 7);  // around black
            }
            const std::vector<uint16_t> vecOut = corrected(layout, references, out, vecIn, "scalar");
            for (std::size_t i = 0; i < vecIn.size(); ++i) {
                const double dGain = dFull * 0.6 / (double{references.vecLight[i]} - double{references.vecDark[i]});
                const double dResult = (vecIn[i] - double{references.vecDark[i]}) * dGain + rCase.dPedestal;
                const double dWanted = vecIn[i] >= dFull ? dFull : std::clamp(dResult, 0.0, dFull);
                ASSERT_LE(std::abs(vecOut[i] - dWanted), layout.pFormat->nBits <= 12 ? 1.0 : 1.0 + dGain / 2)
                    << rCase.pFormat << ", " << vecIn[i] << ", " << dGain;
            }
            for (const char* pTarget : targetsWithout({" far"})) {
                ASSERT_EQ(vecOut, corrected(layout, references, out, vecIn, pTarget)) << rCase.pFormat << pTarget;
            }
        }
    }
}

// Few pixels that a small table cannot hold: their pedestal is added, not part of the offset.
TEST(Output, LiftsExceptionsAndPixelsWithoutGainByThePedestal) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "Mono12p", "BayerRG10p"}) {
        const ImageLayout sLayout = layoutOf(pFormat, 130, 63);
        const double dFull = sLayout.pFormat->fullScale();
        References references = draw(sLayout, 0.02, 1.0);
        for (const std::size_t i : {0U, 63U, 2048U, 8189U}) {
            references.vecDark[i] = static_cast<float>(dFull * 0.6);
            references.vecLight[i] = references.vecDark[i] + static_cast<float>(dFull * 0.35);
        }
        const CorrectionOutput sOut{{eTargetValue, dFull * 0.7, dFull * 0.008}, nullptr};
        const std::vector<uint16_t> vecIn(sLayout.samples(), static_cast<uint16_t>(dFull * 0.605));
        const std::vector<uint16_t> vecOut = corrected(sLayout, references, sOut, vecIn);
        EXPECT_THAT(makeCorrection(sLayout, &references.vecDark, &references.vecLight, nullptr, sOut)->description(),
                    testing::HasSubstr(" 4 exceptions"))
            << pFormat;
        for (std::size_t i = 0; i < vecIn.size(); ++i) {
            const double dDark = references.vecDark[i];
            const double dGain = dFull * 0.7 / (double{references.vecLight[i]} - dDark);
            ASSERT_NEAR(vecOut[i], (vecIn[i] - dDark) * dGain + dFull * 0.008,
                        sLayout.pFormat->nBits <= 12 ? 1.0 : 1.0 + dGain / 2)
                << pFormat << ", " << i;
        }
        // Light below the dark on the whole: no gain, and the pedestal alone is left where there is light.
        std::fill(references.vecDark.begin(), references.vecDark.end(), static_cast<float>(dFull * 0.5));
        std::fill(references.vecLight.begin(), references.vecLight.end(), static_cast<float>(dFull * 0.2));
        std::fill_n(references.vecLight.begin() + 200, 100, static_cast<float>(dFull * 0.6));
        const CorrectionOutput sMean{{eTargetMean, 0.0, dFull * 0.1}, nullptr};
        const std::vector<uint16_t> vecFlat = corrected(sLayout, references, sMean, vecIn);
        EXPECT_NEAR(vecFlat[250], dFull * 0.1, 1.0) << pFormat;
        EXPECT_NEAR(vecFlat[0], vecIn[0] - dFull * 0.5 + dFull * 0.1, 1.5) << pFormat;
    }
}

// One pixel far above the others is no reason to brighten them all.
TEST(Output, BrightestPlaceLeavesMarkedPixelsOut) {
    for (const char* pFormat : {"Mono12", "BayerRG12", "RGB8"}) {
        const ImageLayout layout = layoutOf(pFormat, 64, 64);
        References references = draw(layout, 0.02, 1.0);
        Map vecMap(64 * 64);
        for (std::size_t i = 0; i < 60; ++i) {
            vecMap[i] = eDefectUneven;
            std::fill_n(references.vecLight.begin() + static_cast<std::ptrdiff_t>(i * layout.pFormat->nChannels),
                        layout.pFormat->nChannels, static_cast<float>(layout.pFormat->fullScale()));
        }
        const CorrectionOutput out{{eTargetMax, 0.0, 0.0}, &vecMap};
        std::vector<uint16_t> vecIn;
        for (const float f : references.vecLight) {
            vecIn.push_back(static_cast<uint16_t>(std::lround(f)));
        }
        const std::vector<uint16_t> vecOut = corrected(layout, references, out, vecIn);
        for (const uint16_t u : vecOut) {
            ASSERT_NEAR(u, layout.pFormat->fullScale() * 0.7, 2.0) << pFormat;
        }
    }
}

TEST(Output, TellsItselfInWords) {
    const ImageLayout layout = layoutOf("Mono8", 64, 64);
    const References references = draw(layout, 0.02, 1.5);
    Map vecMap(64 * 64);
    vecMap[5] = vecMap[100] = eDefectHot;
    const auto describe = [&](const CorrectionOutput& rOutput) {
        return makeCorrection(layout, &references.vecDark, &references.vecLight, nullptr, rOutput)->description();
    };
    EXPECT_THAT(describe({}), testing::EndsWith(", target mean, pedestal 0 DN, 0 defects"));
    EXPECT_THAT(describe({{eTargetMax, 0, 2.5}, &vecMap}),
                testing::EndsWith(", target max, pedestal 2.5 DN, 2 defects"));
    EXPECT_THAT(describe({{eTargetValue, 100, 0}, &vecMap}),
                testing::EndsWith(", target 100 DN, pedestal 0 DN, 2 defects"));
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
