// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors

#include "standin/files/SampleBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/unit/standin/processor/Targets.h"

namespace XAPEL2 {
namespace StandIn {

// Around each number of samples that some vector holds, at even and odd addresses, with bytes behind that are not ours.
TEST(SampleBytes, AreExchangedAndComparedLikeOneByOne) {
    constexpr std::size_t MOST = 200, GUARD = 0xEE;
    forEachTarget([] {
        for (std::size_t iStart = 0; iStart < 2; ++iStart) {
            for (std::size_t nSamples = 0; nSamples <= MOST; ++nSamples) {
                std::vector<uint8_t> vecBytes(iStart + 2 * MOST + 8), vecTo(vecBytes.size(), GUARD);
                for (std::size_t i = 0; i < vecBytes.size(); ++i) {
                    vecBytes[i] = static_cast<uint8_t>(i * 167 + nSamples * 59 + 11);
                }
                std::vector<uint8_t> vecExpected(vecTo);
                uint16_t uLargest = 0;
                for (std::size_t i = 0; i < nSamples; ++i) {
                    const uint8_t* const pFrom = &vecBytes[iStart + 2 * i];
                    vecExpected[iStart + 2 * i] = pFrom[1];
                    vecExpected[iStart + 2 * i + 1] = pFrom[0];
                    uint16_t uSample = 0;
                    std::memcpy(&uSample, pFrom, sizeof uSample);
                    uLargest = std::max(uLargest, uSample);
                }
                const uint8_t* const pFrom = &vecBytes[iStart];
                ASSERT_EQ(largestSample16(pFrom, nSamples), uLargest) << nSamples;
                ASSERT_EQ(largestSample(pFrom, nSamples),
                          nSamples == 0 ? 0 : *std::max_element(pFrom, pFrom + nSamples))
                    << nSamples;
                swapSamples(pFrom, nSamples, &vecTo[iStart]);
                ASSERT_EQ(vecTo, vecExpected) << nSamples;
                swapSamples(&vecTo[iStart], nSamples, &vecTo[iStart]);
                ASSERT_TRUE(std::equal(pFrom, pFrom + 2 * nSamples, &vecTo[iStart])) << nSamples;
            }
        }
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
