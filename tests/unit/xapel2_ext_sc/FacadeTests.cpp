// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The exported class as built into the shared library, and what that library exports and needs.

#include "xapel2_ext_sc.h"

#include <cstdio>
#include <string>

#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

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
    using XAPEL2::Exceptions::Xapel_InvalidParameterException;
    EXPECT_THROW(shading.SetFilter(eNoFilter, true, 1), Xapel_InvalidParameterException);
    EXPECT_THROW(shading.GetFilter(eNoFilter, false), Xapel_InvalidParameterException);
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
    Control::recordNodes(true);
    shading.ReferenceClear();
    EXPECT_EQ(Control::nodeAccesses().at(0).strValue, "4");
    Control::recordNodes(true);
    shading.SetEnable(false);
    EXPECT_TRUE(Control::nodeAccesses().empty());
}

/// What a shell command prints.
std::string printed(const std::string& strCommand) {
    std::string strText;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    for (int iChar = 0; pPipe != nullptr && (iChar = std::fgetc(pPipe)) != EOF;) strText += static_cast<char>(iChar);
    pclose(pPipe);
    return strText;
}

TEST(Library, ExportsTheFacadeAloneAndNeedsNothingElse) {
    const std::string strSymbols = "nm -DC --defined-only '" XAPEL2_EXT_SC_FILE "' | grep ";
    EXPECT_GE(std::stoi(printed(strSymbols + "-c ' T XAPEL2::Ext::Sc::Shading::'")), 13);
    EXPECT_EQ(printed(strSymbols + "-v -e ' T XAPEL2::Ext::Sc::Shading::' -e ' A XAPEL2_EXT_SC_1.0'"), "");
    const std::string strNeeded = "readelf -d '" XAPEL2_EXT_SC_FILE "' | grep NEEDED | grep ";
    EXPECT_NE(printed(strNeeded + "libxapel2_genicam.so.0"), "");
    EXPECT_NE(printed("readelf -d '" XAPEL2_EXT_SC_FILE "' | grep FLAGS_1 | grep NODELETE"), "");
    EXPECT_EQ(printed(strNeeded + "-Ev 'lib(xapel2_genicam.so.0|(stdc\\+\\+|gcc_s|c|m|asan|ubsan|tsan).so)'"), "");
}

}  // namespace
