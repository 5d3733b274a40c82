// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Real cameras: what arrives is corrected, what is lost on the way is left alone, and a camera that vanishes ends
// nothing but its own stream.

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <thread>

#include "Rig.h"
#include "xapel2/XapelExceptions.h"

namespace XapelTest {
namespace {

bool g_bOwnNetwork = false;

class Cameras : public ::testing::Test {
protected:
    void SetUp() override { Control::recordTraces(true); }
    void TearDown() override {
        EXPECT_EQ(Control::liveHooks(), 0U);
        Control::reset();
    }
    static bool traced(const std::string& strPart) {
        const auto vecTexts = traceTexts(2);
        return std::any_of(vecTexts.begin(), vecTexts.end(),
                           [&](const std::string& rText) { return rText.find(strPart) != std::string::npos; });
    }
};

constexpr unsigned SENSOR_WIDTH = 96, SENSOR_HEIGHT = 80, RECORDED = 16;
struct Window {
    unsigned nX, nY, nWidth, nHeight;
};

// What is left of the shading in a window of the sensor, with the correction and without.
void expectResidual(Rig& rRig, const PixelFormat& rFormat, const Window& rWindow) {
    constexpr unsigned AVERAGED = 64;
    std::vector<uint16_t> vecSamples(rWindow.nWidth * rWindow.nHeight * rFormat.nChannels);
    const auto fnAverage = [&] {
        std::vector<double> vecMeans(vecSamples.size());
        rRig.run(AVERAGED, [&](const Image& rImage) {
            unpackSamples(rFormat, rImage.vecBytes.data(), 0, vecSamples.size(), vecSamples.data());
            for (std::size_t i = 0; i < vecSamples.size(); ++i) {
                vecMeans[i] += vecSamples[i] / (1.0 * AVERAGED);
            }
        });
        return vecMeans;
    };
    rRig.pShading->SetEnable(true);
    const auto vecOn = fnAverage();
    rRig.pShading->SetEnable(false);
    const auto vecOff = fnAverage();
    const bool bWhole = rWindow.nWidth == SENSOR_WIDTH;  // less of the shading lies in a window
    const double dScale = rFormat.fullScale();
    for (unsigned iClass = 0; iClass < (rFormat.isCfa() ? 4 : rFormat.nChannels); ++iClass) {
        double dCount = 0, dOn = 0, dOnSquares = 0, dOff = 0, dOffSquares = 0, dLaw = 0;
        for (std::size_t i = 0; i < vecOn.size(); ++i) {
            const std::size_t iPixel = i / rFormat.nChannels;
            const std::size_t iX = iPixel % rWindow.nWidth + rWindow.nX, iY = iPixel / rWindow.nWidth + rWindow.nY;
            if ((rFormat.isCfa() ? iY % 2 * 2 + iX % 2 : i % rFormat.nChannels) != iClass) {
                continue;
            }
            const std::size_t iSite = (iY * SENSOR_WIDTH + iX) * rFormat.nChannels + i % rFormat.nChannels;
            const double dLight = dScale * rRig.scene.light(iSite, static_cast<double>(iX) / SENSOR_WIDTH - 0.5,
                                                            static_cast<double>(iY) / SENSOR_HEIGHT - 0.5);
            dLaw += (std::pow(dScale * rRig.scene.noise(), 2) + 1.0 / 12) / (dLight * dLight);
            dCount += 1;
            dOn += vecOn[i];
            dOnSquares += vecOn[i] * vecOn[i];
            dOff += vecOff[i];
            dOffSquares += vecOff[i] * vecOff[i];
        }
        const auto fnResidual = [dCount](double dSum, double dSquares) {
            return std::sqrt(dSquares * dCount / (dSum * dSum) - 1);
        };
        const double dPredicted = std::sqrt(dLaw / dCount * (1.0 / RECORDED + 1.0 / AVERAGED) +
                                            1.0 / 12 / AVERAGED / std::pow(dOn / dCount, 2));
        EXPECT_NEAR(fnResidual(dOn, dOnSquares) / dPredicted, 1, 0.12) << "class " << iClass;
        EXPECT_GT(fnResidual(dOff, dOffSquares), (bWhole ? 10 : 5) * dPredicted) << "class " << iClass;
    }
}

// What is left of the shading is the noise of the reference and of the frames looked at, each by its number: in all of
// the sensor that the references are of, and in windows of it.
TEST_F(Cameras, ResidualIsWhatTheNoiseOfTheReferencePredicts) {
    Rig rig(0.012);
    rig.pCamera->writeRegister(CFakeCamera::SENSOR_WIDTH_REGISTER, SENSOR_WIDTH);
    rig.pCamera->writeRegister(CFakeCamera::SENSOR_HEIGHT_REGISTER, SENSOR_HEIGHT);
    for (const char* pName : {"Mono8", "Mono12p", "Mono12Packed", "Mono16", "BayerRG8", "RGB8"}) {
        const PixelFormat* pFormat = findPixelFormat(pName);
        ASSERT_NE(pFormat, nullptr);
        rig.scene.place(SENSOR_WIDTH, SENSOR_HEIGHT, 0, 0);
        rig.open(pName, SENSOR_WIDTH, SENSOR_HEIGHT, 8);
        rig.correct(RECORDED);
        const unsigned nOdd = pFormat->isCfa() ? 0 : 1;  // the camera keeps the name of the format
        for (const Window& rWindow : {Window{0, 0, SENSOR_WIDTH, SENSOR_HEIGHT}, Window{22 + nOdd, 6 + nOdd, 72, 64},
                                      Window{4, 14 + nOdd, 72, 64}}) {
            SCOPED_TRACE(std::string(pName) + " at " + std::to_string(rWindow.nX));
            rig.node("Width").SetInt(static_cast<int>(rWindow.nWidth));
            rig.node("Height").SetInt(static_cast<int>(rWindow.nHeight));
            rig.node("OffsetX").SetInt(static_cast<int>(rWindow.nX));
            rig.node("OffsetY").SetInt(static_cast<int>(rWindow.nY));
            EXPECT_EQ(rig.pCamera->readRegister(CFakeCamera::OFFSET_X_REGISTER), rWindow.nX);
            EXPECT_EQ(rig.pCamera->readRegister(CFakeCamera::OFFSET_Y_REGISTER), rWindow.nY);
            rig.scene.place(SENSOR_WIDTH, SENSOR_HEIGHT, rWindow.nX, rWindow.nY);
            expectResidual(rig, *pFormat, rWindow);
        }
        rig.node("OffsetX").SetInt(0);
        rig.node("OffsetY").SetInt(0);
        rig.close();
    }
}

TEST_F(Cameras, IncompleteFramesArriveAsThePacketsLeftThem) {
    Rig rig(0);
    rig.open("Mono8", 256, 256, 100, "200");
    const auto vecRaw = rig.frame();
    rig.correct(2);
    const auto vecCorrected = rig.frame();
    ASSERT_NE(vecCorrected, vecRaw);
    rig.pCamera->losePackets(0.005);
    uint64_t nIncomplete = 0, nComplete = 0;
    rig.run(300, [&](const Image& rImage) {
        if (!rImage.bIncomplete) {
            EXPECT_EQ(rImage.vecBytes, vecCorrected) << "complete frame " << nComplete;
            ++nComplete;
            return;
        }
        ++nIncomplete;
        for (std::size_t i = 0; i < vecRaw.size(); ++i) {
            if (rImage.vecBytes[i] != vecRaw[i] && rImage.vecBytes[i] != MARK) {
                return ADD_FAILURE() << "byte " << i << " of an incomplete frame is neither sent nor left alone";
            }
        }
    });
    EXPECT_GT(nComplete, 50U);
    EXPECT_GT(nIncomplete, 20U);
    EXPECT_EQ(rig.streamNumber(STREAM_INFO_STANDIN_NUM_INCOMPLETE), nIncomplete);
}

TEST_F(Cameras, FramesThatFindNoBufferAreCounted) {
    Rig rig(0);
    rig.open("Mono8", 256, 256, 2, "200");
    ASSERT_EQ(startAcquisition(rig.pStream), 0);
    uint64_t nLost = 0;
    // A receiver that is behind finds buffers again for what waits in its socket.
    EXPECT_TRUE(eventually([&] {
        BufferHandle ahBuffers[2] = {};
        for (BufferHandle& rBuffer : ahBuffers) {
            EXPECT_EQ(getFilledBuffer(rig.pStream, &rBuffer, DEADLINE_MS), 0);
        }
        nLost = rig.streamNumber(STREAM_INFO_NUM_UNDERRUN);
        const uint64_t nBefore = rig.scene.frames();
        EXPECT_TRUE(eventually([&] { return rig.scene.frames() > nBefore + 20; }));
        for (const BufferHandle& rBuffer : ahBuffers) {
            EXPECT_EQ(queueBuffer(rig.pStream, rBuffer), 0);
        }
        return nLost > 10;
    }));
    EXPECT_LE(nLost, rig.scene.frames()) << "frames, not packets";
}

TEST_F(Cameras, ACameraThatIsGoneEndsTheFetchAndComesBack) {
    Rig rig(0);
    for (unsigned iRound = 0; iRound < 2; ++iRound) {
        Control::recordTraces(true);
        rig.open("Mono8", 64, 64, 4);
        rig.correct(2);
        rig.frame();
        ASSERT_EQ(startAcquisition(rig.pStream), 0);
        rig.pCamera.reset();
        auto fetched = std::async(std::launch::async, [&] {
            BufferHandle hBuffer = nullptr;
            int iResult = 0;
            // Frames that came before it went.
            while (iResult == 0) {
                iResult = getFilledBuffer(rig.pStream, &hBuffer, TIMEOUT_INFINITE);
            }
            return iResult;
        });
        ASSERT_TRUE(ready(fetched, 10000)) << "round " << iRound;
        EXPECT_EQ(fetched.get(), GC_ERR_IO);
        EXPECT_TRUE(eventually([] { return traced("the camera is lost: it does not answer"); }));
        rig.close();
        if (iRound == 0) {
            EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_NotAvailableException>([&] { openDevice(rig.strId); }), "");
        }
        rig.plugIn();
    }
    rig.open("Mono8", 64, 64, 4);
    rig.frame();
}

TEST_F(Cameras, ACameraObeysOneClientAndTellsWhenItObeysNoMore) {
    for (const bool bOther : {false, true}) {
        SCOPED_TRACE(bOther);
        Rig rig(0);
        rig.open("Mono8", 64, 64, 4);
        EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_AccessDeniedException>([&] { openDevice(rig.strId); }), "");
        ASSERT_EQ(startAcquisition(rig.pStream), 0);
        rig.pCamera->dropController();
        XAPEL2::Device* const pOther = bOther ? openDevice(rig.strId) : nullptr;
        BufferHandle hBuffer = nullptr;
        int iResult = 0;
        while (iResult == 0) {
            iResult = getFilledBuffer(rig.pStream, &hBuffer, DEADLINE_MS);
        }
        const int iExpected = bOther ? GC_ERR_ACCESS_DENIED : GC_ERR_IO;
        EXPECT_EQ(iResult, iExpected);
        EXPECT_TRUE(traced(bOther ? "another program has taken control" : "no longer obeys this program"));
        EXPECT_EQ(getFilledBuffer(rig.pStream, &hBuffer, 0), iExpected) << "as long as it is so";
        if (pOther != nullptr) {
            closeDevice(pOther);
        }
    }
}

TEST_F(Cameras, TwoAtOnceAreCorrectedEachByItsOwnReference) {
    if (!g_bOwnNetwork) {
        GTEST_SKIP() << "This machine has one address 127.0.0.1 only, and permits no network of the test's own.";
    }
    Rig first(0, "127.0.0.1", 10), second(0, "127.0.0.2", 20);
    std::vector<std::string> vecIds;
    for (const DeviceInfo& rInfo : enumerateDevices()) {
        vecIds.push_back(rInfo.strId);
    }
    EXPECT_EQ(vecIds.size(), 3U) << "the simulated sensor and two cameras";
    std::vector<std::thread> vecThreads;
    std::vector<uint8_t> vecAvecGolden[2];
    for (Rig* pRig : {&first, &second}) {
        pRig->open("Mono8", 128, 96, 16, "100");
        pRig->correct(2);
        vecAvecGolden[pRig == &second] = pRig->frame();
    }
    ASSERT_NE(vecAvecGolden[0], vecAvecGolden[1]);
    for (Rig* pRig : {&first, &second}) {
        vecThreads.emplace_back([&rGolden = vecAvecGolden[pRig == &second], pRig] {
            pRig->run(100, [&](const Image& rImage) { EXPECT_TRUE(rImage.vecBytes == rGolden); });
        });
    }
    for (std::thread& rThread : vecThreads) {
        rThread.join();
    }
}

TEST_F(Cameras, TimeOutsCancelsAndStopsHoldAndSettingsAreLocked) {
    Rig rig(0);
    rig.open("Mono8", 64, 64, 4, "2");
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(startAcquisition(rig.pStream), 0);
    EXPECT_EQ(startAcquisition(rig.pStream), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(rig.streamNumber(STREAM_INFO_NUM_QUEUED), 4U);
    // After the first frame, the second may follow at once.
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(getFilledBuffer(rig.pStream, &hBuffer, DEADLINE_MS), 0);
    }
    EXPECT_EQ(getFilledBuffer(rig.pStream, &hBuffer, 20), GC_ERR_TIMEOUT);
    for (const auto& rSetting : {std::make_pair("PixelFormat", "Mono16"), std::make_pair("Width", "32")}) {
        EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_AccessDeniedException>(
                      [&] { rig.node(rSetting.first).SetValue(rSetting.second); }),
                  "");
    }
    rig.node("AcquisitionFrameRate").SetValue("0.1");
    ASSERT_EQ(getFilledBuffer(rig.pStream, &hBuffer, DEADLINE_MS), 0) << "the frame that was already on its way";
    auto fetched =
        std::async(std::launch::async, [&] { return getFilledBuffer(rig.pStream, &hBuffer, TIMEOUT_INFINITE); });
    EXPECT_TRUE(Control::waitForBlockedFetches(rig.pStream, 1, DEADLINE_MS));
    EXPECT_EQ(cancelGetFilledBuffer(rig.pStream), 0);
    ASSERT_TRUE(ready(fetched));
    EXPECT_EQ(fetched.get(), GC_ERR_ABORT);
    EXPECT_EQ(stopAcquisition(rig.pStream), 0);
    EXPECT_EQ(rig.streamNumber(STREAM_INFO_NUM_QUEUED), 1U) << "what the camera did not fill stays queued";
    rig.node("Width").SetInt(32);
}

TEST_F(Cameras, NodesAreTheCamerasFeatures) {
    Rig rig(0);
    rig.open("Mono8", 64, 64, 1);
    const struct {
        const char* pNode;
        const char* pGood;
        const char* pBad;
    } CASES[] = {
        {"PixelFormat", "Mono12p", "YUV422_8"},
        {"Width", "100", "4000"},
        {"Height", "50", "0"},
        {"OffsetX", "8", "-1"},
        {"OffsetY", "4", "99999"},
        {"BinningHorizontal", "2", "17"},
        {"BinningVertical", "2", "0"},
        {"ReverseX", "1", "2"},
        {"ExposureTime", "1234", "1e9"},
        {"Gain", "7", "11"},
        {"AcquisitionFrameRate", "12.5", "fast"},
    };
    for (const auto& rCase : CASES) {
        rig.node(rCase.pNode).SetValue(rCase.pGood);
        EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_InvalidParameterException>(
                      [&] { rig.node(rCase.pNode).SetValue(rCase.pBad); }),
                  "")
            << rCase.pNode;
        EXPECT_STREQ(rig.node(rCase.pNode).GetString().get(), rCase.pGood);
    }
    rig.node("PixelFormat").SetValue("RGB8");
    EXPECT_STREQ(rig.node("PixelFormat").GetString().get(), "RGB8") << "the camera calls it RGB8Packed";
    rig.node("PixelFormat").SetValue("Mono12p");
    EXPECT_EQ(rig.node("AcquisitionFrameRate").GetInt(), 13) << "12.5 rounded";
    EXPECT_EQ(rig.node("Width").GetIntMax(), 2048);
    EXPECT_EQ(payloadSize(rig.pStream), 100U * 50 * 12 / 8);
    EXPECT_STREQ(rig.node("DeviceModelName").GetString().get(), "Fake");
    EXPECT_FALSE(remoteNodes(rig.pDevice)->GetNodePresent("StandInScene"));
    // Refused with what would do, as a value and as what the camera was left at by another program.
    const char* const pKnown = "both know are Mono12p, Mono12Packed, BayerBG8";
    EXPECT_NE(
        thrown<XAPEL2::Exceptions::IException>([&] { rig.node("PixelFormat").SetValue("YUV422_8"); }).find(pKnown),
        std::string::npos);
    rig.pCamera->writeRegister(CFakeCamera::FORMAT_REGISTER, 0x02100032);
    EXPECT_EQ(startAcquisition(rig.pStream), GC_ERR_NOT_AVAILABLE);
    EXPECT_TRUE(traced(std::string("'YUV422_8' cannot be used, those that camera and host ") + pKnown));
}

TEST_F(Cameras, SettingsBehindTheIdentifierAreWrittenInTheirOrder) {
    Rig rig(0);
    const auto fnSettings = [&](const char* pSettings) {
        XAPEL2::Device* const pDevice = openDevice(rig.strId + pSettings);
        std::string strAll;
        for (const char* pNode : {"PixelFormat", "Width", "ExposureTime"}) {
            strAll += std::string(remoteNodes(pDevice)->GetNode(pNode)->GetString().get()) + " ";
        }
        EXPECT_EQ(closeDevice(pDevice), 0);
        return strAll;
    };
    EXPECT_EQ(fnSettings("?PixelFormat=Mono16&Width=96&ExposureTime=1500&Width=80"), "Mono16 80 1500 ");
    for (const char* pBad :
         {"?Width", "?Colour=1", "?=1", "?Width=0", "?PixelFormat=Mono7", "?Width=64&&Height=64", "?Width=64&"}) {
        EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_InvalidParameterException>([&] { openDevice(rig.strId + pBad); }),
                  "")
            << pBad;
    }
    const std::string strRefused =
        thrown<XAPEL2::Exceptions::IException>([&] { openDevice(rig.strId + "?ExposureTime=1e9"); });
    EXPECT_NE(strRefused.find("ExposureTime=1e9"), std::string::npos) << strRefused;
    EXPECT_NE(strRefused.find("expected 10 to 1"), std::string::npos) << strRefused;
    EXPECT_EQ(fnSettings(""), "Mono16 64 1500 ") << "a refused setting keeps no camera, and leaves those before it";
}

}  // namespace
}  // namespace XapelTest

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    XapelTest::g_bOwnNetwork = XapelTest::enterOwnNetwork();
    if (!XapelTest::g_bOwnNetwork) {
        std::cerr << "No network of its own: the cameras are on this machine's 127.0.0.1.\n";
    }
    return RUN_ALL_TESTS();
}
