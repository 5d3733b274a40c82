// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Node maps of cameras and image processors, and what the control header tells about them.

#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

using namespace Exceptions;

class Nodes : public HostFixture {
protected:
    Node& shading(const char* pName) { return *m_processor.GetNodeList()->GetNode(pName); }

    ImageProcessor m_processor;
};

TEST_F(Nodes, ShadingNodesTakeTheirOwnKindOfValue) {
    for (const char* pText : {SHADING_NODE_PIXEL_FORMAT, SHADING_NODE_FILE_NAME}) {
        shading(pText).SetString("some text that is longer than a short one");
        EXPECT_STREQ("some text that is longer than a short one", shading(pText).GetString().get());
        EXPECT_THROW(shading(pText).SetInt(1), Xapel_InvalidParameterException);
        EXPECT_THROW(shading(pText).GetIntMin(), Xapel_InvalidParameterException);
    }
    for (const char* pInt : {SHADING_NODE_WIDTH, SHADING_NODE_HEIGHT, SHADING_NODE_BUFFER_SIZE, SHADING_NODE_BUFFER}) {
        shading(pInt).SetInt(0x7123456789abcdef);
        EXPECT_EQ(0x7123456789abcdef, shading(pInt).GetInt());
        shading(pInt).SetValue("-5");
        EXPECT_STREQ("-5", shading(pInt).GetString().get());
        EXPECT_THROW(shading(pInt).SetString("1"), Xapel_InvalidParameterException);
        EXPECT_THROW(shading(pInt).SetValue("5 x"), Xapel_InvalidParameterException);
    }
    EXPECT_THROW(shading(SHADING_NODE_STATUS).SetInt(1), Xapel_AccessDeniedException);
    EXPECT_THROW(shading("StandInCorrection").SetString(""), Xapel_AccessDeniedException);
    EXPECT_STREQ("none", shading("StandInCorrection").GetString().get());
    EXPECT_THROW(shading("ShadingNothing"), Xapel_NotAvailableException);
    EXPECT_FALSE(m_processor.GetNodeList()->GetNodePresent("ShadingNothing"));
}

TEST_F(Nodes, ParameterValueBelongsToTheSelectedParameter) {
    Node& rSelector = shading(SHADING_NODE_PARAM_SELECTOR);
    Node& rValue = shading(SHADING_NODE_PARAM_VALUE);
    const char* const aNames[] = {SHADING_PARAM_BOX_LIGHT, SHADING_PARAM_BOX_DARK, SHADING_PARAM_MEDIAN_LIGHT,
                                  SHADING_PARAM_MEDIAN_DARK};
    for (int i = 0; i < 8; ++i) {
        rSelector.SetValue(aNames[i % 4]);
        EXPECT_STREQ(aNames[i % 4], rSelector.GetString().get());
        if (i < 4) {
            rValue.SetInt(i + 1);
        }
        EXPECT_EQ(i % 4 + 1, rValue.GetInt());
    }
    EXPECT_EQ(0, rValue.GetIntMin());
    EXPECT_EQ(31, rValue.GetIntMax());
    EXPECT_THROW(rSelector.SetValue("BoxFilter"), Xapel_InvalidParameterException);
    EXPECT_THROW(rSelector.SetString(SHADING_PARAM_BOX_DARK), Xapel_InvalidParameterException);
    EXPECT_EQ(4, rValue.GetInt());
}

TEST_F(Nodes, ImageSettingsAreLockedWhileTheCameraRuns) {
    node("StandInScene").SetValue("Scene");
    startStream(1, 2);
    for (const char* pName :
         {"Width", "Height", "PixelFormat", "BinningHorizontal", "BinningVerticalMode", "ReverseY"}) {
        EXPECT_THROW(node(pName).SetValue(node(pName).GetString()), Xapel_AccessDeniedException) << pName;
    }
    for (const char* pName :
         {"OffsetX", "OffsetY", "ExposureTime", "Gain", "AcquisitionFrameRate", "StandInScene", "StandInFrame"}) {
        EXPECT_NO_THROW(node(pName).SetValue(node(pName).GetString())) << pName;
    }
    DataStream* pSecond = Control::addFirstStream(m_pDevice);
    pSecond->Open();
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, startAcquisition(pSecond)) << "one acquisition for each camera";
    stopAcquisition(m_pStream);
    node("Width").SetInt(32);
    node("OffsetX").SetInt(node("OffsetX").GetIntMax());
    EXPECT_EQ(32, node("Width").GetIntMax() - node("OffsetX").GetIntMin());
    EXPECT_THROW(node("Width").SetInt(33), Xapel_InvalidParameterException) << "not on the sensor any more";
    EXPECT_THROW(node("PixelFormat").SetValue("Mono9"), Xapel_InvalidParameterException);
    EXPECT_THROW(node("StandInScene").SetValue("Light "), Xapel_InvalidParameterException);
    EXPECT_THROW(node("StandInFrameCount").SetInt(1), Xapel_AccessDeniedException);
    EXPECT_EQ(&node("Gain"), m_pDevice->GetRemoteNode("Gain"));
    EXPECT_THROW(m_pDevice->GetRemoteNode("Nothing"), Xapel_NotAvailableException);
}

TEST_F(Nodes, BinningTakesTheWholeSensorAndLimitsTheRegion) {
    const long long nWidth = node("Width").GetIntMax();
    node("Width").SetInt(8);
    node("OffsetX").SetInt(5);
    node("BinningHorizontal").SetInt(1);
    EXPECT_EQ(5, node("OffsetX").GetInt()) << "the same binning changes nothing";
    for (const int nBinning : {2, 4, 1}) {
        node("BinningHorizontal").SetInt(nBinning);
        EXPECT_EQ(nWidth / nBinning, node("Width").GetInt());
        EXPECT_EQ(0, node("OffsetX").GetInt());
        EXPECT_THROW(node("Width").SetInt(nWidth / nBinning + 1), Xapel_InvalidParameterException);
    }
    for (const auto& [pName, iValue] : {std::pair<const char*, int>{"BinningVertical", 3},
                                        {"BinningVertical", 0},
                                        {"BinningVertical", 8},
                                        {"ReverseX", 2},
                                        {"ReverseX", -1}}) {
        EXPECT_THROW(node(pName).SetInt(iValue), Xapel_InvalidParameterException) << pName << iValue;
    }
    EXPECT_EQ(1, node("BinningVertical").GetInt());
    EXPECT_STREQ("simulated camera, seed",
                 std::string(node("DeviceModelName").GetString().get()).substr(0, 22).c_str());
}

// One sensor has one filter array: the format goes with the pixel of it that the image begins with.
TEST_F(Nodes, FormatFollowsTheFilterArrayOfTheSensor) {
    const struct {
        const char* pNode;
        int iValue;
        const char* pFormat;
    } STEPS[] = {{"Width", 32, "BayerRG12p"},   {"OffsetX", 1, "BayerGR12p"},           {"OffsetY", 1, "BayerBG12p"},
                 {"OffsetX", 2, "BayerGB12p"},  {"ReverseX", 1, "BayerBG12p"},          {"OffsetX", 3, "BayerGB12p"},
                 {"ReverseX", 0, "BayerBG12p"}, {"BinningHorizontal", 2, "BayerGB12p"}, {"OffsetY", 0, "BayerRG12p"}};
    node("PixelFormat").SetValue("BayerRG12p");
    node("Height").SetInt(16);
    for (const auto& rStep : STEPS) {
        node(rStep.pNode).SetInt(rStep.iValue);
        EXPECT_STREQ(rStep.pFormat, node("PixelFormat").GetString().get()) << rStep.pNode << rStep.iValue;
    }
    EXPECT_EQ(64, node("SensorWidth").GetInt());
    EXPECT_THROW(node("SensorWidth").SetInt(64), Xapel_AccessDeniedException);
    node("BinningHorizontalMode").SetValue("Sum");
    EXPECT_STREQ("Sum", node("BinningHorizontalMode").GetString().get());
    EXPECT_THROW(node("BinningHorizontalMode").SetValue("Mean"), Xapel_InvalidParameterException);
}

// The processor traces once when it leaves an image as it is. While that command stands still in the trace observer,
// another thread reads and writes nodes: a lock held while an image is processed would stop it for good.
TEST_F(Nodes, NodesAnswerWhileACommandRuns) {
    std::vector<uint8_t> vecImage(64 * 48);
    shading(SHADING_NODE_PIXEL_FORMAT).SetString("Mono8");
    shading(SHADING_NODE_WIDTH).SetInt(64);
    shading(SHADING_NODE_HEIGHT).SetInt(48);
    shading(SHADING_NODE_BUFFER_SIZE).SetInt(64 * 48);
    shading(SHADING_NODE_BUFFER).SetInt(static_cast<int64_t>(reinterpret_cast<std::uintptr_t>(vecImage.data())));
    Control::recordTraces(true);
    bool bReached = false;
    Control::setTraceObserver([&](const Control::TraceLine& rLine) {
        EXPECT_EQ(2, rLine.iLevel);
        bReached = true;
        auto elsewhere = std::async(std::launch::async, [&] {
            shading(SHADING_NODE_PARAM_VALUE).SetInt(3);
            shading(SHADING_NODE_WIDTH).SetInt(1);
            return shading(SHADING_NODE_PARAM_VALUE).GetInt() + shading(SHADING_NODE_STATUS).GetInt();
        });
        EXPECT_TRUE(XapelTest::ready(elsewhere));
        EXPECT_EQ(3, elsewhere.get());
    });
    shading(SHADING_NODE_COMMAND).SetInt(2);
    EXPECT_TRUE(bReached);
    EXPECT_EQ(1, shading(SHADING_NODE_STATUS).GetInt());
}

TEST(Trace, GoesToRecordOrStandardError) {
    Control::reset();
    const int32_t aLevels[] = {0, 2};
    Control::recordTraces(true);
    Control::setTraceObserver([](const Control::TraceLine&) { throw std::runtime_error("observer"); });
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(extT(&aLevels[0], "ordinary"));
    EXPECT_NO_THROW(extT(&aLevels[1], nullptr));
    EXPECT_EQ(2U, Control::traces().size());
    EXPECT_EQ(std::vector<std::string>{"ordinary"}, XapelTest::traceTexts(0));
    Control::reset();
    extT(&aLevels[0], "ordinary");
    extT(nullptr, "ordinary");
    extT(&aLevels[1], "two\nlines");
    EXPECT_EQ("two lines\n", testing::internal::GetCapturedStderr()) << "level 2 alone, where it is not recorded";
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
