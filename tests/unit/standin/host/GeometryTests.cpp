// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames are corrected where they were taken, whatever the camera is set to by then.

#include <cstdlib>
#include <cstring>
#include <random>

#include "HostFixture.h"
#include "TemporaryFolder.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class Geometry : public HostFixture {
protected:
    static constexpr std::size_t WIDTH = 16, HEIGHT = 12, SENSOR_WIDTH = 64, SENSOR_HEIGHT = 48;

    Node& processor(const char* pName) { return *m_processor.GetNodeList()->GetNode(pName); }
    int64_t command(int64_t iCommand) {
        processor(SHADING_NODE_COMMAND).SetInt(iCommand);
        return processor(SHADING_NODE_STATUS).GetInt();
    }
    int64_t process(void* pImage, std::size_t nWidth, std::size_t nHeight) {
        processor(SHADING_NODE_PIXEL_FORMAT).SetString("Mono8");
        processor(SHADING_NODE_WIDTH).SetInt(static_cast<long long>(nWidth));
        processor(SHADING_NODE_HEIGHT).SetInt(static_cast<long long>(nHeight));
        processor(SHADING_NODE_BUFFER_SIZE).SetInt(static_cast<long long>(nWidth * nHeight));
        processor(SHADING_NODE_BUFFER).SetInt(reinterpret_cast<intptr_t>(pImage));
        return command(eCommandProcess);
    }
    /// Loads a light reference of all of the sensor, in which each pixel is another one.
    void load() {
        std::mt19937 random(3);
        ReferenceImage reference;
        reference.eKind = eReferenceLight;
        reference.layout = {findPixelFormat("Mono8"), SENSOR_WIDTH, SENSOR_HEIGHT};
        reference.nImages = 1;
        reference.geometry = {{SENSOR_WIDTH, 0, 1, eBinningAverage, false},
                              {SENSOR_HEIGHT, 0, 1, eBinningAverage, false}};
        for (std::size_t i = 0; i < SENSOR_WIDTH * SENSOR_HEIGHT; ++i) {
            reference.vecSamples.push_back(static_cast<float>(60 + random() % 120));
        }
        writeReferenceFile(m_folder / "light", reference);
        processor(SHADING_NODE_FILE_NAME).SetString((m_folder / "light").c_str());
        ASSERT_EQ(0, command(eCommandLoadLight));
    }
    int64_t apply(int iWidth, int iHeight) {
        processor(SHADING_NODE_PIXEL_FORMAT).SetString("Mono8");
        processor(SHADING_NODE_WIDTH).SetInt(iWidth);
        processor(SHADING_NODE_HEIGHT).SetInt(iHeight);
        return command(eCommandApply);
    }
    void* imageOf(BufferHandle hBuffer) { return reinterpret_cast<void*>(bufferNumber(hBuffer, BUFFER_INFO_BASE)); }

    XAPEL2::Test::CTemporaryFolder m_folder;
    ImageProcessor m_processor;
};

struct Wrong {
    uint64_t nByBuffer = 0, nByNodes = 0;
};

// Frames of the regions before wait in the queue when the region moves. Beside it, what the nodes say at the time of
// processing: that would be wrong.
TEST_F(Geometry, MovingRegionsAreCorrectedWhereTheyWereTaken) {
    load();
    ASSERT_EQ(0, apply(SENSOR_WIDTH, SENSOR_HEIGHT));
    std::vector<uint8_t> vecFull(SENSOR_WIDTH * SENSOR_HEIGHT, 100);
    ASSERT_EQ(0, process(vecFull.data(), SENSOR_WIDTH, SENSOR_HEIGHT)) << "of that size nobody needs to know the place";
    node("Width").SetInt(WIDTH);
    node("Height").SetInt(HEIGHT);
    Control::setFrameContent([](uint64_t, void* pImage, std::size_t nBytes) { std::memset(pImage, 100, nBytes); });
    startStream(6);
    std::mt19937 random(4);
    Wrong wrong;
    constexpr uint64_t FRAMES = 10000;
    for (uint64_t iFrame = 0; iFrame < FRAMES; ++iFrame) {
        if (iFrame % 7 == 0) {
            node("OffsetX").SetInt(random() % (SENSOR_WIDTH - WIDTH + 1));
            node("OffsetY").SetInt(random() % (SENSOR_HEIGHT - HEIGHT + 1));
        }
        const BufferHandle hBuffer = nextFrame();
        ASSERT_EQ(iFrame, bufferNumber(hBuffer, BUFFER_INFO_FRAMEID)) << "a frame is lost";
        auto* const pImage = static_cast<uint8_t*>(imageOf(hBuffer));
        ASSERT_EQ(0, process(pImage, WIDTH, HEIGHT));
        const auto fnWrong = [&](uint64_t iX, uint64_t iY) {
            uint64_t nWrong = 0;
            for (std::size_t i = 0; i < WIDTH * HEIGHT; ++i) {
                const std::size_t iFull = (iY + i / WIDTH) * SENSOR_WIDTH + iX + i % WIDTH;
                nWrong += std::abs(int{pImage[i]} - int{vecFull[iFull]}) > 1;
            }
            return nWrong;
        };
        wrong.nByBuffer +=
            fnWrong(bufferNumber(hBuffer, BUFFER_INFO_XOFFSET), bufferNumber(hBuffer, BUFFER_INFO_YOFFSET));
        wrong.nByNodes +=
            fnWrong(static_cast<uint64_t>(node("OffsetX").GetInt()), static_cast<uint64_t>(node("OffsetY").GetInt()));
        ASSERT_EQ(0, queueBuffer(m_pStream, hBuffer));
    }
    EXPECT_EQ(0U, wrong.nByBuffer);
    EXPECT_GT(wrong.nByNodes, FRAMES) << "no frame waited while the region moved: this test shows nothing";
    EXPECT_EQ(0U, streamNumber(STREAM_INFO_NUM_UNDERRUN));
    stopAcquisition(m_pStream);
}

// An address is known as long as a buffer of the application holds the image, and no longer.
TEST_F(Geometry, ImagesOfNoBufferHaveNoPlace) {
    load();
    node("Width").SetInt(WIDTH);
    node("OffsetX").SetInt(5);
    m_pDevice->GetRemoteNode("Height");  // as the library does before it applies
    ASSERT_EQ(0, apply(WIDTH, SENSOR_HEIGHT));
    EXPECT_NE(std::string(processor("StandInCorrection").GetString().get()).find("window 16 x 48 at 5, 0"),
              std::string::npos)
        << "the present place is prepared";
    startStream(1, 1);
    const BufferHandle hBuffer = nextFrame();
    std::vector<uint8_t> vecCopy(WIDTH * SENSOR_HEIGHT, 100);
    std::vector<uint8_t> vecSame(vecCopy.size() + 1, 100);
    EXPECT_EQ(1, process(vecCopy.data(), WIDTH, SENSOR_HEIGHT)) << "left untouched: nobody knows where it lies";
    EXPECT_EQ(0, process(imageOf(hBuffer), WIDTH, SENSOR_HEIGHT));
    ASSERT_EQ(0, queueBuffer(m_pStream, hBuffer));
    EXPECT_EQ(1, process(imageOf(hBuffer), WIDTH, SENSOR_HEIGHT)) << "the camera's by now";
    EXPECT_EQ(0, apply(WIDTH - 1, SENSOR_HEIGHT));
    EXPECT_NE(0, apply(SENSOR_WIDTH + 1, SENSOR_HEIGHT));
}

// The same memory announced twice is that of two frames.
TEST_F(Geometry, MemoryOfTwoBuffersHasNoPlace) {
    load();
    node("Width").SetInt(WIDTH);
    ASSERT_EQ(0, apply(SENSOR_WIDTH, SENSOR_HEIGHT));
    std::vector<uint8_t> vecMemory(WIDTH * SENSOR_HEIGHT, 100);
    BufferHandle ahBuffers[2] = {};
    for (BufferHandle& rhBuffer : ahBuffers) {
        ASSERT_EQ(0, announceBuffer(m_pStream, vecMemory.data(), vecMemory.size(), &rhBuffer));
        ASSERT_EQ(0, queueBuffer(m_pStream, rhBuffer));
    }
    ASSERT_EQ(0, startAcquisition(m_pStream, 2));
    const BufferHandle hFirst = nextFrame();
    EXPECT_EQ(0, process(vecMemory.data(), WIDTH, SENSOR_HEIGHT)) << "the other one is the camera's";
    EXPECT_NE(hFirst, nextFrame());
    EXPECT_EQ(1, process(vecMemory.data(), WIDTH, SENSOR_HEIGHT));
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
