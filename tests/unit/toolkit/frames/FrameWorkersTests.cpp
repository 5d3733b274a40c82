// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Work beside the thread that fetches, and what becomes of it when a piece fails.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include "toolkit/frames/FrameWorkers.h"

using XAPEL2::Toolkit::CFrameWorkers;

TEST(FrameWorkers, WorkRunsBesideTheCallerAndIsWaitedFor) {
    std::atomic<int> nWorked{0}, nDone{0};
    {
        CFrameWorkers workers(2);
        std::promise<void> both;
        const std::shared_future<void> met = both.get_future().share();
        const auto fnSlow = [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time to overtake it
            ++nDone;
        };
        workers.add([&] { met.wait(); }, fnSlow);
        workers.add([&] { both.set_value(); }, [&] { ++nDone; });  // hangs where one waits for the other
        workers.finish();
        EXPECT_EQ(nDone, 2) << "finish() waits for all";
        for (int i = 0; i < 100; ++i) {
            workers.add([&] { ++nWorked; }, [&] { ++nDone; });
        }
    }
    EXPECT_EQ(nWorked, 100) << "the destructor waits, too";
    EXPECT_EQ(nDone, 102);
}

TEST(FrameWorkers, AFailureIsToldOnceAndEveryBufferComesBack) {
    std::atomic<int> nDone{0}, nAfter{0};
    CFrameWorkers workers(1);
    int nHanded = 1;
    workers.add([] { throw std::runtime_error("first"); }, [&] { ++nDone; });
    try {
        for (;;) {
            workers.add(
                [&] {
                    ++nAfter;
                    throw std::runtime_error("later");
                },
                [&] { ++nDone; });
            ++nHanded;
            std::this_thread::yield();
        }
    } catch (const std::runtime_error& rError) {
        EXPECT_STREQ(rError.what(), "first");
    }
    workers.add([] {}, [&] { ++nDone; });
    EXPECT_NO_THROW(workers.finish());
    EXPECT_EQ(nDone, nHanded + 1);
    EXPECT_EQ(nAfter, 0) << "what follows a failure is left out";
    workers.add([&] { ++nAfter; }, [] { throw std::runtime_error("back"); });
    EXPECT_THROW(workers.finish(), std::runtime_error) << "a buffer that cannot be given back is a failure";
    EXPECT_EQ(nAfter, 1);
}
