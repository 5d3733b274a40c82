// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Settings of a camera on their way from its nodes into a file and back.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "StreamFixture.h"
#include "toolkit/sessions/CameraSettings.h"

namespace XAPEL2 {
namespace Toolkit {

class CameraSettingsTest : public XapelTest::StreamFixture {};

TEST_F(CameraSettingsTest, NodesAreReadAndSurviveTheFile) {
    NodeMap& rNodes = *StandIn::remoteNodes(m_pDevice);
    rNodes.GetNode("Width")->SetInt(32);
    rNodes.GetNode("OffsetX")->SetInt(16);
    rNodes.GetNode("ExposureTime")->SetInt(12345);
    const CameraSettings read = readCameraSettings(rNodes);
    const CameraSettings back = cameraSettingsFromJson(toJson(read).dump());
    for (const CameraSettings& rSettings : {read, back}) {
        EXPECT_EQ(rSettings.strPixelFormat, "Mono8");
        EXPECT_TRUE(rSettings.nWidth == 32 && rSettings.nHeight == 48);
        EXPECT_EQ(rSettings.mapValues.at("OffsetX"), 16.0);
        EXPECT_EQ(rSettings.mapValues.at("ExposureTime"), 12345.0);
        EXPECT_EQ(rSettings.mapValues, read.mapValues);
        EXPECT_EQ(rSettings.strModel.substr(0, 16), "simulated camera");
        EXPECT_FALSE(rSettings.strSerial.empty());
    }
}

TEST_F(CameraSettingsTest, WhatCannotBeReadIsUnknown) {
    StandIn::Control::inject({StandIn::Control::eNodeGetString, StandIn::Control::eThrowHost, 1, true, "Gain"});
    StandIn::Control::inject({StandIn::Control::eGetNodePresent, StandIn::Control::eRefuse, 1, true, "OffsetY"});
    const CameraSettings read = readCameraSettings(*StandIn::remoteNodes(m_pDevice));
    EXPECT_TRUE(!read.has("Gain") && !read.has("OffsetY") && read.has("OffsetX"));

    for (const char* pText : {"", "[1]", "{", "{\"Gain\":\"much\",\"Width\":-3,\"Height\":1e300,\"PixelFormat\":7}"}) {
        EXPECT_TRUE(cameraSettingsFromJson(pText).empty()) << pText;
    }
    const CameraSettings switches = cameraSettingsFromJson(R"({"ReverseX":true,"ReverseY":0,"New":5})");
    EXPECT_EQ(switches.mapValues, (std::map<std::string, double>{{"ReverseX", 1.0}, {"ReverseY", 0.0}}));
    EXPECT_EQ(toJson(switches).dump(), R"({"ReverseX":true,"ReverseY":false})");
}

}  // namespace Toolkit
}  // namespace XAPEL2
