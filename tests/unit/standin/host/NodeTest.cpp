// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Node maps of cameras and image processors, and what the control header tells and forces about them.

#include <sstream>
#include <stdexcept>
#include <thread>

#include "HostFixture.h"
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

TEST_F(Nodes, ProcessorHasTheTenShadingNodesAndItsReport) {
    NodeMap& rMap = *m_processor.GetNodeList();
    for (const char* pText : {"ShadingPixelFormat", "ShadingBrwFilename"}) {
        rMap.GetNode(pText)->SetString("some text that is longer than a short one");
        EXPECT_STREQ("some text that is longer than a short one", rMap.GetNode(pText)->GetString().get());
        EXPECT_THROW(rMap.GetNode(pText)->SetInt(1), Xapel_InvalidParameterException);
        EXPECT_THROW(rMap.GetNode(pText)->GetIntMin(), Xapel_InvalidParameterException);
    }
    for (const char* pInt : {"ShadingWidth", "ShadingHeight", "ShadingBufferSize", "ShadingBuffer"}) {
        rMap.GetNode(pInt)->SetInt(0x7123456789abcdef);
        EXPECT_EQ(0x7123456789abcdef, rMap.GetNode(pInt)->GetInt());
        rMap.GetNode(pInt)->SetValue("-5");
        EXPECT_STREQ("-5", rMap.GetNode(pInt)->GetString().get());
        EXPECT_THROW(rMap.GetNode(pInt)->SetString("1"), Xapel_InvalidParameterException);
        EXPECT_THROW(rMap.GetNode(pInt)->SetValue("5 x"), Xapel_InvalidParameterException);
    }
    EXPECT_THROW(shading("ShadingStatus").SetInt(1), Xapel_AccessDeniedException);
    EXPECT_THROW(shading("StandInCorrection").SetString(""), Xapel_AccessDeniedException);
    EXPECT_STREQ("none", shading("StandInCorrection").GetString().get());
    EXPECT_THROW(rMap.GetNode("ShadingNothing"), Xapel_NotAvailableException);
    EXPECT_FALSE(rMap.GetNodePresent("ShadingNothing"));
    EXPECT_TRUE(rMap.GetNodePresent("ShadingCommand"));
    try {
        shading("ShadingWidth").SetString("1");
        FAIL() << "no exception";
    } catch (const IException& rError) {
        EXPECT_STREQ("SetString", rError.GetFunctionName().get());
        EXPECT_STREQ("Nodes.cpp", rError.GetFileName().get());
    }
}

TEST_F(Nodes, ParameterValueBelongsToTheSelectedParameter) {
    Node& rSelector = shading("ShadingParamSelector");
    Node& rValue = shading("ShadingParamValue");
    const char* const aNames[] = {"BoxFilterLight", "BoxFilterDark", "MedianFilterLight", "MedianFilterDark"};
    for (int i = 0; i < 4; ++i) {
        rSelector.SetValue(aNames[i]);
        rValue.SetInt(i + 1);
    }
    for (int i = 0; i < 4; ++i) {
        rSelector.SetValue(aNames[i]);
        EXPECT_EQ(i + 1, rValue.GetInt());
        EXPECT_STREQ(aNames[i], rSelector.GetString().get());
    }
    EXPECT_EQ(0, rValue.GetIntMin());
    EXPECT_EQ(31, rValue.GetIntMax());
    EXPECT_THROW(rValue.SetInt(32), Xapel_InvalidParameterException);
    EXPECT_THROW(rValue.SetInt(-1), Xapel_InvalidParameterException);
    EXPECT_THROW(rSelector.SetValue("BoxFilter"), Xapel_InvalidParameterException);
    EXPECT_THROW(rSelector.SetString("BoxFilterDark"), Xapel_InvalidParameterException);
    EXPECT_EQ(4, rValue.GetInt());
}

TEST_F(Nodes, StatusIsTheCommandsOwnOrForcedInFullWidth) {
    shading("ShadingCommand").SetInt(1);
    EXPECT_EQ(0, shading("ShadingStatus").GetInt());
    EXPECT_EQ(1, shading("ShadingCommand").GetInt());
    shading("ShadingCommand").SetInt(3);
    EXPECT_LT(shading("ShadingStatus").GetInt(), 0) << "applied without a reference";
    const int64_t iWide = 0x100000000;
    Control::forceStatus(1, iWide);
    Control::forceStatus(0, -iWide);
    shading("ShadingCommand").SetInt(1);
    EXPECT_EQ(iWide, shading("ShadingStatus").GetInt());
    shading("ShadingCommand").SetInt(4);
    EXPECT_EQ(-iWide, shading("ShadingStatus").GetInt());
    Control::reset();
    shading("ShadingCommand").SetInt(1);
    EXPECT_EQ(0, shading("ShadingStatus").GetInt());
}

TEST_F(Nodes, DroppedNodesAndMapsAreMissingInLaterProcessors) {
    Control::dropNode("ShadingBuffer");
    ImageProcessor lacking;
    EXPECT_FALSE(lacking.GetNodeList()->GetNodePresent("ShadingBuffer"));
    EXPECT_TRUE(lacking.GetNodeList()->GetNodePresent("ShadingBufferSize"));
    Control::dropNodeMap(true);
    EXPECT_EQ(nullptr, ImageProcessor().GetNodeList());
    EXPECT_TRUE(m_processor.GetNodeList()->GetNodePresent("ShadingBuffer"));
}

TEST_F(Nodes, ImageSettingsAreLockedWhileTheCameraRuns) {
    node("StandInScene").SetValue("Scene");
    const auto vecBuffers = queueBuffers(1);
    startAcquisition(m_pStream, 2);
    for (const char* pName : {"Width", "Height", "OffsetX", "OffsetY", "PixelFormat"}) {
        EXPECT_THROW(node(pName).SetValue(node(pName).GetString()), Xapel_AccessDeniedException) << pName;
    }
    for (const char* pName : {"ExposureTime", "Gain", "AcquisitionFrameRate", "StandInScene", "StandInFrame"}) {
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

TEST_F(Nodes, NodesOfAClosedDeviceRefuse) {
    Node& rGain = node("Gain");
    NodeMap& rMap = *remoteNodes(m_pDevice);
    closeDevice(m_pDevice);
    EXPECT_THROW(rGain.GetInt(), Xapel_ObjectInvalidException);
    EXPECT_THROW(rGain.SetInt(1), Xapel_ObjectInvalidException);
    EXPECT_THROW(rMap.GetNode("Gain"), Xapel_ObjectInvalidException);
    EXPECT_FALSE(rMap.GetNodePresent("Gain"));
}

TEST_F(Nodes, RecordShowsEveryAccessAndTheObserverComesBeforeTheEffect) {
    int64_t iSeenWidth = -1;
    shading("ShadingWidth").SetInt(11);
    Control::recordNodes(true);
    Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
        if (rAccess.strOperation == "SetInt") {
            iSeenWidth = shading("ShadingWidth").GetInt();
        }
    });
    shading("ShadingWidth").SetInt(12);
    Control::setNodeObserver(nullptr);
    EXPECT_EQ(11, iSeenWidth);
    shading("ShadingParamSelector").SetValue("BoxFilterDark");
    shading("ShadingParamValue").GetIntMax();
    EXPECT_THROW(shading("ShadingWidth").SetString("x"), IException);
    EXPECT_THROW(shading("ShadingBrwFilename").GetInt(), IException);
    const std::vector<Control::NodeAccess> vecExpected = {{"ShadingWidth", "SetInt", "12"},
                                                          {"ShadingWidth", "GetInt", "11"},
                                                          {"ShadingParamSelector", "SetValue", "BoxFilterDark"},
                                                          {"ShadingParamValue", "GetIntMax", "31"},
                                                          {"ShadingWidth", "SetString", "x"},
                                                          {"ShadingBrwFilename", "GetInt", ""}};
    EXPECT_EQ(vecExpected, Control::nodeAccesses());
}

// The processor traces once when it leaves an image as it is. While that command stands still in the trace observer,
// another thread reads and writes nodes: a lock held while an image is processed would stop it for good.
TEST_F(Nodes, NodesAnswerWhileACommandRuns) {
    std::vector<uint8_t> vecImage(64 * 48);
    shading("ShadingPixelFormat").SetString("Mono8");
    shading("ShadingWidth").SetInt(64);
    shading("ShadingHeight").SetInt(48);
    shading("ShadingBufferSize").SetInt(64 * 48);
    shading("ShadingBuffer").SetInt(static_cast<int64_t>(reinterpret_cast<std::uintptr_t>(vecImage.data())));
    Control::recordTraces(true);
    bool bReached = false;
    Control::setTraceObserver([&](const Control::TraceLine& rLine) {
        EXPECT_EQ(2, rLine.iLevel);
        bReached = true;
        auto elsewhere = std::async(std::launch::async, [&] {
            shading("ShadingParamValue").SetInt(3);
            shading("ShadingWidth").SetInt(1);
            return shading("ShadingParamValue").GetInt() + shading("ShadingStatus").GetInt();
        });
        EXPECT_EQ(std::future_status::ready, elsewhere.wait_for(std::chrono::milliseconds(DEADLINE_MS)));
        EXPECT_EQ(3, elsewhere.get());
    });
    shading("ShadingCommand").SetInt(2);
    EXPECT_TRUE(bReached);
    EXPECT_EQ(1, shading("ShadingStatus").GetInt());
}

TEST(Trace, GoesToRecordOrStandardError) {
    Control::reset();
    const int32_t aLevels[] = {0, 2};
    Control::recordTraces(true);
    Control::setTraceObserver([](const Control::TraceLine&) { throw std::runtime_error("observer"); });
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(extT(&aLevels[0], "ordinary"));
    EXPECT_NO_THROW(extT(&aLevels[1], nullptr));
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "printed though recorded";
    const auto vecTraces = Control::traces();
    ASSERT_EQ(2U, vecTraces.size());
    EXPECT_EQ("ordinary", vecTraces[0].strText);
    EXPECT_EQ(2, vecTraces[1].iLevel);
    Control::reset();
    testing::internal::CaptureStderr();
    extT(&aLevels[0], "ordinary");
    extT(nullptr, "ordinary");
    extT(&aLevels[1], "two\nlines");
    EXPECT_EQ("two lines\n", testing::internal::GetCapturedStderr());
}

TEST(Text, CopiesShareNothingThatCanChange) {
    String strFirst("first");
    String strCopy(strFirst);
    strFirst = String("second");
    strCopy = *&strCopy;
    EXPECT_STREQ("first", strCopy.get());
    EXPECT_STREQ("", String(nullptr).get());
    EXPECT_STREQ("", String().get());
    std::ostringstream out;
    out << strFirst << String();
    EXPECT_EQ("second", out.str());
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
