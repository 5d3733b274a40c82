// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A thousand changes of the participant lists beside two fetches that wait without a time-out.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>

#include "StreamFixture.h"
#include "VexoShading.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::ready;

class Registration : public XapelTest::StreamFixture {};

TEST_F(Registration, EachOfAThousandEndsBothWaitingFetchesAtOnce) {
    constexpr unsigned CHANGES = 1000, AT_ONCE_MS = 2000;
    CVexoShadingObj object(m_pDevice);
    CXapelBypass participant(m_pDevice);
    startStream(0);
    const std::function<void()> changes[] = {
        [&] { object.SetEnable(true); }, [&] { participant.registerParticipant(); }, [&] { object.SetEnable(false); },
        [&] { participant.unregisterParticipant(); }};
    double dLongestFetchMs = 0, dLongestChangeMs = 0;
    for (unsigned i = 0; i < CHANGES && !HasFailure(); ++i) {
        auto first = blockedFetch(1), second = blockedFetch(2);
        const auto tBegan = std::chrono::steady_clock::now();
        const auto fnMs = [&] {
            return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - tBegan).count();
        };
        auto change = std::async(std::launch::async, changes[i % 4]);
        const bool bBoth = ready(first, AT_ONCE_MS) && ready(second, AT_ONCE_MS);
        dLongestFetchMs = std::max(dLongestFetchMs, fnMs());
        EXPECT_TRUE(bBoth && ready(change, AT_ONCE_MS)) << "change " << i;
        dLongestChangeMs = std::max(dLongestChangeMs, fnMs());
        if (HasFailure())
            closeDataStream(m_pDevice, m_pStream);  // ends them past the gate
        EXPECT_EQ(first.get(), GC_ERR_ABORT);
        EXPECT_EQ(second.get(), GC_ERR_ABORT);
    }
    std::printf("longest from a change to the end of both fetches %.3f ms, longest change %.3f ms\n", dLongestFetchMs,
                dLongestChangeMs);
}

}  // namespace
