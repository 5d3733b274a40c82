// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pace of a camera that fills on request, and its ends.

#include "standin/cameras/source/SourceStream.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace XAPEL2 {
namespace StandIn {
namespace {

using namespace std::chrono_literals;

// Stands still while it makes one of its frames.
class CStallingSource : public IFrameSource {
public:
    std::string description() const override { return "stalling"; }
    CameraSettings defaultSettings() const override {
        CameraSettings settings;
        settings.pFormat = findPixelFormat("Mono8");
        settings.nWidth = settings.nHeight = 2;
        settings.iFrameRateHz = 25;
        return settings;
    }
    std::vector<const PixelFormat*> formats() const override { return {findPixelFormat("Mono8")}; }
    uint64_t sensorWidth() const override { return 2; }
    uint64_t sensorHeight() const override { return 2; }
    bool canResize() const override { return false; }
    uint64_t frameCount(eScene) const override { return 0; }
    std::string frameName(eScene, uint64_t) const override { return "frame"; }
    void fill(const CameraSettings&, eScene, uint64_t iFrame, void*) override {
        if (iFrame == 1) {
            std::this_thread::sleep_for(300ms);
        }
    }
};

// Always has a buffer, or never.
class CEndlessBuffers : public ICameraBuffers {
public:
    bool take(CameraBuffer& rBuffer) override {
        rBuffer = {m_aMemory, sizeof m_aMemory, this};
        return !m_bEmpty;
    }
    void missed(uint64_t nFrames) override { m_nMissed += nFrames; }

    bool m_bEmpty = false;
    uint64_t m_nMissed = 0;

private:
    uint8_t m_aMemory[4] = {};
};

TEST(SourceStream, LateCameraDoesNotCatchUpByABurst) {
    CSourceCamera camera(std::make_unique<CStallingSource>());
    CEndlessBuffers buffers;
    const auto pStream = camera.makeStream(buffers);
    EXPECT_EQ(nullptr, camera.makeStream(buffers)) << "one stream at a time";
    pStream->start();
    std::vector<uint64_t> vecTimes;
    for (int i = 0; i < 6; ++i) {
        CameraFrame frame;
        ASSERT_TRUE(pStream->next(frame));
        vecTimes.push_back(frame.info.iTimestamp);
    }
    // Seven turns went by in frame 1. From frame 2 on there are 40 ms from each to the next.
    EXPECT_GE(vecTimes[5] - vecTimes[2], 95000000U);
    EXPECT_LT(vecTimes[2] - vecTimes[1], 10000000000U);
}

TEST(SourceStream, WakeEndsItWithOrWithoutABuffer) {
    for (const bool bEmpty : {false, true}) {
        CSourceCamera camera(std::make_unique<CStallingSource>());
        CEndlessBuffers buffers;
        buffers.m_bEmpty = bEmpty;
        const auto pStream = camera.makeStream(buffers);
        pStream->start();
        pStream->wake();
        CameraFrame frame;
        EXPECT_FALSE(pStream->next(frame));
        EXPECT_EQ(0U, buffers.m_nMissed);
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
