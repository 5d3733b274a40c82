// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What a delivered buffer says about itself, and buffers that are not as they should be.

#include <algorithm>
#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/XapelBuffer.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class Buffers : public HostFixture {};

TEST_F(Buffers, InformationHasTypeSizeAndValueByTheRules) {
    node("Width").SetInt(32);
    node("OffsetX").SetInt(8);
    startStream(1, 1);
    const BufferHandle hBuffer = nextFrame();
    BufferInfoFunc pfnInfo = nullptr;
    ASSERT_EQ(GC_ERR_SUCCESS, getFuncPtr_BufferInfo(hBuffer, &pfnInfo));
    const struct {
        int32_t iInfoCmd, iType;
        uint64_t nBytes, iValue;
    } aCases[] = {{BUFFER_INFO_SIZE, INFO_DATATYPE_SIZET, 8, 32 * 48},
                  {BUFFER_INFO_SIZE_FILLED, INFO_DATATYPE_SIZET, 8, 32 * 48},
                  {BUFFER_INFO_WIDTH, INFO_DATATYPE_SIZET, 8, 32},
                  {BUFFER_INFO_HEIGHT, INFO_DATATYPE_SIZET, 8, 48},
                  {BUFFER_INFO_XOFFSET, INFO_DATATYPE_SIZET, 8, 8},
                  {BUFFER_INFO_YOFFSET, INFO_DATATYPE_SIZET, 8, 0},
                  {BUFFER_INFO_XPADDING, INFO_DATATYPE_SIZET, 8, 0},
                  {BUFFER_INFO_IMAGEOFFSET, INFO_DATATYPE_SIZET, 8, 0},
                  {BUFFER_INFO_FRAMEID, INFO_DATATYPE_UINT64, 8, 0},
                  {BUFFER_INFO_PIXELFORMAT, INFO_DATATYPE_UINT64, 8, 0x01080001},
                  {BUFFER_INFO_IS_INCOMPLETE, INFO_DATATYPE_BOOL8, 1, 0},
                  {BUFFER_INFO_IMAGEPRESENT, INFO_DATATYPE_BOOL8, 1, 1},
                  {BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8, 1, 0}};
    int32_t iType = -1;
    uint64_t nSize = 99;
    uint64_t iValue = 0;
    for (const auto& rCase : aCases) {
        SCOPED_TRACE(rCase.iInfoCmd);
        EXPECT_EQ(GC_ERR_SUCCESS, pfnInfo(rCase.iInfoCmd, &iType, nullptr, &nSize, hBuffer));
        EXPECT_EQ(rCase.iType, iType);
        EXPECT_EQ(rCase.nBytes, nSize);
        --nSize;
        EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, pfnInfo(rCase.iInfoCmd, &iType, &iValue, &nSize, hBuffer));
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, pfnInfo(rCase.iInfoCmd, &iType, &iValue, nullptr, hBuffer));
        nSize = sizeof iValue;
        iValue = 0;
        EXPECT_EQ(GC_ERR_SUCCESS, pfnInfo(rCase.iInfoCmd, nullptr, &iValue, &nSize, hBuffer));
        EXPECT_EQ(rCase.iValue, iValue);
        EXPECT_EQ(rCase.nBytes, nSize);
    }
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, pfnInfo(999, nullptr, &iValue, &nSize, hBuffer));
    std::string strFormat;
    BufferGetPixelFormatFunc pfnFormat = nullptr;
    ASSERT_EQ(GC_ERR_SUCCESS, getFuncPtr_BufferGetPixelFormat(hBuffer, &pfnFormat));
    EXPECT_EQ(GC_ERR_SUCCESS, pfnFormat(strFormat, hBuffer));
    EXPECT_EQ("Mono8", strFormat);

    queueBuffer(m_pStream, hBuffer);
    EXPECT_EQ(1U, bufferNumber(hBuffer, BUFFER_INFO_IS_QUEUED));
    flushBuffers(m_pStream);
    revokeBuffer(m_pStream, hBuffer);
    BufferInfoFunc pfnRevoked = nullptr;
    getFuncPtr_BufferInfo(hBuffer, &pfnRevoked);
    EXPECT_EQ(nullptr, pfnRevoked);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, pfnInfo(BUFFER_INFO_SIZE, nullptr, &iValue, &nSize, hBuffer));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, pfnFormat(strFormat, hBuffer));
}

TEST_F(Buffers, BadFramesSayWhatTheyHold) {
    Control::recordTraces(true);
    Control::setBufferFaults([](uint64_t iFrame) {
        return iFrame == 1 ? Control::eIncomplete : iFrame == 2 ? Control::eNoImage : Control::eGood;
    });
    Control::setFrameContent([](uint64_t iFrame, void*, std::size_t) {
        if (iFrame == 3) {
            throw std::runtime_error("torn file");
        }
    });
    const std::size_t nPayload = payloadSize(m_pStream);
    startStream(4, 4);
    struct {
        uint64_t bImage, bIncomplete, nFilled;
    } const aExpected[] = {{1, 0, nPayload}, {1, 1, nPayload / 2}, {0, 0, 0}, {1, 1, 0}};
    for (const auto& rExpected : aExpected) {
        const BufferHandle hBuffer = nextFrame();
        EXPECT_EQ(rExpected.bImage, bufferNumber(hBuffer, BUFFER_INFO_IMAGEPRESENT));
        EXPECT_EQ(rExpected.bIncomplete, bufferNumber(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(rExpected.nFilled, bufferNumber(hBuffer, BUFFER_INFO_SIZE_FILLED));
        unsigned long long nSize = 0;
        EXPECT_EQ(rExpected.bImage != 0 ? GC_ERR_SUCCESS : GC_ERR_NOT_AVAILABLE,
                  getBufferInfo(m_pStream, hBuffer, BUFFER_INFO_WIDTH, nullptr, nullptr, &nSize));
    }
    ASSERT_EQ(1U, XapelTest::traceTexts(2).size());
    EXPECT_NE(std::string::npos, XapelTest::traceTexts(2)[0].find("torn file"));
}

TEST_F(Buffers, ImageOffsetTakesEffectAtTheNextStart) {
    const std::size_t nImage = payloadSize(m_pStream);
    startStream(1);
    Control::setImageOffset(48);
    EXPECT_EQ(nImage, payloadSize(m_pStream));
    EXPECT_EQ(0U, bufferNumber(nextFrame(), BUFFER_INFO_IMAGEOFFSET));
    stopAcquisition(m_pStream);
    EXPECT_EQ(nImage + 48, payloadSize(m_pStream));

    Control::setFrameContent([](uint64_t, void* pImage, std::size_t nBytes) {
        std::fill_n(static_cast<uint8_t*>(pImage), nBytes, uint8_t{9});
    });
    std::vector<uint8_t> vecMemory(nImage + 48, 1);
    BufferHandle hShort = nullptr;
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(GC_ERR_SUCCESS, allocAndAnnounceBuffer(m_pStream, nImage + 47, &hShort));
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, queueBuffer(m_pStream, hShort));
    ASSERT_EQ(GC_ERR_SUCCESS, announceBuffer(m_pStream, vecMemory.data(), vecMemory.size(), &hBuffer));
    ASSERT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, hBuffer));
    startAcquisition(m_pStream, 1);
    EXPECT_EQ(48U, bufferNumber(nextFrame(), BUFFER_INFO_IMAGEOFFSET));
    std::vector<uint8_t> vecExpected(nImage + 48, 9);
    std::fill_n(vecExpected.begin(), 48, uint8_t{1});
    EXPECT_EQ(vecExpected, vecMemory);
}

// A buffer that was queued for a smaller image is delivered, incomplete, and nothing is written behind its end.
TEST_F(Buffers, BufferThatBecameTooSmallIsIncomplete) {
    node("Height").SetInt(10);
    std::vector<uint8_t> vecMemory(64 * 10 + 16, 0xEE);
    BufferHandle hBuffer = nullptr;
    announceBuffer(m_pStream, vecMemory.data(), 64 * 10, &hBuffer);
    queueBuffer(m_pStream, hBuffer);
    node("Height").SetInt(48);
    startAcquisition(m_pStream, 1);
    nextFrame();
    EXPECT_EQ(1U, bufferNumber(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(640U, bufferNumber(hBuffer, BUFFER_INFO_SIZE_FILLED));
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), std::vector<uint8_t>(vecMemory.end() - 16, vecMemory.end()));
}

TEST_F(Buffers, FrameIndexBringsTheSameFrameAgain) {
    node("StandInScene").SetValue("Light");
    EXPECT_EQ(0, node("StandInFrame").GetInt());
    startStream(2, 2);
    typedef std::pair<std::string, std::vector<uint8_t>> Frame;  // name and image
    const auto fnNext = [this] {
        const BufferHandle hBuffer = nextFrame();
        char aName[64] = "";
        unsigned long long nSize = sizeof aName;
        EXPECT_EQ(GC_ERR_SUCCESS,
                  getBufferInfo(m_pStream, hBuffer, BUFFER_INFO_STANDIN_FRAME_NAME, nullptr, aName, &nSize));
        EXPECT_EQ(std::string(aName).size() + 1, nSize);
        const auto* pImage = reinterpret_cast<const uint8_t*>(bufferNumber(hBuffer, BUFFER_INFO_BASE));
        const Frame frame(aName, {pImage, pImage + 64 * 48});
        queueBuffer(m_pStream, hBuffer);
        return frame;
    };
    const Frame first = fnNext(), second = fnNext();
    EXPECT_NE(first.first, second.first);
    EXPECT_NE(first.second, second.second);
    EXPECT_EQ(2, node("StandInFrame").GetInt());
    node("StandInFrame").SetInt(1);
    startAcquisition(m_pStream, 1);
    EXPECT_EQ(second, fnNext());
    node("StandInScene").SetValue("Dark");
    EXPECT_EQ(0, node("StandInFrame").GetInt());
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
