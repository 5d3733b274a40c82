// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The arithmetic of the correction against its formula in double precision, in every pixel format.

#include "standin/processor/correction/Correction.h"

#include <gmock/gmock.h>
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
    std::vector<float> vecDark, vecLight;
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
    static const std::vector<ReferenceCase> s_vecCases = {
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
    return s_vecCases;
}

References draw(const ImageLayout& rLayout, const ReferenceCase& rCase) {
    std::mt19937 oRandom(7);
    std::uniform_real_distribution<double> oUniform(0.0, 1.0);
    References references;
    references.bDark = rCase.bDark;
    references.bLight = rCase.bLight;
    const double dFull = rLayout.pFormat->fullScale();
    for (std::size_t i = 0; i < rLayout.samples(); ++i) {
        const auto aPair = rCase.fnDraw(dFull, classOf(rLayout, i), [&] { return oUniform(oRandom); });
        references.vecDark.push_back(static_cast<float>(std::min(aPair.first, dFull)));
        references.vecLight.push_back(static_cast<float>(std::min(aPair.second, dFull)));
    }
    return references;
}

/// The formula as it is written down, in double precision.
struct Formula {
    std::vector<double> vecOffsets, vecGains;

    Formula(const ImageLayout& rLayout, const References& rReferences) {
        std::array<double, 4> aSums = {};
        std::array<double, 4> aCounts = {};
        for (std::size_t i = 0; i < rLayout.samples(); ++i) {
            vecOffsets.push_back(rReferences.bDark ? rReferences.vecDark[i] : 0.0);
            aSums[classOf(rLayout, i)] += rReferences.vecLight[i] - vecOffsets[i];
            aCounts[classOf(rLayout, i)] += 1.0;
        }
        for (std::size_t i = 0; i < rLayout.samples(); ++i) {
            const double dSignal = rReferences.vecLight[i] - vecOffsets[i];
            const double dTarget = aSums[classOf(rLayout, i)] / aCounts[classOf(rLayout, i)];
            double dGain = rReferences.bLight && dSignal > 0 ? dTarget / dSignal : 1.0;
            vecGains.push_back(dGain < 0 ? 0.0 : dGain >= 16 ? 16.0 : dGain);
        }
    }
    /// Not rounded.
    double result(std::size_t i, uint32_t uIn, uint32_t uFull) const {
        if (uIn >= uFull) {
            return uFull;
        }
        return std::min<double>(std::max(0.0, (uIn - vecOffsets[i]) * vecGains[i]), uFull);
    }
};

std::unique_ptr<ICorrection> make(const ImageLayout& rLayout, const References& rReferences,
                                  const char* pTarget = nullptr) {
    return makeCorrection(rLayout, rReferences.bDark ? &rReferences.vecDark : nullptr,
                          rReferences.bLight ? &rReferences.vecLight : nullptr, pTarget);
}

/// Corrects vInputs, the first sample with each of them in turn, and gives the largest error in units of the bound.
double worstError(const ImageLayout& rLayout, const References& rReferences, const std::vector<uint32_t>& vecInputs) {
    const uint32_t uFull = rLayout.pFormat->fullScale();
    const Formula formula(rLayout, rReferences);
    const auto pCorrection = make(rLayout, rReferences);
    double dWorst = 0.0;
    for (std::size_t iShift = 0; iShift < vecInputs.size(); ++iShift) {
        std::vector<uint16_t> vecIn;
        for (std::size_t i = 0; i < rLayout.samples(); ++i) {
            vecIn.push_back(static_cast<uint16_t>(vecInputs[(i + iShift) % vecInputs.size()]));
        }
        std::vector<uint8_t> vecImage = pack(rLayout, vecIn);
        pCorrection->correct(vecImage.data());
        const std::vector<uint16_t> vecOut = unpack(rLayout, vecImage);
        for (std::size_t i = 0; i < vecIn.size(); ++i) {
            const double dLimit = rLayout.pFormat->nBits <= 12 ? 1.0 : 1.0 + formula.vecGains[i] / 2;
            const double dResult = formula.result(i, vecIn[i], uFull);
            dWorst = std::max(
                {dWorst, std::abs(vecOut[i] - dResult) / dLimit, std::abs(vecOut[i] - std::round(dResult)) / dLimit});
            EXPECT_FALSE(vecIn[i] >= uFull && vecOut[i] != uFull) << "saturated and changed";
        }
    }
    return dWorst;
}

std::vector<uint32_t> inputsFor(const PixelFormat& rFormat) {
    const uint32_t uFull = rFormat.fullScale();
    std::vector<uint32_t> vecInputs = {0, 1, 2, uFull / 16, uFull / 2, uFull - 1, uFull};
    for (uint32_t i = 0; i < 50; ++i) {
        vecInputs.push_back(i * uFull / 49);
    }
    if (rFormat.nBits < rFormat.nWireBits && !rFormat.isPacked()) {
        vecInputs.push_back(uFull + 1);  // a bit that is none of the format's counts as saturated
    }
    return vecInputs;
}

TEST(Correction, StaysWithinItsBoundInEveryFormat) {
    for (const PixelFormat& rFormat : pixelFormats()) {
        // Several blocks, odd sides, a row that begins inside a byte when packed.
        const ImageLayout layout = {&rFormat, 37, 31};
        for (const ReferenceCase& rCase : referenceCases()) {
            SCOPED_TRACE(std::string(rFormat.pName) + ", " + rCase.pName);
            EXPECT_LE(worstError(layout, draw(layout, rCase), inputsFor(rFormat)), 1.0);
        }
    }
}

/// Darks from dDark on over a range, whole or not; a quarter of the samples have dWeak times the gain of the others.
struct TableCase {
    const char* pFormat;
    double dDark, dRange;
    bool bWhole;
    double dWeak;
    const char* pTable;  // in the description
};

constexpr std::array<TableCase, 30> TABLE_CASES = {{
    {"Mono8", 0, 3, false, 1, "dark u2.6+0, gain u1.15, 3 B"},
    {"RGB8", 5, 50, false, 1.5, "dark u6.2+0, gain u1.15, 3 B"},
    {"BayerRG8", 0, 7, false, 3, "dark u3.5+0, gain u2.14, 3 B"},
    {"Mono8", 0, 7, false, 6, "dark u3.5+0, gain u3.13, 3 B"},
    {"Mono8", 0, 7, false, 12, "dark u3.5+0, gain u4.12, 3 B"},
    {"BGR8", 0, 100, false, 12, "dark u8.8+0, gain u4.12, 4 B"},
    {"Mono8", 0, 200, false, 1, "dark u8.8+0, gain u2.14, 4 B"},
    {"Mono10", 100, 3.5, false, 1, "dark u2.6+99.75, gain u1.15, 3 B"},
    {"BayerGR10", 0, 300, false, 3, "dark u10.6+0, gain u2.14, 4 B"},
    {"Mono12", 100, 100, false, 1, "dark u7.1+86, gain u1.15, 3 B"},
    {"Mono12", 100, 12, true, 12, "dark u4.4+98, gain u4.12, 3 B"},
    {"Mono12", 100, 900, true, 12, "dark u12.4+0, gain u4.12, 4 B"},
    {"Mono12", 100, 900, false, 6, "dark u12.4+0, gain u3.13, 4 B"},
    {"Mono12", 100, 900, false, 12, "8 B"},
    {"Mono14", 300, 200, false, 1, "dark u8.0+272, gain u1.15, 3 B"},
    {"Mono14", 300, 60, false, 3, "dark u6.2+296, gain u2.14, 3 B"},
    {"Mono14", 300, 3000, false, 3, "dark u14.2+0, gain u2.14, 4 B"},
    {"Mono16", 700, 90, false, 1, "dark u7.0+672, gain u1.16, 3 B"},
    {"Mono16", 704, 60, false, 3, "dark u6.0+704, gain u2.16, 3 B"},
    {"Mono16", 700, 9000, false, 1, "dark u15.0+368, gain u1.16, 4 B"},
    {"BayerBG16", 700, 3000, false, 12, "dark u12.0+352, gain u4.16, 4 B"},
    {"Mono16", 700, 9000, false, 12, "8 B"},
    {"BayerRG10p", 20, 7, false, 3, "dark u3.5+19.5, gain u2.14, 3 B"},
    {"Mono10p", 20, 200, false, 1, "dark u10.6+0, gain u1.15, 4 B"},
    {"Mono12p", 100, 25, false, 1, "dark u5.3+96, gain u1.15, 3 B"},
    {"BayerGB12p", 100, 900, true, 12, "dark u12.4+0, gain u4.12, 4 B"},
    {"Mono10Packed", 20, 7, false, 3, "dark u3.5+19.5, gain u2.14, 3 B"},
    {"BayerBG10Packed", 20, 200, false, 1, "dark u10.6+0, gain u1.15, 4 B"},
    {"BayerGR12Packed", 100, 25, false, 1, "dark u5.3+96, gain u1.15, 3 B"},
    {"Mono12Packed", 100, 900, true, 12, "dark u12.4+0, gain u4.12, 4 B"},
}};

References draw(const ImageLayout& rLayout, const TableCase& rCase) {
    return draw(rLayout, {"", true, true, [&](double f, unsigned, const std::function<double()>& d) {
                              const double dDark = rCase.dDark + d() * rCase.dRange;
                              const double dSignal = f * (0.55 + 0.01 * d()) / (d() < 0.25 ? rCase.dWeak : 1.0);
                              const double dKept = rCase.bWhole ? std::floor(dDark) : dDark;
                              return std::make_pair(dKept, dKept + dSignal);
                          }});
}

/// Bytes with low, middle and saturated samples among them.
std::vector<uint8_t> noise(std::size_t nBytes, std::mt19937& rRandom) {
    std::vector<uint8_t> vecBytes(nBytes);
    for (std::size_t i = 0; i < nBytes; ++i) {
        vecBytes[i] = static_cast<uint8_t>(i / 16 % 3 == 0 ? 255 : rRandom() >> i / 16 % 3 * 2 >> 20);
    }
    return vecBytes;
}

TEST(Correction, GivesTheDefinitionsBytesWithEveryTableAndTarget) {
    ASSERT_STREQ(correctionTargets().back(), "scalar");
    std::mt19937 oRandom(5);
    for (const TableCase& rCase : TABLE_CASES) {
        for (std::size_t nWidth = 0; nWidth <= 2 * 64 + 5; ++nWidth) {
            const ImageLayout layout = layoutOf(rCase.pFormat, nWidth, 1);
            const References references = draw(layout, rCase);
            const auto pDefinition = make(layout, references, "scalar");
            if (nWidth > 128) {
                EXPECT_THAT(pDefinition->description(), testing::HasSubstr(rCase.pTable)) << rCase.pFormat;
                EXPECT_LE(worstError(layout, references, inputsFor(*layout.pFormat)), 1.0) << rCase.pTable;
            }
            for (const char* pTarget : targetsWithout({" far"})) {  // the code of " near"
                const auto pCorrection = make(layout, references, pTarget);
                for (std::size_t nShift = 0; nShift < 3; ++nShift) {
                    // The image lies among guard values and begins at any byte.
                    const std::size_t nFirst = 97 + nShift;
                    std::vector<uint8_t> vecBytes = noise(nFirst + layout.bytes() + 97, oRandom);
                    std::vector<uint8_t> vecExpected = vecBytes;
                    std::vector<uint8_t> vecImage(vecBytes.data() + nFirst, vecBytes.data() + nFirst + layout.bytes());
                    pDefinition->correct(vecImage.data());
                    std::copy(vecImage.begin(), vecImage.end(), vecExpected.data() + nFirst);
                    const std::size_t nUsed = nWidth * layout.pFormat->nWireBits % 8;
                    EXPECT_TRUE(nUsed == 0 || (vecImage.back() ^ vecBytes[nFirst + vecImage.size() - 1]) >> nUsed == 0);
                    pCorrection->correct(vecBytes.data() + nFirst);
                    ASSERT_EQ(vecBytes, vecExpected)
                        << rCase.pFormat << ", " << nWidth << ", " << nShift << ", " << pCorrection->description();
                }
            }
        }
    }
}

// Images in which memory is asked for ahead, and past their end.
TEST(Correction, GivesTheDefinitionsBytesForLargeImages) {
    for (const TableCase& rCase : TABLE_CASES) {
        const ImageLayout layout = layoutOf(rCase.pFormat, 512, 65);
        const References references = draw(layout, rCase);
        std::mt19937 oRandom(5);
        const std::vector<uint8_t> vecIn = noise(layout.bytes(), oRandom);
        std::vector<uint8_t> vecExpected = vecIn;
        make(layout, references, "scalar")->correct(vecExpected.data());
        std::vector<const char*> vecTargets = correctionTargets();
        vecTargets.push_back(nullptr);
        for (const char* pTarget : vecTargets) {
            std::vector<uint8_t> vecImage = vecIn;
            make(layout, references, pTarget)->correct(vecImage.data());
            EXPECT_TRUE(vecImage == vecExpected) << rCase.pTable << ", " << (pTarget ? pTarget : "measured");
        }
    }
}

// Pixels that a small table cannot hold, at the ends of blocks, of the parts that are worked on at once, of the image.
TEST(Correction, KeepsTheBoundForHotPixelsWithoutALargerTable) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "Mono12p", "BayerRG10p", "Mono10Packed"}) {
        const ImageLayout layout = layoutOf(pFormat, 130, 63);
        References references = draw(layout, TableCase{pFormat, 3, 2, false, 1, ""});
        const std::vector<std::size_t> vecHot = {0, 1, 63, 2047, 2048, 4000, 8188, 8189};
        for (const std::size_t i : vecHot) {
            references.vecDark[i] = static_cast<float>(layout.pFormat->fullScale()) * 0.6F;
            references.vecLight[i] = references.vecDark[i] * 1.5F;
        }
        const auto pCorrection = make(layout, references);
        EXPECT_THAT(pCorrection->description(), testing::HasSubstr("3 B/sample, 8 exceptions")) << pFormat;
        EXPECT_LE(worstError(layout, references, inputsFor(*layout.pFormat)), 1.0) << pFormat;
        references.vecDark[5000] = references.vecDark[0];
        EXPECT_THAT(make(layout, references)->description(), testing::HasSubstr(" 0 exc")) << "above 1 of 1,000";
    }
    // A patch of them that a look at some of the blocks misses.
    const ImageLayout layout = layoutOf("Mono8", 520, 520);
    References references = draw(layout, TableCase{"Mono8", 3, 2, false, 1, ""});
    for (const std::size_t nHot : {270U, 271U}) {
        std::fill_n(references.vecDark.begin() + 64, nHot, 200.0F);
        EXPECT_THAT(make(layout, references)->description(),
                    testing::HasSubstr(nHot == 270 ? "3 B/sample, 270 exc" : "4 B/sample, 0 exc"));
    }
}

// Cutting off instead of rounding nearly keeps the bound, but darkens every image by half a DN; a dark without its
// fraction shifts it by as much.
TEST(Correction, IsNotBiased) {
    for (const char* pFormat : {"Mono8", "Mono12", "Mono16", "BayerRG10p"}) {
        const ImageLayout layout = layoutOf(pFormat, 64, 64);
        const References references = draw(layout, referenceCases()[0]);
        const Formula formula(layout, references);
        const uint32_t uFull = layout.pFormat->fullScale();
        const std::vector<uint16_t> vecIn(layout.samples(), static_cast<uint16_t>(uFull * 2 / 5));
        std::vector<uint8_t> vecImage = pack(layout, vecIn);
        make(layout, references)->correct(vecImage.data());
        const std::vector<uint16_t> vecOut = unpack(layout, vecImage);
        double dSum = 0.0;
        for (std::size_t i = 0; i < vecIn.size(); ++i) {
            dSum += vecOut[i] - formula.result(i, vecIn[i], uFull);
        }
        EXPECT_LT(std::abs(dSum / static_cast<double>(vecIn.size())), 0.05) << pFormat;
    }
}

TEST(Correction, MakesItsOwnReferenceEvenPerClass) {
    for (const char* pFormat : {"Mono12p", "BayerGB10", "BayerRG12p", "RGB8", "BGR8"}) {
        const ImageLayout layout = layoutOf(pFormat, 18, 12);
        const References references = draw(layout, referenceCases()[0]);
        std::vector<uint16_t> vecIn;
        for (const float fLight : references.vecLight) {
            vecIn.push_back(static_cast<uint16_t>(std::lround(fLight)));
        }
        std::vector<uint8_t> vecImage = pack(layout, vecIn);
        make(layout, references)->correct(vecImage.data());
        const std::vector<uint16_t> vecOut = unpack(layout, vecImage);
        std::array<std::vector<int>, 4> aByClass;
        for (std::size_t i = 0; i < vecOut.size(); ++i) {
            aByClass[classOf(layout, i)].push_back(vecOut[i]);
        }
        int iBefore = -1;
        for (std::size_t iClass = 0; iClass < 4 && !aByClass[iClass].empty(); ++iClass) {
            const auto aEnds = std::minmax_element(aByClass[iClass].begin(), aByClass[iClass].end());
            EXPECT_LE(*aEnds.second - *aEnds.first, 2) << pFormat << " class " << iClass;
            EXPECT_GT(*aEnds.first, iBefore) << pFormat << ": the classes keep their levels";
            iBefore = *aEnds.second;
        }
    }
}

/// Bit of the image, counted from the least significant bit of byte 0, that bit k of sample i lies at: in order for
/// little-endian words and "p" formats alike, for "Packed" ones as the header says.
std::size_t bitOf(const PixelFormat& rFormat, std::size_t i, std::size_t k) {
    const std::size_t nBelow = rFormat.nBits - 8;
    if (!rFormat.bSplit) {
        return i * rFormat.nWireBits + k;
    }
    return i / 2 * 24 + (k < nBelow ? 8 + i % 2 * 4 + k : i % 2 * 16 + k - nBelow);
}

TEST(PixelFormats, PackBitsWhereTheFormatSays) {
    std::mt19937 oRandom(3);
    for (const PixelFormat& rFormat : pixelFormats()) {
        SCOPED_TRACE(rFormat.pName);
        for (std::size_t nSamples = 1; nSamples < 40; ++nSamples) {
            const std::size_t nBytes = (nSamples * rFormat.nWireBits + 7) / 8;
            std::vector<uint16_t> vecSamples(nSamples);
            std::vector<uint8_t> vecExpected(nBytes + 1, 0);
            vecExpected[nBytes] = 0xA5;
            for (std::size_t i = 0; i < nSamples; ++i) {
                vecSamples[i] = static_cast<uint16_t>(oRandom() & rFormat.fullScale());
                for (std::size_t k = 0; k < rFormat.nBits; ++k) {
                    const std::size_t iBit = bitOf(rFormat, i, k);
                    vecExpected[iBit / 8] =
                        static_cast<uint8_t>(vecExpected[iBit / 8] | (vecSamples[i] >> k & 1) << iBit % 8);
                }
            }
            // Written in two parts over bytes that are all ones, so that a part that is not masked shows.
            std::vector<uint8_t> vecImage(nBytes + 1, 0xFF);
            vecImage[nBytes] = 0xA5;
            const std::size_t nFirst = nSamples / 2;
            packSamples(rFormat, vecSamples.data() + nFirst, nFirst, nSamples - nFirst, vecImage.data());
            packSamples(rFormat, vecSamples.data(), 0, nFirst, vecImage.data());
            const unsigned nSpare = static_cast<unsigned>(nBytes * 8 - nSamples * rFormat.nWireBits);
            vecExpected[nBytes - 1] = static_cast<uint8_t>(vecExpected[nBytes - 1] | (0xFF << (8 - nSpare) & 0xFF));
            EXPECT_EQ(vecImage, vecExpected);
            std::vector<uint16_t> vecBack(nSamples - nFirst);
            unpackSamples(rFormat, vecImage.data(), nFirst, vecBack.size(), vecBack.data());
            EXPECT_TRUE(
                std::equal(vecBack.begin(), vecBack.end(), vecSamples.begin() + static_cast<std::ptrdiff_t>(nFirst)));
        }
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
