// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The exported class as built into the shared library, and what that library exports and needs.

#include "xapel2_ext_sc.h"

#include <algorithm>
#include <cstdio>
#include <functional>

#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;
using XapelTest::thrown;

class Facade : public XapelTest::StreamFixture {};

TEST_F(Facade, FiltersHaveNamesAndKeepTheirValuesApart) {
    Shading shading(m_pDevice);
    const struct {
        Shading::eFilterType eType;
        bool bLight;
        std::string strName;
    } rows[] = {
        {Shading::eBoxFilter, true, "BoxFilterLight"},
        {Shading::eBoxFilter, false, "BoxFilterDark"},
        {Shading::eMedianFilter, true, "MedianFilterLight"},
        {Shading::eMedianFilter, false, "MedianFilterDark"},
    };
    unsigned uValue = 3;
    for (const auto& rRow : rows) {
        Control::recordNodes(true);
        shading.SetFilter(rRow.eType, rRow.bLight, uValue++);
        EXPECT_EQ(Control::nodeAccesses().at(0).strValue, rRow.strName);
    }
    int iValue = 3;
    for (const auto& rRow : rows) {
        EXPECT_EQ(shading.GetFilter(rRow.eType, rRow.bLight), iValue++);
        EXPECT_EQ(shading.GetFilterMin(rRow.eType, rRow.bLight), 0);
        EXPECT_EQ(shading.GetFilterMax(rRow.eType, rRow.bLight), 31);
    }
    const auto eNoFilter = static_cast<Shading::eFilterType>(2);
    EXPECT_EQ(
        thrown<XAPEL2::Exceptions::Xapel_InvalidParameterException>([&] { shading.SetFilter(eNoFilter, true, 1); }),
        "SetParam: SetParam failed.");
    EXPECT_EQ(thrown<XAPEL2::Exceptions::Xapel_InvalidParameterException>([&] { shading.GetFilter(eNoFilter, false); }),
              "GetParam: GetParam failed.");
}

TEST_F(Facade, HandsOnItsArgumentsAndYieldsZero) {
    Shading shading(m_pDevice);
    Control::forceStatus(0, 5);
    Control::recordNodes(true);
    EXPECT_EQ(shading.ReferenceAdd("Mono10", 3, 4, reinterpret_cast<void*>(0x20), 24), 0);
    std::string strValues;
    for (const auto& rAccess : Control::nodeAccesses()) strValues += rAccess.strValue + " ";
    EXPECT_EQ(strValues, "Mono10 3 4 24 32 2 5 ");
    Control::forceStatus(0, 0);
    const struct {
        std::function<void()> fn;
        const char* pCommand;
    } rows[] = {
        {[&] { shading.ReferenceLoad(true, "x"); }, "6"}, {[&] { shading.ReferenceLoad(false, "x"); }, "5"},
        {[&] { shading.ReferenceStart(true); }, "8"},     {[&] { shading.ReferenceStart(false); }, "7"},
        {[&] { shading.ReferenceEnd("x"); }, "9"},        {[&] { shading.ReferenceApply(); }, "3"},
        {[&] { shading.ReferenceClear(); }, "4"},         {[&] { shading.SetEnable(true); }, "1"},
    };
    for (const auto& rRow : rows) {
        Control::recordNodes(true);
        rRow.fn();
        const auto recorded = Control::nodeAccesses();
        ASSERT_GE(recorded.size(), 2U);
        EXPECT_EQ(recorded[recorded.size() - 2].strValue, rRow.pCommand);
    }
    Control::recordNodes(true);
    shading.SetEnable(false);
    EXPECT_TRUE(Control::nodeAccesses().empty());
}

TEST_F(Facade, NullDeviceIsRefused) {
    EXPECT_EQ(thrown<XAPEL2::Exceptions::Xapel_InvalidParameterException>([] { Shading shading(nullptr); }),
              "CXapelBypass: Device parameter is nullptr.");
}

/// What a command prints, line by line.
std::vector<std::string> linesOf(const std::string& strCommand) {
    std::vector<std::string> lines;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    char acLine[1024];
    while (pPipe != nullptr && std::fgets(acLine, sizeof(acLine), pPipe) != nullptr) lines.emplace_back(acLine);
    if (pPipe != nullptr)
        pclose(pPipe);
    return lines;
}

TEST(Library, ExportsTheFacadeAloneAndNeedsNothingElse) {
    const std::string strFile = std::string("'") + XAPEL2_EXT_SC_FILE + "'";
    const auto symbols = linesOf("nm -DC --defined-only " + strFile);
    EXPECT_GE(symbols.size(), 14U);
    for (const auto& rLine : symbols) {
        EXPECT_TRUE(rLine.find(" T XAPEL2::Ext::Sc::Shading::") != std::string::npos ||
                    rLine.find(" A XAPEL2_EXT_SC_1.0") != std::string::npos)
            << rLine;
    }
    const auto needed = linesOf("readelf -d " + strFile + " | grep NEEDED");
    EXPECT_GE(needed.size(), 2U);
    for (const auto& rLine : needed) {
        const char* const known[] = {"libxapel2_genicam.so.0",
                                     "libstdc++.so",
                                     "libgcc_s.so",
                                     "libc.so",
                                     "libm.so",
                                     "libasan.so",
                                     "libubsan.so",
                                     "libtsan.so"};
        EXPECT_TRUE(std::any_of(std::begin(known), std::end(known), [&](const char* pName) {
            return rLine.find(pName) != std::string::npos;
        })) << rLine;
    }
}

}  // namespace
