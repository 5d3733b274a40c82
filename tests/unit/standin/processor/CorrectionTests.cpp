// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The arithmetic of the correction against its formula in double precision, in every pixel format.

#include "Correction.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <random>

#include "TestImages.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

struct References {
    std::vector<float> vDark, vLight;
    bool bDark = true, bLight = true;
};

/// Draws D and L of a sample. d01 is uniform in [0, 1).
struct ReferenceCase {
    const char* pName;
    bool bDark, bLight;
    std::function<std::pair<double, double>(double dFull, unsigned iClass, std::function<double()> d01)> fnDraw;
};

const std::vector<ReferenceCase>& referenceCases() {
    using Draw = std::function<double()>;
    static const std::vector<ReferenceCase> s_Cases = {
        {"classes apart, fractional darks", true, true,
         [](double f, unsigned c, Draw d) {
             const double dDark = d() * f / 12;
             return std::make_pair(dDark, dDark + f * (0.15 + 0.2 * c) * (0.9 + 0.2 * d()));
         }},
        {"gains just above 1", true, true,
         [](double f, unsigned, Draw d) { return std::make_pair(1 + 2 * d(), f * (0.5 + 0.01 * d())); }},
        {"gains up to 16 and over", true, true,
         [](double f, unsigned, Draw d) {
             const double dDark = d() * f / 50;
             const double dSignal = f * 0.8;
             return std::make_pair(dDark, dDark + (d() < 0.8 ? dSignal : dSignal / (10 + 8 * d())));
         }},
        {"darks up to full scale, light below dark", true, true,
         [](double f, unsigned, Draw d) { return std::make_pair(d() < 0.2 ? f : d() * f, d() < 0.2 ? f : d() * f); }},
        {"light nearly everywhere below dark", true, true,
         [](double f, unsigned, Draw d) { return std::make_pair(f * 0.5, d() < 0.9 ? f * 0.2 * d() : f * 0.6); }},
        {"zeros", true, true,
         [](double f, unsigned, Draw d) { return std::make_pair(0.0, d() < 0.5 ? 0.0 : d() * f); }},
        {"darks half way between numbers", true, true,
         [](double f, unsigned, Draw d) { return std::make_pair(std::floor(d() * f / 4) + 0.5, f * (0.3 + d() / 2)); }},
        {"dark alone", true, false, [](double f, unsigned, Draw d) { return std::make_pair(d() * f, 0.0); }},
        {"light alone", false, true,
         [](double f, unsigned, Draw d) { return std::make_pair(0.0, d() < 0.02 ? 0.0 : f * (0.1 + 0.9 * d())); }},
    };
    return s_Cases;
}

References draw(const ImageLayout& rLayout, const ReferenceCase& rCase) {
    std::mt19937 oRandom(7);
    std::uniform_real_distribution<double> oUniform(0.0, 1.0);
    References sReferences;
    sReferences.bDark = rCase.bDark;
    sReferences.bLight = rCase.bLight;
    const double dFull = rLayout.pFormat->fullScale();
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        const auto aPair = rCase.fnDraw(dFull, classOf(rLayout, i), [&] { return oUniform(oRandom); });
        sReferences.vDark.push_back(static_cast<float>(std::min(aPair.first, dFull)));
        sReferences.vLight.push_back(static_cast<float>(std::min(aPair.second, dFull)));
    }
    return sReferences;
}

/// The formula as it is written down, in double precision.
struct Formula {
    std::vector<double> vOffsets, vGains;

    Formula(const ImageLayout& rLayout, const References& rReferences) {
        std::array<double, 4> aSums = {};
        std::array<double, 4> aCounts = {};
        for (std::size_t i = 0; i < rLayout.samples(); ++i) {
            vOffsets.push_back(rReferences.bDark ? rReferences.vDark[i] : 0.0);
            aSums[classOf(rLayout, i)] += rReferences.vLight[i] - vOffsets[i];
            aCounts[classOf(rLayout, i)] += 1.0;
        }
        for (std::size_t i = 0; i < rLayout.samples(); ++i) {
            const double dSignal = rReferences.vLight[i] - vOffsets[i];
            const double dTarget = aSums[classOf(rLayout, i)] / aCounts[classOf(rLayout, i)];
            double dGain = rReferences.bLight && dSignal > 0 ? dTarget / dSignal : 1.0;
            vGains.push_back(dGain < 0 ? 0.0 : dGain >= 16 ? 16.0 : dGain);
        }
    }
    /// Not rounded.
    double result(std::size_t i, uint32_t uIn, uint32_t uFull) const {
        if (uIn >= uFull)
            return uFull;
        return std::min<double>(std::max(0.0, (uIn - vOffsets[i]) * vGains[i]), uFull);
    }
};

std::unique_ptr<ICorrection> make(const ImageLayout& rLayout, const References& rReferences) {
    return makeCorrection(rLayout, rReferences.bDark ? &rReferences.vDark : nullptr,
                          rReferences.bLight ? &rReferences.vLight : nullptr);
}

TEST(Correction, StaysWithinItsBoundInEveryFormat) {
    for (const PixelFormat& rFormat : pixelFormats()) {
        // More samples than a block of the kernel, odd sides, a row that begins inside a byte when packed.
        const ImageLayout sLayout = {&rFormat, 37, 31};
        const uint32_t uFull = rFormat.fullScale();
        std::vector<uint32_t> vInputs = {0, 1, 2, uFull / 16, uFull / 2, uFull - 1, uFull};
        for (uint32_t i = 0; i < 50; ++i) vInputs.push_back(i * uFull / 49);
        if (rFormat.nBits < rFormat.nWireBits)
            vInputs.push_back(uFull + 1);  // a bit that is none of the format's counts as saturated
        for (const ReferenceCase& rCase : referenceCases()) {
            SCOPED_TRACE(std::string(rFormat.pName) + ", " + rCase.pName);
            const References sReferences = draw(sLayout, rCase);
            const Formula sFormula(sLayout, sReferences);
            const auto pCorrection = make(sLayout, sReferences);
            double dWorst = 0.0;
            std::size_t nSaturatedChanged = 0;
            for (std::size_t iShift = 0; iShift < vInputs.size(); ++iShift) {
                std::vector<uint16_t> vIn;
                for (std::size_t i = 0; i < sLayout.samples(); ++i)
                    vIn.push_back(static_cast<uint16_t>(vInputs[(i + iShift) % vInputs.size()]));
                std::vector<uint8_t> vImage = pack(sLayout, vIn);
                pCorrection->correct(vImage.data());
                const std::vector<uint16_t> vOut = unpack(sLayout, vImage);
                for (std::size_t i = 0; i < vIn.size(); ++i) {
                    const double dLimit = rFormat.nBits <= 12 ? 1.0 : 1.0 + sFormula.vGains[i] / 2;
                    const double dResult = sFormula.result(i, vIn[i], uFull);
                    dWorst = std::max({dWorst, std::abs(vOut[i] - dResult) / dLimit,
                                       std::abs(vOut[i] - std::round(dResult)) / dLimit});
                    nSaturatedChanged += vIn[i] >= uFull && vOut[i] != uFull;
                }
            }
            EXPECT_LE(dWorst, 1.0) << "largest error in units of the bound";
            EXPECT_EQ(nSaturatedChanged, 0U);
        }
    }
}

// Cutting off instead of rounding nearly keeps the bound, but darkens every image by half a DN; a dark without its
// fraction shifts it by as much.
TEST(Correction, IsNotBiased) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "BayerRG10p"}) {
        const ImageLayout sLayout = layout(pFormat, 64, 64);
        const References sReferences = draw(sLayout, referenceCases()[0]);
        const Formula sFormula(sLayout, sReferences);
        const uint32_t uFull = sLayout.pFormat->fullScale();
        const std::vector<uint16_t> vIn(sLayout.samples(), static_cast<uint16_t>(uFull * 2 / 5));
        std::vector<uint8_t> vImage = pack(sLayout, vIn);
        make(sLayout, sReferences)->correct(vImage.data());
        const std::vector<uint16_t> vOut = unpack(sLayout, vImage);
        double dSum = 0.0;
        for (std::size_t i = 0; i < vIn.size(); ++i) dSum += vOut[i] - sFormula.result(i, vIn[i], uFull);
        EXPECT_LT(std::abs(dSum / static_cast<double>(vIn.size())), 0.05) << pFormat;
    }
}

TEST(Correction, MakesItsOwnReferenceEvenPerClass) {
    for (const char* pFormat : {"Mono12p", "BayerGB10", "BayerRG12p", "RGB8", "BGR8"}) {
        const ImageLayout sLayout = layout(pFormat, 18, 12);
        const References sReferences = draw(sLayout, referenceCases()[0]);
        std::vector<uint16_t> vIn;
        for (const float fLight : sReferences.vLight) vIn.push_back(static_cast<uint16_t>(std::lround(fLight)));
        std::vector<uint8_t> vImage = pack(sLayout, vIn);
        make(sLayout, sReferences)->correct(vImage.data());
        const std::vector<uint16_t> vOut = unpack(sLayout, vImage);
        std::array<std::vector<int>, 4> aByClass;
        for (std::size_t i = 0; i < vOut.size(); ++i) aByClass[classOf(sLayout, i)].push_back(vOut[i]);
        int iBefore = -1;
        for (std::size_t iClass = 0; iClass < 4 && !aByClass[iClass].empty(); ++iClass) {
            const auto aEnds = std::minmax_element(aByClass[iClass].begin(), aByClass[iClass].end());
            EXPECT_LE(*aEnds.second - *aEnds.first, 2) << pFormat << " class " << iClass;
            EXPECT_GT(*aEnds.first, iBefore) << pFormat << ": the classes keep their levels";
            iBefore = *aEnds.second;
        }
    }
}

// Bit k of sample i lies at bit i * wire bits + k of the image, counted from the least significant bit of byte 0. That
// holds for little-endian words and for the packed formats alike.
TEST(PixelFormats, PackBitsWhereTheFormatSays) {
    std::mt19937 oRandom(3);
    for (const PixelFormat& rFormat : pixelFormats()) {
        SCOPED_TRACE(rFormat.pName);
        for (std::size_t nSamples = 1; nSamples < 20; ++nSamples) {
            const std::size_t nBytes = (nSamples * rFormat.nWireBits + 7) / 8;
            std::vector<uint16_t> vSamples(nSamples);
            std::vector<uint8_t> vExpected(nBytes + 1, 0);
            vExpected[nBytes] = 0xA5;
            for (std::size_t i = 0; i < nSamples; ++i) {
                vSamples[i] = static_cast<uint16_t>(oRandom() & rFormat.fullScale());
                for (std::size_t k = 0; k < rFormat.nBits; ++k) {
                    const std::size_t iBit = i * rFormat.nWireBits + k;
                    vExpected[iBit / 8] =
                        static_cast<uint8_t>(vExpected[iBit / 8] | (vSamples[i] >> k & 1) << iBit % 8);
                }
            }
            // Written in two parts over bytes that are all ones, so that a part that is not masked shows.
            std::vector<uint8_t> vImage(nBytes + 1, 0xFF);
            vImage[nBytes] = 0xA5;
            const std::size_t nFirst = nSamples / 2;
            packSamples(rFormat, vSamples.data() + nFirst, nFirst, nSamples - nFirst, vImage.data());
            packSamples(rFormat, vSamples.data(), 0, nFirst, vImage.data());
            const unsigned nSpare = static_cast<unsigned>(nBytes * 8 - nSamples * rFormat.nWireBits);
            vExpected[nBytes - 1] = static_cast<uint8_t>(vExpected[nBytes - 1] | (0xFF << (8 - nSpare) & 0xFF));
            EXPECT_EQ(vImage, vExpected);
            std::vector<uint16_t> vBack(nSamples - nFirst);
            unpackSamples(rFormat, vImage.data(), nFirst, vBack.size(), vBack.data());
            EXPECT_TRUE(std::equal(vBack.begin(), vBack.end(), vSamples.begin() + static_cast<std::ptrdiff_t>(nFirst)));
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
