// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Numbers say what they are: nothing has no sign, and something is not told as nothing.

#include <cmath>
#include <utility>

#include <gmock/gmock.h>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

TEST(Texts, NumberThatIsNoneDoesNotReadAsZero) {
    const struct {
        double dValue;
        int nDigits;
        const char* pText;
    } aRows[] = {{1.5, 2, "1.50"},         {-0.6, 0, "-1"},      {-0.3, 0, "0"},        {0.0, 3, "0.000"},
                 {-0.0, 2, "0.00"},        {0.0006, 3, "0.001"}, {0.0004, 3, "0.0004"}, {-0.00031, 3, "-0.0003"},
                 {0.000042, 2, "0.00004"}, {1e-7, 3, "0.000"},   {-1e-16, 2, "0.00"},   {NAN, 2, "unknown"}};
    for (const auto& rRow : aRows) {
        EXPECT_EQ(fixed(rRow.dValue, rRow.nDigits), rRow.pText) << rRow.dValue;
    }
    EXPECT_EQ(withUnit(NAN, 2, "DN"), "unknown");
    EXPECT_EQ(counted(1, "frame"), "1 frame");
    EXPECT_EQ(counted(0, "frame"), "0 frames");
}

TEST(Texts, ShortTimesAreToldInMicroseconds) {
    const std::pair<double, const char*> aRows[] = {
        {12.3456, "12.346 ms"}, {0.1, "0.100 ms"},      {0.0123, "12.30 us"}, {0.00031, "0.31 us"},
        {-0.002, "-2.00 us"},   {0.000002, "0.002 us"}, {0.0, "0.00 us"},     {NAN, "unknown"}};
    for (const auto& [dMs, pText] : aRows) {
        EXPECT_EQ(duration(dMs), pText) << dMs;
    }
}

}  // namespace Toolkit
}  // namespace XAPEL2
