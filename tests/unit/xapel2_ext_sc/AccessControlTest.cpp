// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The access gate.

#include "XapelAccessControl.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "StreamFixture.h"

namespace {

/// What this thread does, once, as soon as it has unlocked the watched mutex: another thread's turn at that moment.
thread_local pthread_mutex_t* t_pWatched = nullptr;
thread_local std::function<void()> t_fnUnlocked;

}  // namespace

// The linker hands every unlock of this program to the wrapper (see CMakeLists.txt), and wants it visible where a
// sanitizer's library unlocks mutexes too.
extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* pMutex);
extern "C" __attribute__((visibility("default"))) int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex);

extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* pMutex) {
    const int iResult = __real_pthread_mutex_unlock(pMutex);
    if (t_pWatched != nullptr && pMutex == t_pWatched) {
        t_pWatched = nullptr;
        t_fnUnlocked();
    }
    return iResult;
}

namespace {

typedef CXapelAccessControl Guard;
using XapelTest::eventually;

class AccessControl : public ::testing::Test {
protected:
    std::unique_ptr<Guard> enter(Guard::eMode eMode, unsigned uFlags = 0) {
        return std::unique_ptr<Guard>(new Guard(m_mtx, m_data, eMode, uFlags));
    }

    /// Enters on a thread of its own, counts itself and leaves.
    std::thread enterElsewhere(Guard::eMode eMode) {
        return std::thread([this, eMode] {
            ++m_nTried;
            const Guard guard(m_mtx, m_data, eMode, 0);
            ++m_nEntered;
        });
    }

    /// Long enough for a thread that wrongly does not wait to be seen.
    bool staysOut() {
        eventually([this] { return m_nTried > 0; });
        return !eventually([this] { return m_nEntered > 0; }, 30);
    }

    std::mutex m_mtx;
    XapelAccessControlData m_data;
    std::atomic<int> m_nTried{0};
    std::atomic<int> m_nEntered{0};
};

TEST_F(AccessControl, SharedGuardsEnterTogetherAndUnknownModeIsShared) {
    const auto first = enter(Guard::eShared);
    const auto second = enter(static_cast<Guard::eMode>(7));
    EXPECT_FALSE(m_data.IsExclusive());
    second->WaitExclusive();  // returns at once: not exclusive
}

TEST_F(AccessControl, ExclusiveReturnsWhileUsersAreInsideAndShutsOthersOut) {
    auto user = enter(Guard::eShared);
    auto holder = enter(Guard::eExclusive);
    EXPECT_FALSE(m_data.IsExclusive());
    for (const auto eMode : {Guard::eShared, Guard::eExclusive}) {
        m_nTried = m_nEntered = 0;
        std::thread newcomer = enterElsewhere(eMode);
        EXPECT_TRUE(staysOut()) << eMode;
        user.reset();
        EXPECT_TRUE(m_data.IsExclusive());
        EXPECT_TRUE(staysOut()) << eMode;
        holder.reset();
        newcomer.join();
        EXPECT_EQ(m_nEntered, 1);
        user = enter(Guard::eShared);
        holder = enter(Guard::eExclusive);
    }
}

TEST_F(AccessControl, ExclusiveWaitReturnsWhenAlone) {
    auto user = enter(Guard::eShared);
    std::thread waiter = enterElsewhere(Guard::eExclusiveWait);
    EXPECT_TRUE(staysOut());
    user.reset();
    waiter.join();
    EXPECT_EQ(m_nEntered, 1);
}

TEST_F(AccessControl, FlagBitStaysUntilItsLastPublisherLeaves) {
    auto first = enter(Guard::eShared, 1);
    auto second = enter(Guard::eShared, 1 | 2 | 0x80000000U);
    const auto third = enter(Guard::eShared, 0);
    EXPECT_EQ(m_data.Flags(), 0x80000003U);
    first.reset();
    EXPECT_EQ(m_data.Flags(), 0x80000003U);
    second.reset();
    EXPECT_EQ(m_data.Flags(), 0U);
}

TEST_F(AccessControl, SharedGuardDoesNotOpenAClosedGate) {
    // A guard that entered before the gate closed leaves it closed.
    auto user = enter(Guard::eShared);
    const auto holder = enter(Guard::eExclusive);
    user.reset();
    std::thread newcomer;
    {
        newcomer = enterElsewhere(Guard::eShared);
        EXPECT_TRUE(staysOut());
    }
    const_cast<std::unique_ptr<Guard>&>(holder).reset();
    newcomer.join();
}

TEST_F(AccessControl, EntryIsWholeWhenTheMutexIsFree) {
    // The gate is closed right behind a user that has just let go of the mutex. That user must be counted and its bits
    // published by then, and nothing it does later may open the gate.
    std::unique_ptr<Guard> holder;
    t_fnUnlocked = [&] {
        holder = enter(Guard::eExclusive);
        EXPECT_FALSE(m_data.IsExclusive());
        EXPECT_EQ(m_data.Flags(), 5U);
    };
    t_pWatched = m_mtx.native_handle();
    auto user = enter(Guard::eShared, 5);
    ASSERT_NE(holder, nullptr);
    std::thread newcomer = enterElsewhere(Guard::eShared);
    EXPECT_TRUE(staysOut());
    user.reset();
    holder.reset();
    newcomer.join();
}

TEST_F(AccessControl, WriterSeesNobodyHalfWay) {
    // What readers see under the gate is whole, and no update of a writer is lost.
    constexpr int ROUNDS = 2000;
    long anPair[2] = {0, 0};
    std::atomic<bool> bTorn{false};
    const auto fnRead = [&] {
        for (int i = 0; i < ROUNDS; ++i) {
            const Guard guard(m_mtx, m_data, Guard::eShared, 1);
            if (anPair[0] != anPair[1])
                bTorn = true;
        }
    };
    const auto fnWrite = [&] {
        for (int i = 0; i < ROUNDS; ++i) {
            const Guard guard(m_mtx, m_data, Guard::eExclusiveWait, 0);
            ++anPair[0];
            ++anPair[1];
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(fnRead);
    threads.emplace_back(fnWrite);
    threads.emplace_back(fnWrite);
    for (auto& rThread : threads) rThread.join();
    EXPECT_FALSE(bTorn);
    EXPECT_EQ(anPair[0], 2 * ROUNDS);
    EXPECT_EQ(m_data.Flags(), 0U);
}

}  // namespace
