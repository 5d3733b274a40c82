// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Object validity maps and time difference.

#include "objectvalid.h"

#include <gtest/gtest.h>

namespace {

TEST(ObjectValid, EntryKeepsItsFirstValueAndLeavesByValueOrByAddress) {
    XapelObjectMap map;
    for (void* pObject : {static_cast<void*>(&map), static_cast<void*>(nullptr)}) {
        long iValue = 77;
        EXPECT_EQ(xapel2FindMap(map, pObject), 0);
        EXPECT_EQ(xapel2FindMap(map, pObject, iValue), 0);
        EXPECT_EQ(iValue, 77);
        EXPECT_EQ(xapel2InsertMap(pObject, 1, &map), 1);
        EXPECT_EQ(xapel2InsertMap(pObject, 2, &map), 0);
        EXPECT_EQ(xapel2FindMap(map, pObject, iValue), 1);
        EXPECT_EQ(iValue, 1);
        EXPECT_EQ(xapel2DeleteMap(pObject, 2, &map), 0);
        EXPECT_EQ(xapel2FindMap(map, pObject), 1);
        EXPECT_EQ(xapel2DeleteMap(pObject, 1, &map), 1);
        EXPECT_EQ(xapel2InsertMap(pObject, 3, &map), 1);
        EXPECT_EQ(xapel2DeleteThisMap(pObject, &map), 1);
        EXPECT_EQ(xapel2DeleteThisMap(pObject, &map), 0);
    }
}

TEST(ObjectValid, TimeDifferenceLendsASecondUnlessSecondsAreEqual) {
    const struct {
        timeval a, b, difference;
    } rows[] = {
        {{5, 700000}, {3, 200000}, {1, 1500000}},
        {{5, 200000}, {3, 700000}, {1, 500000}},
        {{4, 100}, {4, 300}, {0, -200}},
        {{3, 0}, {5, 0}, {-3, 1000000}},
    };
    for (const auto& rRow : rows) {
        timeval result{99, 99};
        timeval_diff(result, rRow.a, rRow.b);
        EXPECT_TRUE(result.tv_sec == rRow.difference.tv_sec && result.tv_usec == rRow.difference.tv_usec);
    }
}

}  // namespace
