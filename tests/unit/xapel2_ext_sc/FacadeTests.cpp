// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The exported class as built into the shared library, and what that library exports and needs.

#include "xapel2_ext_sc.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

typedef std::vector<std::string> Texts;

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
    // The limits of all filters are alike, so what was asked for tells more than the answer.
    const struct {
        int (Shading::*pfnGet)(Shading::eFilterType, bool);
        std::string strOperation;
        int iFirst, iStep;  // answers, filter by filter
    } getters[] = {{&Shading::GetFilter, "GetInt", 3, 1},
                   {&Shading::GetFilterMin, "GetIntMin", 0, 0},
                   {&Shading::GetFilterMax, "GetIntMax", 31, 0}};
    for (const auto& rGetter : getters) {
        int iExpected = rGetter.iFirst;
        for (const auto& rRow : rows) {
            Control::recordNodes(true);
            EXPECT_EQ((shading.*rGetter.pfnGet)(rRow.eType, rRow.bLight), iExpected);
            EXPECT_EQ(XapelTest::nodeTexts(),
                      (Texts{"ShadingParamSelector SetValue " + rRow.strName,
                             "ShadingParamValue " + rGetter.strOperation + " " + std::to_string(iExpected)}));
            iExpected += rGetter.iStep;
        }
    }
    const auto eNoFilter = static_cast<Shading::eFilterType>(2);
    using XAPEL2::Exceptions::Xapel_InvalidParameterException;
    EXPECT_THROW(shading.SetFilter(eNoFilter, true, 1), Xapel_InvalidParameterException);
    for (const auto& rGetter : getters) {
        EXPECT_THROW((shading.*rGetter.pfnGet)(eNoFilter, false), Xapel_InvalidParameterException);
    }
}

TEST_F(Facade, HandsOnItsArgumentsAndYieldsZero) {
    Shading shading(m_pDevice);
    Control::forceStatus(0, 5);
    Control::recordNodes(true);
    EXPECT_EQ(shading.ReferenceAdd("Mono10", 3, 4, reinterpret_cast<void*>(0x20), 24), 0);
    std::string strValues;
    for (const auto& rAccess : Control::nodeAccesses()) {
        strValues += rAccess.strValue + " ";
    }
    EXPECT_EQ(strValues, "Mono10 3 4 24 32 2 5 ");
    // Commands tell the operations apart, and light from dark; the file is the one named.
    Control::forceStatus(0, 0);
    const std::string strStatus = "ShadingStatus GetInt 0", strFile = "ShadingBrwFilename SetString ";
    const struct {
        std::function<void()> fnOperation;
        Texts vecAccesses;
    } rows[] = {
        {[&] { shading.ReferenceLoad(false, "d"); }, {strFile + "d", "ShadingCommand SetInt 5", strStatus}},
        {[&] { shading.ReferenceLoad(true, "l"); }, {strFile + "l", "ShadingCommand SetInt 6", strStatus}},
        {[&] { shading.ReferenceStart(false); }, {"ShadingCommand SetInt 7", strStatus}},
        {[&] { shading.ReferenceStart(true); }, {"ShadingCommand SetInt 8", strStatus}},
        {[&] { shading.ReferenceEnd("e"); }, {strFile + "e", "ShadingCommand SetInt 9", strStatus}},
        {[&] { shading.ReferenceApply(); },
         {"PixelFormat GetString Mono8", "Width GetInt 64", "Height GetInt 48", "ShadingPixelFormat SetString Mono8",
          "ShadingWidth SetInt 64", "ShadingHeight SetInt 48", "ShadingCommand SetInt 3", strStatus}},
        {[&] { shading.ReferenceClear(); }, {"ShadingCommand SetInt 4", strStatus}},
        {[&] { shading.SetEnable(true); }, {"ShadingCommand SetInt 1", strStatus}},
        {[&] { shading.SetEnable(false); }, {}},
    };
    for (const auto& rRow : rows) {
        Control::recordNodes(true);
        rRow.fnOperation();
        EXPECT_EQ(XapelTest::nodeTexts(), rRow.vecAccesses);
    }
}

/// What a shell command prints.
std::string printed(const std::string& strCommand) {
    std::string strText;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    for (int iChar = 0; pPipe != nullptr && (iChar = std::fgetc(pPipe)) != EOF;) {
        strText += static_cast<char>(iChar);
    }
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
