// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The access gate: who enters, who waits, what a holder sees, and an entry mutex that fails.

#include "XapelAccessControl.h"

#include <pthread.h>

#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>

#include "StreamFixture.h"

namespace {

using XapelTest::ready;
typedef CXapelAccessControl Guard;

/// A gate with its entry mutex, and guards on threads of their own.
struct Gate {
    std::future<std::unique_ptr<Guard>> enter(Guard::eMode eMode, unsigned uFlags = 0) {
        return std::async(std::launch::async, [=] { return std::make_unique<Guard>(mtx, data, eMode, uFlags); });
    }
    std::mutex mtx;
    XapelAccessControlData data;
};

TEST(AccessControl, FlagBitStaysUntilItsLastPublisherLeavesAndUnknownModeIsShared) {
    std::mutex mtx;
    XapelAccessControlData data;
    std::optional<Guard> first, second;
    first.emplace(mtx, data, Guard::eShared, 1);
    second.emplace(mtx, data, static_cast<Guard::eMode>(7), 1 | 2 | 0x80000000U);
    EXPECT_FALSE(data.IsExclusive());
    second->WaitExclusive();  // returns at once: not exclusive
    EXPECT_EQ(data.Flags(), 0x80000003U);
    first.reset();
    EXPECT_EQ(data.Flags(), 0x80000003U);
    second.reset();
    EXPECT_EQ(data.Flags(), 0U);
}

TEST(AccessControl, ExclusiveEntersAtOnceClosesTheGateAndWaitsOnlyWhenAsked) {
    for (const Guard::eMode eWho : {Guard::eExclusive, Guard::eExclusiveWait}) {
        SCOPED_TRACE(eWho);
        Gate gate;
        auto pUser = gate.enter(Guard::eShared, 1).get();
        EXPECT_TRUE(gate.data.IsExclusive()) << "a user that is alone";
        auto holder = gate.enter(eWho);
        std::unique_ptr<Guard> pHolder;
        if (eWho == Guard::eExclusive) {
            ASSERT_TRUE(ready(holder));
            pHolder = holder.get();
        } else {
            ASSERT_TRUE(XapelTest::eventually([&] { return !gate.data.IsExclusive(); })) << "it is inside";
            EXPECT_FALSE(ready(holder, 30)) << "and waits for the user";
        }
        EXPECT_FALSE(gate.data.IsExclusive());
        EXPECT_EQ(gate.data.Flags(), 1U);
        auto newcomer = gate.enter(Guard::eShared), other = gate.enter(Guard::eExclusive);
        EXPECT_FALSE(ready(newcomer, 30));
        EXPECT_FALSE(ready(other, 1));
        if (eWho == Guard::eExclusive) {
            auto wait = std::async(std::launch::async, [&] { pHolder->WaitExclusive(); });
            EXPECT_FALSE(ready(wait, 30));
            pUser.reset();
            EXPECT_TRUE(ready(wait));
        } else {
            pUser.reset();
            ASSERT_TRUE(ready(holder));
            pHolder = holder.get();
        }
        EXPECT_TRUE(gate.data.IsExclusive());
        EXPECT_FALSE(ready(newcomer, 30)) << "the holder is still inside";
        pHolder.reset();
        // Both get in; which one first is open, and an exclusive one does not wait for the other.
        ASSERT_TRUE(XapelTest::eventually([&] { return ready(newcomer, 0) || ready(other, 0); }));
        if (ready(other, 0)) {
            other.get();
        }
        ASSERT_TRUE(ready(newcomer));
        newcomer.get();
        if (other.valid()) {
            ASSERT_TRUE(ready(other));
        }
    }
}

// Whoever cannot lock the mutex has not been inside: neither counted, nor has it closed the gate.
TEST(AccessControl, MutexThatFailsLeavesTheGateAsItWas) {
    Gate gate;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    ASSERT_EQ(pthread_mutex_init(gate.mtx.native_handle(), &attributes), 0);
    for (const Guard::eMode eWho : {Guard::eShared, Guard::eExclusive, Guard::eExclusiveWait}) {
        SCOPED_TRACE(eWho);
        {
            const std::lock_guard<std::mutex> lock(gate.mtx);  // a second lock by this thread is an error
            try {
                const Guard guard(gate.mtx, gate.data, eWho, 5);
                FAIL() << "entered";
            } catch (const std::system_error& rError) {
                EXPECT_EQ(rError.code(), std::errc::resource_deadlock_would_occur);
            }
        }
        EXPECT_EQ(gate.data.Flags(), 0U);
        const Guard user(gate.mtx, gate.data, Guard::eShared, 0);
        EXPECT_TRUE(gate.data.IsExclusive());
    }
    pthread_mutexattr_destroy(&attributes);
}

}  // namespace
