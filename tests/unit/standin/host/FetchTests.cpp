// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Queues, time-outs, cancels and closing.

#include "HostFixture.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

class Fetch : public HostFixture {};

TEST_F(Fetch, FramesComeInTheOrderOfTheQueueAndAreCounted) {
    const auto vecBuffers = queueBuffers(3);
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, queueBuffer(m_pStream, vecBuffers[0]));
    ASSERT_EQ(GC_ERR_SUCCESS, startAcquisition(m_pStream, 4));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, startAcquisition(m_pStream));
    for (uint64_t i = 0; i < 3; ++i) {
        ASSERT_EQ(vecBuffers[i], nextFrame());
        EXPECT_EQ(i, bufferNumber(vecBuffers[i], BUFFER_INFO_FRAMEID));
    }
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_IS_GRABBING));
    queueBuffer(m_pStream, vecBuffers[0]);
    queueBuffer(m_pStream, vecBuffers[1]);
    EXPECT_EQ(vecBuffers[0], nextFrame());
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(30)) << "more frames than asked for";
    const std::pair<int, uint64_t> aCounts[] = {{STREAM_INFO_IS_GRABBING, 0},
                                                {STREAM_INFO_NUM_DELIVERED, 4},
                                                {STREAM_INFO_NUM_STARTED, 4},
                                                {STREAM_INFO_NUM_ANNOUNCED, 3},
                                                {STREAM_INFO_NUM_QUEUED, 1}};
    for (const auto& [iInfoCmd, nCount] : aCounts) {
        EXPECT_EQ(nCount, streamNumber(iInfoCmd)) << iInfoCmd;
    }
    EXPECT_EQ(GC_ERR_SUCCESS, startAcquisition(m_pStream, 1)) << "a finished acquisition needs no stop";
    EXPECT_EQ(GC_ERR_SUCCESS, fetch());
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_NUM_DELIVERED)) << "counted from the start on";
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_NUM_STARTED));
}

TEST_F(Fetch, TimeOutsExpireAndZeroPolls) {
    const auto tBegin = std::chrono::steady_clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(40));
    EXPECT_GE(std::chrono::steady_clock::now() - tBegin, std::chrono::milliseconds(40));
}

// In nanoseconds they exceed the clock, and would have expired long ago, or a moment from now.
TEST_F(Fetch, LongestFiniteTimeOutsDoNotExpire) {
    for (const unsigned long long iTimeoutMs :
         {TIMEOUT_INFINITE - 1, TIMEOUT_INFINITE / 2, TIMEOUT_INFINITE / 1000000}) {
        auto longest = std::async(std::launch::async, [this, iTimeoutMs] { return fetch(iTimeoutMs); });
        EXPECT_FALSE(XapelTest::ready(longest, 50)) << iTimeoutMs;
        EXPECT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, 1000)) << iTimeoutMs;
        cancelGetFilledBuffer(m_pStream);
        EXPECT_EQ(GC_ERR_ABORT, longest.get()) << iTimeoutMs;
    }
}

TEST_F(Fetch, FramesOutliveTheStopAndFlushedBuffersWaitToBeQueued) {
    const auto vecBuffers = queueBuffers(3);
    startAcquisition(m_pStream, 2);
    ASSERT_TRUE(waitForFilled(2));
    EXPECT_EQ(GC_ERR_SUCCESS, stopAcquisition(m_pStream));
    EXPECT_EQ(vecBuffers[0], nextFrame());
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, queueBuffer(m_pStream, vecBuffers[1]));
    EXPECT_EQ(GC_ERR_SUCCESS, flushBuffers(m_pStream));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0));
    for (const BufferHandle hBuffer : vecBuffers) {
        EXPECT_EQ(GC_ERR_SUCCESS, queueBuffer(m_pStream, hBuffer));
    }
    EXPECT_EQ(GC_ERR_SUCCESS, revokeBuffer(m_pStream, vecBuffers[1]));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, queueBuffer(m_pStream, vecBuffers[1]));
    EXPECT_EQ(2U, streamNumber(STREAM_INFO_NUM_ANNOUNCED));
}

TEST_F(Fetch, PacedCameraSkipsItsTurnWithoutABufferButLosesNoFrame) {
    node("AcquisitionFrameRate").SetInt(200);
    const auto vecBuffers = queueBuffers(1);
    const auto tBegin = std::chrono::steady_clock::now();
    startAcquisition(m_pStream);
    nextFrame();
    EXPECT_TRUE(eventually([&] { return streamNumber(STREAM_INFO_NUM_UNDERRUN) >= 3; }));
    EXPECT_GE(std::chrono::steady_clock::now() - tBegin, std::chrono::milliseconds(15));
    queueBuffer(m_pStream, vecBuffers[0]);
    EXPECT_GE(bufferNumber(nextFrame(), BUFFER_INFO_FRAMEID), 4U);
    EXPECT_EQ(2, node("StandInFrame").GetInt());
}

// A fetch on its way through its hook when the cancel comes, with a frame that stands ready.
TEST_F(Fetch, FetchBegunBeforeTheCancelEndsAndLeavesTheFrame) {
    HookSide side;
    side.put(Control::eHookFetch, m_pDevice, m_pStream);
    queueBuffers(2);
    startAcquisition(m_pStream, 2);
    ASSERT_TRUE(waitForFilled(2));
    Control::HookHold hold(Control::eHookFetch);
    auto early = std::async(std::launch::async, [this] { return fetch(); });
    ASSERT_TRUE(hold.waitUntilHeld(DEADLINE_MS));
    cancelGetFilledBuffer(m_pStream);
    EXPECT_EQ(GC_ERR_SUCCESS, fetch(0)) << "a later fetch was held, or cancelled";
    hold.release();
    EXPECT_EQ(GC_ERR_ABORT, early.get());
    EXPECT_EQ(GC_ERR_SUCCESS, fetch(0)) << "the frame was lost";
}

TEST_F(Fetch, LoopInsideOneCallKeepsItsStampAndAFunctionCalledOutsideBeginsItsOwn) {
    HookSide side;
    side.fnFetch = [&](void** ppBuffer, unsigned long long iTimeoutMs) {
        cancelGetFilledBuffer(m_pStream);
        EXPECT_EQ(GC_ERR_ABORT, side.pfnFetch(ppBuffer, iTimeoutMs, side.pFetch));
        return side.pfnFetch(ppBuffer, iTimeoutMs, side.pFetch);
    };
    side.put(Control::eHookFetch, m_pDevice, m_pStream);
    EXPECT_EQ(GC_ERR_ABORT, fetch(0));
    void* pBuffer = nullptr;
    EXPECT_EQ(GC_ERR_TIMEOUT, side.pfnFetch(&pBuffer, 0, side.pFetch));
}

TEST_F(Fetch, CancelsThatMeetNobodyEndAsManyLaterFetchesAsTheirModeSays) {
    const std::pair<Control::eCancelMode, int> aModes[] = {{Control::eEndsAllBegun, 0},
                                                           {Control::eWakesOne, 2},
                                                           {Control::eSticksWithoutWaiter, 1},
                                                           {Control::eForgotten, 0},
                                                           {Control::eIgnored, 0}};
    for (const auto& [eMode, nEnded] : aModes) {
        Control::setCancelMode(eMode);
        cancelGetFilledBuffer(m_pStream);
        cancelGetFilledBuffer(m_pStream);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(i < nEnded ? GC_ERR_ABORT : GC_ERR_TIMEOUT, fetch(0)) << eMode;
        }
    }
}

// However the cancel behaves, closing ends what waits; the device does it for all of its streams.
TEST_F(Fetch, ClosingWakesWaitersAndDeadPointersAreRefused) {
    Control::setCancelMode(Control::eIgnored);
    const auto vecBuffers = queueBuffers(1);
    auto waiting = blockedFetch();
    EXPECT_EQ(GC_ERR_SUCCESS, closeDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_ABORT, waiting.get());
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, fetch(0));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, closeDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(0U, payloadSize(m_pStream));

    ASSERT_EQ(GC_ERR_SUCCESS, openDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, openDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, queueBuffer(m_pStream, vecBuffers[0])) << "closing revokes";
    waiting = blockedFetch();
    Node& rGain = node("Gain");
    NodeMap& rMap = *remoteNodes(m_pDevice);
    EXPECT_EQ(GC_ERR_SUCCESS, closeDevice(m_pDevice));
    EXPECT_EQ(GC_ERR_ABORT, waiting.get());

    int iOnStack = 0;
    for (Device* pDead : {m_pDevice, static_cast<Device*>(nullptr), reinterpret_cast<Device*>(&iOnStack)}) {
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, closeDevice(pDead));
        EXPECT_EQ(nullptr, remoteNodes(pDead));
        EXPECT_EQ(nullptr, firstDataStream(pDead));
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, openDataStream(pDead, m_pStream));
    }
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, startAcquisition(m_pStream));
    EXPECT_FALSE(m_pStream->IsOpen());
    EXPECT_THROW(m_pStream->Open(), Exceptions::Xapel_ObjectInvalidException);
    EXPECT_EQ(nullptr, m_pDevice->GetDataStreams());
    EXPECT_THROW(m_pDevice->GetRemoteNode("Width"), Exceptions::Xapel_ObjectInvalidException);
    EXPECT_THROW(rGain.GetInt(), Exceptions::Xapel_ObjectInvalidException);
    EXPECT_THROW(rMap.GetNode("Gain"), Exceptions::Xapel_ObjectInvalidException);
}

TEST_F(Fetch, BadDeviceNamesAreTold) {
    EXPECT_THROW(openDevice("nothing"), Exceptions::Xapel_InvalidParameterException);
    EXPECT_THROW(openDevice("replay:/no/such/folder"), Exceptions::Xapel_NotAvailableException);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
