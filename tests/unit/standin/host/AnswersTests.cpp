// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host tells an application: traces to its sink.

#include "xapel2_standin/Answers.h"

#include <atomic>
#include <memory>
#include <thread>

#include "HostFixture.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class Answers : public HostFixture {};

TEST_F(Answers, SinkTakesTheTracesInPlaceOfThePrint) {
    const int32_t iError = 2;
    std::vector<std::string> vecTold;
    testing::internal::CaptureStderr();
    setTraceSink([&](int32_t iLevel, const std::string& rText) {
        vecTold.push_back(std::to_string(iLevel) + rText);
        throw std::runtime_error("sink");
    });
    extT(nullptr, "ordinary");
    extT(&iError, "error");
    setTraceSink(nullptr);
    extT(nullptr, "ordinary");
    extT(&iError, "printed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "printed\n");
    EXPECT_EQ(vecTold, (std::vector<std::string>{"0ordinary", "2error"}));
}

// What a sink owns lives as long as a call of it; each trace goes to one sink, or is printed.
TEST_F(Answers, SinkIsReplacedWhileOthersTrace) {
    struct Count {
        explicit Count(std::atomic<uint64_t>& rAll) : rTotal(rAll) {}
        ~Count() {
            rTotal += nTraces;
            bEnded = true;
            extT(nullptr, "an end that traces");
        }
        std::atomic<uint64_t>& rTotal;
        std::atomic<uint64_t> nTraces{0};
        bool bEnded = false;
    };
    constexpr unsigned THREADS = 3, TRACES = 3000;
    const int32_t iError = 2;
    std::atomic<uint64_t> nTotal{0};
    std::atomic<unsigned> nRunning{THREADS};
    testing::internal::CaptureStderr();
    std::vector<std::thread> vecThreads;
    for (unsigned i = 0; i < THREADS; ++i) {
        vecThreads.emplace_back([&] {
            for (unsigned n = 0; n < TRACES; ++n) extT(&iError, "x");
            --nRunning;
        });
    }
    for (unsigned i = 0; nRunning != 0 || i < 100; ++i) {
        const auto pCount = std::make_shared<Count>(nTotal);
        setTraceSink([pCount](int32_t iLevel, const std::string&) {
            EXPECT_FALSE(pCount->bEnded);
            pCount->nTraces += iLevel == 2 ? 1 : 0;
        });
        if (i % 5 == 0) {
            setTraceSink(nullptr);
        }
    }
    for (std::thread& rThread : vecThreads) rThread.join();
    setTraceSink(nullptr);
    EXPECT_EQ(nTotal + testing::internal::GetCapturedStderr().size() / 2, THREADS * TRACES);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
