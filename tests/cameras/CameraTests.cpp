// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Real cameras: what arrives is corrected, what is lost on the way is left alone, and a camera that vanishes ends
// nothing but its own stream.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <thread>

#include "CounterRandom.h"
#include "FakeCamera.h"
#include "StreamFixture.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_ext_sc.h"

namespace XapelTest {
namespace {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

/// A field with shading, fixed pattern and noise, in shares of the full scale; seen through the lens or with it
/// covered.
class CScene {
public:
    explicit CScene(double fNoise, uint64_t uSeed = 1) : m_fNoise(fNoise), m_uSeed(uSeed) {}

    double dark(uint64_t i) const { return 0.04 + 0.01 * CCounterRandom(m_uSeed).uniform(i); }
    double light(uint64_t i, double fX, double fY) const {
        return (0.72 - 0.02 * static_cast<double>(m_uSeed)) * (1 - 0.5 * (fX * fX + fY * fY)) *
               (1 + 0.03 * CCounterRandom(m_uSeed + 1).uniform(i));
    }
    double noise() const { return m_fNoise; }
    void cover(bool bCover) { m_bCovered = bCover; }

    void fill(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight, void* pImage) {
        const CCounterRandom random(CCounterRandom::deriveKey(m_uSeed + 2, ++m_nFrame));
        std::vector<uint16_t> vecSamples(nWidth * nHeight * rFormat.nChannels);
        for (uint64_t i = 0; i < vecSamples.size(); ++i) {
            const uint64_t iPixel = i / rFormat.nChannels;
            const double fX = static_cast<double>(iPixel % nWidth) / static_cast<double>(nWidth) - 0.5;
            const double fY = static_cast<double>(iPixel / nWidth) / static_cast<double>(nHeight) - 0.5;
            const double fValue = dark(i) + (m_bCovered ? 0 : light(i, fX, fY)) + m_fNoise * random.normal(2 * i);
            vecSamples[i] =
                static_cast<uint16_t>(std::clamp(fValue * rFormat.fullScale() + 0.5, 0.0, 1.0 * rFormat.fullScale()));
        }
        packSamples(rFormat, vecSamples.data(), 0, vecSamples.size(), pImage);
    }

private:
    const double m_fNoise;
    const uint64_t m_uSeed;
    std::atomic<bool> m_bCovered{false};
    std::atomic<uint64_t> m_nFrame{0};
};

bool g_bOwnNetwork = false;

constexpr int MARK = 0xA5;  // what memory holds that no packet has reached

struct Image {
    std::vector<uint8_t> vecBytes;
    bool bIncomplete = false;
};

/// A camera that sends a scene, opened, with its stream and what corrects it.
struct Rig {
    explicit Rig(double fNoise, const char* pAddress = "127.0.0.1", uint64_t uSeed = 1)
        : strId(std::string("aravis:") + pAddress), scene(fNoise, uSeed) {
        plugIn();
    }
    ~Rig() { close(); }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    void plugIn() {
        pCamera.reset();
        pCamera = std::make_unique<CFakeCamera>([this](const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight,
                                                       void* pImage) { scene.fill(rFormat, nWidth, nHeight, pImage); },
                                                strId.c_str() + 7, ("GV" + strId.substr(strId.size() - 1)).c_str());
    }
    XAPEL2::Node& node(const char* pName) const { return *remoteNodes(pDevice)->GetNode(pName); }

    /// Opens all with nBuffers buffers that the camera finds queued.
    void open(const char* pFormat, int iWidth, int iHeight, unsigned nBuffers, const char* pRate = "400") {
        pDevice = openDevice(strId);
        pStream = firstDataStream(pDevice);
        node("PixelFormat").SetValue(pFormat);
        node("Width").SetInt(iWidth);
        node("Height").SetInt(iHeight);
        node("AcquisitionFrameRate").SetValue(pRate);
        ASSERT_EQ(openDataStream(pDevice, pStream), 0);
        pShading = std::make_unique<Shading>(pDevice);
        vecMemory.assign(nBuffers, std::vector<uint8_t>(payloadSize(pStream), MARK));
        for (auto& rMemory : vecMemory) {
            BufferHandle hBuffer = nullptr;
            ASSERT_EQ(announceBuffer(pStream, rMemory.data(), rMemory.size(), &hBuffer), 0);
            ASSERT_EQ(queueBuffer(pStream, hBuffer), 0);
        }
    }
    /// Each step must succeed, whatever became of the camera.
    void close() {
        if (pDevice == nullptr)
            return;
        pShading.reset();
        EXPECT_EQ(closeDataStream(pDevice, pStream), 0);
        EXPECT_EQ(closeDevice(std::exchange(pDevice, nullptr)), 0);
    }

    template <typename T>
    T info(BufferHandle hBuffer, int iInfoCmd) const {
        T value{};
        unsigned long long nSize = sizeof value;
        EXPECT_EQ(getBufferInfo(pStream, hBuffer, iInfoCmd, nullptr, &value, &nSize), 0) << iInfoCmd;
        return value;
    }
    uint64_t streamNumber(int iInfoCmd) const {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof nValue;
        EXPECT_EQ(getStreamInfo(pStream, iInfoCmd, nullptr, &nValue, &nSize), 0);
        return nValue;
    }

    /// Has the camera send nFrames frames and looks at each.
    template <typename Look>
    void run(unsigned nFrames, Look fnLook) {
        ASSERT_EQ(startAcquisition(pStream, nFrames), 0);
        for (unsigned i = 0; i < nFrames; ++i) {
            BufferHandle hBuffer = nullptr;
            ASSERT_EQ(getFilledBuffer(pStream, &hBuffer, DEADLINE_MS), 0) << "frame " << i;
            auto* pBytes = static_cast<uint8_t*>(info<void*>(hBuffer, BUFFER_INFO_BASE));
            const std::size_t nBytes = info<std::size_t>(hBuffer, BUFFER_INFO_SIZE);
            fnLook(Image{{pBytes, pBytes + nBytes}, info<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE)});
            std::memset(pBytes, MARK, nBytes);
            ASSERT_EQ(queueBuffer(pStream, hBuffer), 0);
        }
    }
    std::vector<uint8_t> frame() {
        std::vector<uint8_t> vecBytes;
        run(1, [&](const Image& rImage) { vecBytes = rImage.vecBytes; });
        return vecBytes;
    }
    void record(bool bLight, unsigned nFrames) {
        scene.cover(!bLight);
        pShading->ReferenceStart(bLight);
        pShading->SetEnable(true);
        run(nFrames, [](const Image& rImage) { EXPECT_FALSE(rImage.bIncomplete); });
        pShading->ReferenceEnd((folder / (bLight ? "light.tif" : "dark.tif")).c_str());
        scene.cover(false);
    }
    void correct(unsigned nFrames) {
        record(false, nFrames);
        record(true, nFrames);
        pShading->ReferenceApply();
        pShading->SetEnable(true);
    }

    const XAPEL2::Test::CTemporaryFolder folder;
    const std::string strId;
    CScene scene;
    std::unique_ptr<CFakeCamera> pCamera;
    XAPEL2::Device* pDevice = nullptr;
    XAPEL2::DataStream* pStream = nullptr;
    std::vector<std::vector<uint8_t>> vecMemory;
    std::unique_ptr<Shading> pShading;
};

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

// What is left of the shading is the noise of the reference and of the frames looked at, each by its number.
TEST_F(Cameras, ResidualIsWhatTheNoiseOfTheReferencePredicts) {
    constexpr unsigned WIDTH = 64, HEIGHT = 48, RECORDED = 16, AVERAGED = 64;
    Rig rig(0.012);
    for (const char* pName : {"Mono8", "Mono12p", "Mono12Packed", "Mono16", "BayerRG8", "RGB8"}) {
        SCOPED_TRACE(pName);
        const PixelFormat* pFormat = findPixelFormat(pName);
        ASSERT_NE(pFormat, nullptr);
        rig.open(pName, WIDTH, HEIGHT, 8);
        std::vector<uint16_t> vecSamples(WIDTH * HEIGHT * pFormat->nChannels);
        const auto fnAverage = [&] {
            std::vector<double> vecMeans(vecSamples.size());
            rig.run(AVERAGED, [&](const Image& rImage) {
                unpackSamples(*pFormat, rImage.vecBytes.data(), 0, vecSamples.size(), vecSamples.data());
                for (std::size_t i = 0; i < vecSamples.size(); ++i) vecMeans[i] += vecSamples[i] / (1.0 * AVERAGED);
            });
            return vecMeans;
        };
        rig.correct(RECORDED);
        const auto vecOn = fnAverage();
        rig.pShading->SetEnable(false);
        const auto vecOff = fnAverage();
        const double fScale = pFormat->fullScale();
        for (unsigned iClass = 0; iClass < (pFormat->isCfa() ? 4 : pFormat->nChannels); ++iClass) {
            double fCount = 0, fOn = 0, fOnSquares = 0, fOff = 0, fOffSquares = 0, fLaw = 0;
            for (std::size_t i = 0; i < vecOn.size(); ++i) {
                const std::size_t iPixel = i / pFormat->nChannels, iX = iPixel % WIDTH, iY = iPixel / WIDTH;
                if ((pFormat->isCfa() ? iY % 2 * 2 + iX % 2 : i % pFormat->nChannels) != iClass)
                    continue;
                const double fLight = fScale * rig.scene.light(i, static_cast<double>(iX) / WIDTH - 0.5,
                                                               static_cast<double>(iY) / HEIGHT - 0.5);
                fLaw += (std::pow(fScale * rig.scene.noise(), 2) + 1.0 / 12) / (fLight * fLight);
                fCount += 1;
                fOn += vecOn[i];
                fOnSquares += vecOn[i] * vecOn[i];
                fOff += vecOff[i];
                fOffSquares += vecOff[i] * vecOff[i];
            }
            const auto fnResidual = [fCount](double fSum, double fSquares) {
                return std::sqrt(fSquares * fCount / (fSum * fSum) - 1);
            };
            const double fPredicted = std::sqrt(fLaw / fCount * (1.0 / RECORDED + 1.0 / AVERAGED) +
                                                1.0 / 12 / AVERAGED / std::pow(fOn / fCount, 2));
            EXPECT_NEAR(fnResidual(fOn, fOnSquares) / fPredicted, 1, 0.12) << "class " << iClass;
            EXPECT_GT(fnResidual(fOff, fOffSquares), 10 * fPredicted) << "class " << iClass;
        }
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
            if (rImage.vecBytes[i] != vecRaw[i] && rImage.vecBytes[i] != MARK)
                return ADD_FAILURE() << "byte " << i << " of an incomplete frame is neither sent nor left alone";
        }
    });
    EXPECT_GT(nComplete, 50U);
    EXPECT_GT(nIncomplete, 20U);
    EXPECT_EQ(rig.streamNumber(STREAM_INFO_STANDIN_NUM_INCOMPLETE), nIncomplete);
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
            while (iResult == 0) iResult = getFilledBuffer(rig.pStream, &hBuffer, TIMEOUT_INFINITE);
            return iResult;
        });
        ASSERT_TRUE(ready(fetched, 10000)) << "round " << iRound;
        EXPECT_EQ(fetched.get(), GC_ERR_IO);
        EXPECT_TRUE(eventually([] { return traced("the camera is lost: it does not answer"); }));
        rig.close();
        EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_NotAvailableException>([&] { openDevice(rig.strId); }), "");
        rig.plugIn();
    }
    rig.open("Mono8", 64, 64, 4);
    rig.frame();
}

TEST_F(Cameras, ACameraObeysOneClientAndTellsWhenItIsAnother) {
    Rig rig(0);
    rig.open("Mono8", 64, 64, 4);
    EXPECT_NE(thrown<XAPEL2::Exceptions::Xapel_AccessDeniedException>([&] { openDevice(rig.strId); }), "");
    ASSERT_EQ(startAcquisition(rig.pStream), 0);
    rig.pCamera->dropController();
    BufferHandle hBuffer = nullptr;
    int iResult = 0;
    while (iResult == 0) iResult = getFilledBuffer(rig.pStream, &hBuffer, DEADLINE_MS);
    EXPECT_EQ(iResult, GC_ERR_ACCESS_DENIED);
    EXPECT_TRUE(eventually([] { return traced("another program has taken control"); }));
    EXPECT_EQ(getFilledBuffer(rig.pStream, &hBuffer, 0), GC_ERR_ACCESS_DENIED) << "as long as it is so";
}

TEST_F(Cameras, TwoAtOnceAreCorrectedEachByItsOwnReference) {
    if (!g_bOwnNetwork)
        GTEST_SKIP() << "This machine has one address 127.0.0.1 only, and permits no network of the test's own.";
    Rig first(0, "127.0.0.1", 10), second(0, "127.0.0.2", 20);
    std::vector<std::string> vecIds;
    for (const DeviceInfo& rInfo : enumerateDevices()) vecIds.push_back(rInfo.strId);
    EXPECT_EQ(vecIds.size(), 3U) << "the simulated sensor and two cameras";
    std::vector<std::thread> vecThreads;
    std::vector<uint8_t> avecGolden[2];
    for (Rig* pRig : {&first, &second}) {
        pRig->open("Mono8", 128, 96, 16, "100");
        pRig->correct(2);
        avecGolden[pRig == &second] = pRig->frame();
    }
    ASSERT_NE(avecGolden[0], avecGolden[1]);
    for (Rig* pRig : {&first, &second}) {
        vecThreads.emplace_back([&rGolden = avecGolden[pRig == &second], pRig] {
            pRig->run(100, [&](const Image& rImage) { EXPECT_TRUE(rImage.vecBytes == rGolden); });
        });
    }
    for (std::thread& rThread : vecThreads) rThread.join();
}

TEST_F(Cameras, TimeOutsCancelsAndStopsHoldAndSettingsAreLocked) {
    Rig rig(0);
    rig.open("Mono8", 64, 64, 3, "2");
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(startAcquisition(rig.pStream), 0);
    EXPECT_EQ(startAcquisition(rig.pStream), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(rig.streamNumber(STREAM_INFO_NUM_QUEUED), 3U);
    ASSERT_EQ(getFilledBuffer(rig.pStream, &hBuffer, DEADLINE_MS), 0);
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

}  // namespace
}  // namespace XapelTest

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    XapelTest::g_bOwnNetwork = XapelTest::enterOwnNetwork();
    if (!XapelTest::g_bOwnNetwork)
        std::cerr << "No network of its own: the cameras are on this machine's 127.0.0.1.\n";
    return RUN_ALL_TESTS();
}
