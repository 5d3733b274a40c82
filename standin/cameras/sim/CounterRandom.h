// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Random numbers that are a function of a key and a counter, the same on every machine.

#pragma once

#include <cmath>
#include <cstdint>

namespace XAPEL2 {
namespace StandIn {

/// A family of random numbers: every counter yields its own number, in any order and on any thread. Only integer
/// arithmetic, + - * / and the square root are used, whose results IEEE 754 fixes; the functions of the mathematical
/// library differ in the last bit between processors, the distributions of <random> between libraries.
/// The bits are those of SplitMix64 (Steele, Lea, Flood: Fast splittable pseudorandom number generators, OOPSLA 2014).
class CCounterRandom {
public:
    /// Families with another key share nothing.
    explicit CCounterRandom(uint64_t uKey) : m_uKey(uKey) {}

    /// A key from a key and one more part.
    static uint64_t deriveKey(uint64_t uKey, uint64_t uPart) { return mix(mix(uKey + STEP) + uPart * STEP); }

    /// 64 random bits.
    uint64_t bits(uint64_t uCounter) const { return mix(m_uKey + uCounter * STEP); }

    /// Even in [0, 1), 53 bits.
    double uniform(uint64_t uCounter) const { return static_cast<double>(bits(uCounter) >> 11) * 0x1p-53; }

    /// Normal with mean 0 and variance 1; takes the counters uCounter and uCounter + 1. A binomial of 64 coins,
    /// smoothed by two even numbers: excess kurtosis -0.03, no value beyond 8.2.
    double normal(uint64_t uCounter) const {
        const uint64_t uSmooth = bits(uCounter + 1);
        const double dCoins = static_cast<double>(countOnes(bits(uCounter))) - 32.0;
        const double dEven = static_cast<double>((uSmooth >> 32) + (uSmooth & 0xFFFFFFFFU)) * 0x1p-32 - 1.0;
        return (dCoins + dEven) * NORMAL_SCALE;
    }

    /// Poisson number, exact by inversion below a mean of POISSON_NORMAL_FROM and a rounded normal number from there
    /// on; takes the counters uCounter and uCounter + 1. The mean must not be negative.
    double poisson(double dMean, uint64_t uCounter) const {
        if (dMean >= POISSON_NORMAL_FROM) {
            return std::floor(dMean + std::sqrt(dMean) * normal(uCounter) + 0.5);
        }
        const double dDraw = uniform(uCounter);
        if (dDraw < 1.0 - dMean) {  // below e^-mean for certain, and the common case in the dark
            return 0.0;
        }
        double dTerm = expMinus(dMean);
        double dSum = dTerm;
        double dCount = 0.0;
        while (dDraw >= dSum && dCount < 200.0) {
            dCount += 1.0;
            dTerm *= dMean / dCount;
            dSum += dTerm;
        }
        return dCount;
    }

    static constexpr double POISSON_NORMAL_FROM = 30.0;

private:
    static constexpr uint64_t STEP = 0x9E3779B97F4A7C15U;
    static constexpr double NORMAL_SCALE = 0.24870800168690346;  // 1 / sqrt(64 / 4 + 2 / 12)

    static constexpr double RECIPROCALS[17] = {0.0,      1.0,      1.0 / 2,  1.0 / 3,  1.0 / 4,  1.0 / 5,
                                               1.0 / 6,  1.0 / 7,  1.0 / 8,  1.0 / 9,  1.0 / 10, 1.0 / 11,
                                               1.0 / 12, 1.0 / 13, 1.0 / 14, 1.0 / 15, 1.0 / 16};

    static uint64_t mix(uint64_t u) {
        u = (u ^ (u >> 30)) * 0xBF58476D1CE4E5B9U;
        u = (u ^ (u >> 27)) * 0x94D049BB133111EBU;
        return u ^ (u >> 31);
    }

    static uint64_t countOnes(uint64_t u) {
        u -= (u >> 1) & 0x5555555555555555U;
        u = (u & 0x3333333333333333U) + ((u >> 2) & 0x3333333333333333U);
        u = (u + (u >> 4)) & 0x0F0F0F0F0F0F0F0FU;
        return (u * 0x0101010101010101U) >> 56;
    }

    // e^-f for f in [0, 32): the series at f / 32, then five squarings.
    static double expMinus(double f) {
        const double dStep = -f / 32.0;
        double dSum = 1.0;
        for (int i = 16; i >= 1; --i) {
            dSum = 1.0 + dSum * dStep / i;
        }
        for (int i = 0; i < 5; ++i) {
            dSum *= dSum;
        }
        return dSum;
    }

    uint64_t m_uKey;
};

}  // namespace StandIn
}  // namespace XAPEL2
