// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The slots of hubs: which memory comes back when, and the pins that hold up the end of a hub.

#include "XapelBypassSlot.h"

#include <algorithm>
#include <future>
#include <iterator>
#include <memory>
#include <set>
#include <vector>

#include "StreamFixture.h"
#include "XapelBypassDevice.h"

namespace {

using XapelTest::eventually;
using XapelTest::ready;

class Slot : public XapelTest::StreamFixture {};

TEST_F(Slot, RestsWhileEnoughOthersDoThenComesBackOldestFirstAndAKeptOneNever) {
    const auto fnAcquire = [] { return xapelSlotAcquire(sizeof(CXapelBypassDevice)); };
    void* const aOurs[] = {fnAcquire(), fnAcquire(), fnAcquire()};
    xapelSlotKeep(aOurs[1]);
    for (void* const pSlot : aOurs) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pSlot) % alignof(CXapelBypassDevice), 0U);
        xapelSlotRetire(pSlot);
    }
    std::set<void*> setBehind{aOurs[2]};  // what rests behind the oldest of ours
    std::vector<void*> vecBack;
    for (std::size_t i = 0; i < 4 * XAPEL_SLOTS_RETIRED_MIN; ++i) {
        void* const pSlot = fnAcquire();
        if (std::count(std::begin(aOurs), std::end(aOurs), pSlot) != 0) {
            setBehind.erase(pSlot);
            EXPECT_GE(setBehind.size(), XAPEL_SLOTS_RETIRED_MIN);
            vecBack.push_back(pSlot);
        } else {
            setBehind.insert(pSlot);
            xapelSlotRetire(pSlot);
        }
    }
    EXPECT_EQ(vecBack, (std::vector<void*>{aOurs[0], aOurs[2]}));
    for (void* const pSlot : vecBack) {
        xapelSlotRetire(pSlot);
    }
}

TEST_F(Slot, EndOfTheHubWaitsForACallInside) {
    auto pHub = std::make_unique<CXapelBypassDevice>(m_pDevice);
    void* const pContext = pHub.get();
    XapelPinWord& rPins = xapelSlotPinWord(pContext);
    EXPECT_EQ(rPins.load(), 1U);
    auto pPin = std::make_unique<CXapelHubPin>(pContext);
    EXPECT_TRUE(pPin->isAlive());
    auto end = std::async(std::launch::async, [&] { pHub.reset(); });
    EXPECT_TRUE(eventually([&] { return (rPins.load() & 1) == 0; }));
    EXPECT_FALSE(ready(end, 30));
    EXPECT_FALSE(CXapelHubPin(pContext).isAlive());
    pPin.reset();
    EXPECT_TRUE(ready(end));
}

}  // namespace
