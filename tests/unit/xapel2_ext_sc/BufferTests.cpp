// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The correction of one filled buffer: queries, node writes, buffers that are refused, failures.

#include <memory>

#include "xapel2/XapelBuffer.h"
#include "xapel2/XapelExceptions.h"

#include "StreamFixture.h"
#include "VexoShading.h"

namespace {

using namespace XAPEL2::StandIn;
using XapelTest::traceTexts;

typedef std::vector<std::string> Texts;

class Buffer : public XapelTest::StreamFixture {
protected:
    void SetUp() override {
        StreamFixture::SetUp();
        m_pObject.reset(new CVexoShadingObj(m_pDevice));
        Control::recordTraces(true);
    }
    void TearDown() override {
        m_pObject.reset();
        StreamFixture::TearDown();
    }

    /// A buffer of so many bytes with a frame, as the application would get it without the library in between.
    BufferHandle deliver(size_t nBytes = 3072) {
        BufferHandle hBuffer = nullptr, hDelivered = nullptr;
        EXPECT_EQ(allocAndAnnounceBuffer(m_pStream, nBytes, &hBuffer), 0);
        EXPECT_EQ(queueBuffer(m_pStream, hBuffer), 0);
        startStream(0);
        EXPECT_EQ(getFilledBuffer(m_pStream, &hDelivered, 5000), 0);
        EXPECT_EQ(hDelivered, hBuffer);
        stopAcquisition(m_pStream);
        return hBuffer;
    }

    /// The node accesses while the object uses the buffer.
    Texts use(BufferHandle hBuffer, int iResult) {
        Control::recordTraces(true);
        Control::recordNodes(true);
        EXPECT_EQ(m_pObject->extended_useFilledBuffer(hBuffer), iResult);
        return XapelTest::nodeTexts();
    }

    Texts expected(BufferHandle hBuffer, const std::string& strBytes, size_t nOffset) {
        BufferInfoFunc pfnInfo = nullptr;
        getFuncPtr_BufferInfo(hBuffer, &pfnInfo);
        uint64_t uBase = 0, nSize = 8;
        int32_t iType = 0;
        pfnInfo(BUFFER_INFO_BASE, &iType, &uBase, &nSize, hBuffer);
        return {"ShadingPixelFormat SetString Mono8",
                "ShadingWidth SetInt 64",
                "ShadingHeight SetInt 48",
                "ShadingBufferSize SetInt " + strBytes,
                "ShadingBuffer SetInt " + std::to_string(uBase + nOffset),
                "ShadingCommand SetInt 2"};
    }

    std::unique_ptr<CVexoShadingObj> m_pObject;
};

const Texts INVALID{"Extended-API;CVexShadingObj; extended_useFilledBuffer; invalid Buffer;"};

TEST_F(Buffer, WritesTheNodesInOrderAndReadsNoStatus) {
    const struct {
        size_t nBytes, nOffset;
        const char* pWritten;  // the smaller one of image, offset included, and buffer
    } rows[] = {{3072, 0, "3072"}, {5000, 0, "3072"}, {5000, 128, "3200"}};
    for (const auto& rRow : rows) {
        Control::reset();
        Control::setImageOffset(rRow.nOffset);
        BufferHandle hBuffer = deliver(rRow.nBytes);
        EXPECT_EQ(use(hBuffer, 0), expected(hBuffer, rRow.pWritten, rRow.nOffset));
        EXPECT_TRUE(traceTexts(0).empty());
        // Both sizes count: what an answer leaves out reads as 0.
        for (const int32_t iInfoCmd : {BUFFER_INFO_SIZE_FILLED, BUFFER_INFO_SIZE}) {
            Control::reset();
            Control::setImageOffset(rRow.nOffset);
            Control::answerNothing(iInfoCmd);
            EXPECT_EQ(use(hBuffer, 0), expected(hBuffer, "0", rRow.nOffset));
        }
    }
}

TEST_F(Buffer, UnusableBuffersAreTracedAndTouchNothing) {
    EXPECT_EQ(use(nullptr, -1001), Texts{});
    EXPECT_EQ(traceTexts(2), INVALID);
    BufferHandle hBuffer = deliver();
    // No answer to the completeness query counts as complete, none to the image query as no image.
    Control::answerNothing(BUFFER_INFO_IS_INCOMPLETE);
    EXPECT_EQ(use(hBuffer, 0).size(), 6U);
    Control::answerNothing(BUFFER_INFO_IMAGEPRESENT);
    EXPECT_EQ(use(hBuffer, -1001), Texts{});
    EXPECT_EQ(traceTexts(2), INVALID);
    // Nor can it be used where the host has no function to ask.
    for (const auto eOp : {Control::eGetBufferInfoFunc, Control::eGetPixelFormatFunc}) {
        Control::reset();
        Control::inject({eOp, Control::eRefuse});
        EXPECT_EQ(use(hBuffer, -1001), Texts{});
        EXPECT_EQ(traceTexts(2), INVALID);
    }
}

TEST_F(Buffer, HostExceptionsEndWithATraceOrPass) {
    BufferHandle hBuffer = deliver();
    const std::string strPrefix = "Extended-API;CVexoShadingObj; extended_useFilledBuffer; ";
    Control::inject({Control::eNodeSetInt, Control::eThrowHost, 1, false, "ShadingWidth"});
    EXPECT_EQ(use(hBuffer, -1001).at(0), "ShadingPixelFormat SetString Mono8");
    EXPECT_EQ(traceTexts(2), Texts{strPrefix + "NodeSetInt injected"});
    Control::inject({Control::eBufferPixelFormat, Control::eThrowHost});
    EXPECT_EQ(use(hBuffer, -1001), Texts{});
    EXPECT_EQ(traceTexts(2).at(0).rfind(strPrefix, 0), 0U);
    // The third query is the first inside the handler; the first two let everything out.
    for (const uint64_t nCall : {1U, 2U}) {
        Control::reset();
        Control::inject({Control::eBufferInfo, Control::eThrowHost, nCall});
        EXPECT_THROW(m_pObject->extended_useFilledBuffer(hBuffer), XAPEL2::Exceptions::Xapel_ErrorException);
    }
    Control::reset();
    Control::inject({Control::eBufferInfo, Control::eThrowHost, 3});
    EXPECT_EQ(use(hBuffer, -1001), Texts{});
    Control::inject({Control::eNodeSetInt, Control::eThrowStd, 1, false, "ShadingCommand"});
    EXPECT_THROW(m_pObject->extended_useFilledBuffer(hBuffer), std::runtime_error);
    EXPECT_EQ(use(hBuffer, 0).size(), 6U);  // the lock is free
}

}  // namespace
