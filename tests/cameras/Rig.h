// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A simulated GigE Vision camera that sends a scene, with the stream and the shading object that correct it.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FakeCamera.h"
#include "StreamFixture.h"
#include "standin/cameras/sim/CounterRandom.h"
#include "xapel2_ext_sc.h"

namespace XapelTest {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

/// A field with shading, fixed pattern and noise, in shares of the full scale; seen through the lens or with it
/// covered.
class CScene {
public:
    explicit CScene(double dNoise, uint64_t uSeed = 1) : m_dNoise(dNoise), m_uSeed(uSeed) {}

    double dark(uint64_t i) const { return 0.04 + 0.01 * CCounterRandom(m_uSeed).uniform(i); }
    double light(uint64_t i, double dX, double dY) const {
        return (0.72 - 0.02 * static_cast<double>(m_uSeed)) * (1 - 0.5 * (dX * dX + dY * dY)) *
               (1 + 0.03 * CCounterRandom(m_uSeed + 1).uniform(i));
    }
    double noise() const { return m_dNoise; }
    uint64_t frames() const { return m_nFrame; }
    void cover(bool bCover) { m_bCovered = bCover; }
    /// Size of the sensor and offset of the images on it. Without, each image is all of a sensor.
    void place(uint64_t nSensorWidth, uint64_t nSensorHeight, uint64_t nOffsetX, uint64_t nOffsetY) {
        m_nSensorWidth = nSensorWidth;
        m_nSensorHeight = nSensorHeight;
        m_nOffsetX = nOffsetX;
        m_nOffsetY = nOffsetY;
    }

    void fill(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight, void* pImage) {
        const CCounterRandom random(CCounterRandom::deriveKey(m_uSeed + 2, ++m_nFrame));
        std::vector<uint16_t> vecSamples(nWidth * nHeight * rFormat.nChannels);
        for (uint64_t i = 0; i < vecSamples.size(); ++i) {
            const uint64_t iPixel = i / rFormat.nChannels;
            const uint64_t iX = iPixel % nWidth + m_nOffsetX, iY = iPixel / nWidth + m_nOffsetY;
            const uint64_t nColumns = m_nSensorWidth != 0 ? m_nSensorWidth.load() : nWidth;
            const uint64_t nRows = m_nSensorHeight != 0 ? m_nSensorHeight.load() : nHeight;
            const uint64_t iSite = (iY * nColumns + iX) * rFormat.nChannels + i % rFormat.nChannels;
            const double dX = static_cast<double>(iX) / static_cast<double>(nColumns) - 0.5;
            const double dY = static_cast<double>(iY) / static_cast<double>(nRows) - 0.5;
            const double dValue =
                dark(iSite) + (m_bCovered ? 0 : light(iSite, dX, dY)) + m_dNoise * random.normal(2 * i);
            vecSamples[i] =
                static_cast<uint16_t>(std::clamp(dValue * rFormat.fullScale() + 0.5, 0.0, 1.0 * rFormat.fullScale()));
        }
        packSamples(rFormat, vecSamples.data(), 0, vecSamples.size(), pImage);
    }

private:
    const double m_dNoise;
    const uint64_t m_uSeed;
    std::atomic<bool> m_bCovered{false};
    std::atomic<uint64_t> m_nFrame{0};
    std::atomic<uint64_t> m_nSensorWidth{0}, m_nSensorHeight{0}, m_nOffsetX{0}, m_nOffsetY{0};
};

constexpr int MARK = 0xA5;  // what memory holds that no packet has reached

struct Image {
    std::vector<uint8_t> vecBytes;
    bool bIncomplete = false;
};

/// A camera that sends a scene, opened, with its stream and what corrects it.
struct Rig {
    explicit Rig(double dNoise, const char* pAddress = "127.0.0.1", uint64_t uSeed = 1)
        : strId(std::string("aravis:") + pAddress), scene(dNoise, uSeed) {
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
        if (pDevice == nullptr) {
            return;
        }
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

}  // namespace XapelTest
