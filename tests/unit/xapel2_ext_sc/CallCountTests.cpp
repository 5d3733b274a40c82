// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The count of open and close calls.

#include "XapelCallCount.h"

#include <future>
#include <optional>

#include "StreamFixture.h"

namespace {

TEST(CallCount, WaitEndsWithTheLastCallAndClosingTurnsAwayOnlyLaterOnes) {
    CXapelCallCount count;
    count.waitUntilNone();  // returns at once
    std::optional<CXapelCallCount::CEntry> first(count), second;
    EXPECT_FALSE(first->isClosing());
    auto early = std::async(std::launch::async, [&] { count.waitUntilNone(); });
    EXPECT_FALSE(XapelTest::ready(early, 30));
    first.reset();
    EXPECT_TRUE(XapelTest::ready(early));
    first.emplace(count);
    second.emplace(count);
    count.close();
    EXPECT_FALSE(first->isClosing()) << "it came before";
    EXPECT_TRUE(CXapelCallCount::CEntry(count).isClosing());
    auto wait = std::async(std::launch::async, [&] { count.waitUntilNone(); });
    first.reset();
    EXPECT_FALSE(XapelTest::ready(wait, 30));
    second.reset();
    EXPECT_TRUE(XapelTest::ready(wait));
    EXPECT_TRUE(CXapelCallCount::CEntry(count).isClosing()) << "closing stays";
    count.waitUntilNone();
}

}  // namespace
