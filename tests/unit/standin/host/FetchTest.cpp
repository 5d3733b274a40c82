// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Queues, time-outs, cancels and closing.

#include <algorithm>
#include <iterator>

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
        const Fetched fetched = fetch();
        ASSERT_EQ(GC_ERR_SUCCESS, fetched.iResult);
        EXPECT_EQ(vecBuffers[i], fetched.hBuffer);
        EXPECT_EQ(i, bufferNumber(fetched.hBuffer, BUFFER_INFO_FRAMEID));
    }
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_IS_GRABBING));
    queueBuffer(m_pStream, vecBuffers[0]);
    queueBuffer(m_pStream, vecBuffers[1]);
    EXPECT_EQ(GC_ERR_SUCCESS, fetch().iResult);
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(30).iResult) << "more frames than asked for";
    EXPECT_EQ(0U, streamNumber(STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(4U, streamNumber(STREAM_INFO_NUM_DELIVERED));
    EXPECT_EQ(4U, streamNumber(STREAM_INFO_NUM_STARTED));
    EXPECT_EQ(3U, streamNumber(STREAM_INFO_NUM_ANNOUNCED));
    EXPECT_EQ(1U, streamNumber(STREAM_INFO_NUM_QUEUED));
    EXPECT_EQ(GC_ERR_SUCCESS, startAcquisition(m_pStream)) << "a finished acquisition needs no stop";
    EXPECT_EQ(GC_ERR_SUCCESS, fetch().iResult);
}

TEST_F(Fetch, TimeOutsExpireAndZeroPolls) {
    const auto tBegin = std::chrono::steady_clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0).iResult);
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(40).iResult);
    EXPECT_GE(std::chrono::steady_clock::now() - tBegin, std::chrono::milliseconds(40));
    for (const unsigned long long iTimeoutMs : {TIMEOUT_INFINITE, TIMEOUT_INFINITE - 1}) {
        auto future = fetchAsync(iTimeoutMs);
        ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, DEADLINE_MS));
        cancelGetFilledBuffer(m_pStream);
        EXPECT_EQ(GC_ERR_ABORT, future.get().iResult);
    }
}

TEST_F(Fetch, FramesOutliveTheStopAndFlushedBuffersWaitToBeQueued) {
    const auto vecBuffers = queueBuffers(3);
    startAcquisition(m_pStream, 2);
    ASSERT_TRUE(waitForFilled(2));
    EXPECT_EQ(GC_ERR_SUCCESS, stopAcquisition(m_pStream));
    EXPECT_EQ(GC_ERR_SUCCESS, fetch(0).iResult);
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, queueBuffer(m_pStream, vecBuffers[1]));
    EXPECT_EQ(GC_ERR_SUCCESS, flushBuffers(m_pStream));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0).iResult);
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
    ASSERT_EQ(GC_ERR_SUCCESS, fetch().iResult);
    while (streamNumber(STREAM_INFO_NUM_UNDERRUN) < 3 &&
           std::chrono::steady_clock::now() - tBegin < std::chrono::milliseconds(DEADLINE_MS)) {
        std::this_thread::yield();
    }
    EXPECT_GE(std::chrono::steady_clock::now() - tBegin, std::chrono::milliseconds(15));
    queueBuffer(m_pStream, vecBuffers[0]);
    const Fetched fetched = fetch();
    ASSERT_EQ(GC_ERR_SUCCESS, fetched.iResult);
    EXPECT_GE(bufferNumber(fetched.hBuffer, BUFFER_INFO_FRAMEID), 4U);
    EXPECT_EQ(2, node("StandInFrame").GetInt());
}

TEST_F(Fetch, CancelEndsAllWaitingFetchesAndNoneThatBeginsLater) {
    auto first = fetchAsync();
    auto second = fetchAsync();
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 2, DEADLINE_MS));
    EXPECT_EQ(GC_ERR_SUCCESS, cancelGetFilledBuffer(m_pStream));
    EXPECT_EQ(GC_ERR_ABORT, first.get().iResult);
    EXPECT_EQ(GC_ERR_ABORT, second.get().iResult);
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0).iResult);
}

// A fetch on its way through its hook when the cancel comes, with a frame that stands ready.
TEST_F(Fetch, FetchBegunBeforeTheCancelEndsAndLeavesTheFrame) {
    HookSide side;
    side.put(Control::eHookFetch, m_pDevice, m_pStream);
    queueBuffers(1);
    startAcquisition(m_pStream, 1);
    ASSERT_TRUE(waitForFilled(1));
    Control::HookHold hold(Control::eHookFetch);
    auto early = fetchAsync();
    ASSERT_TRUE(hold.waitUntilHeld(DEADLINE_MS));
    cancelGetFilledBuffer(m_pStream);
    hold.release();
    const Fetched ended = early.get();
    EXPECT_EQ(GC_ERR_ABORT, ended.iResult);
    EXPECT_EQ(nullptr, ended.hBuffer);
    EXPECT_EQ(GC_ERR_SUCCESS, fetch(0).iResult) << "the frame was lost, or a later fetch was cancelled";
}

TEST_F(Fetch, LoopInsideOneCallKeepsItsStampAndAFunctionCalledOutsideBeginsItsOwn) {
    HookSide side;
    side.fnFetch = [&](void** ppBuffer, unsigned long long iTimeoutMs) {
        cancelGetFilledBuffer(m_pStream);
        EXPECT_EQ(GC_ERR_ABORT, side.pfnFetch(ppBuffer, iTimeoutMs, side.pFetch));
        return side.pfnFetch(ppBuffer, iTimeoutMs, side.pFetch);
    };
    side.put(Control::eHookFetch, m_pDevice, m_pStream);
    EXPECT_EQ(GC_ERR_ABORT, fetch(0).iResult);
    void* pBuffer = nullptr;
    EXPECT_EQ(GC_ERR_TIMEOUT, side.pfnFetch(&pBuffer, 0, side.pFetch));
}

struct CancelCase {
    Control::eCancelMode eMode;
    unsigned nEndedWaiters;  // of two that wait, by one cancel
    unsigned nEndedLater;    // of two fetches after two cancels that met nobody
};

TEST_F(Fetch, OtherCancelsBehaveAsTheirModeSays) {
    const CancelCase aCases[] = {{Control::eEndsAllBegun, 2, 0},
                                 {Control::eWakesOne, 1, 2},
                                 {Control::eSticksWithoutWaiter, 2, 1},
                                 {Control::eForgotten, 2, 0},
                                 {Control::eIgnored, 0, 0}};
    for (const CancelCase& rCase : aCases) {
        SCOPED_TRACE(rCase.eMode);
        Control::setCancelMode(rCase.eMode);
        for (int i = 0; i < 2; ++i) {
            cancelGetFilledBuffer(m_pStream);
        }
        unsigned nLater = 0;
        for (int i = 0; i < 3; ++i) {
            nLater += fetch(0).iResult == GC_ERR_ABORT ? 1 : 0;
        }
        EXPECT_EQ(rCase.nEndedLater, nLater);

        auto first = fetchAsync();
        auto second = fetchAsync();
        ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 2, DEADLINE_MS));
        cancelGetFilledBuffer(m_pStream);
        // Whoever the cancel did not end takes a frame.
        queueBuffers(2 - rCase.nEndedWaiters);
        startAcquisition(m_pStream);
        const int aResults[] = {first.get().iResult, second.get().iResult};
        stopAcquisition(m_pStream);
        EXPECT_EQ(rCase.nEndedWaiters, std::count(std::begin(aResults), std::end(aResults), GC_ERR_ABORT));
        EXPECT_EQ(2 - rCase.nEndedWaiters, std::count(std::begin(aResults), std::end(aResults), GC_ERR_SUCCESS));
        flushBuffers(m_pStream);
    }
}

// However the cancel behaves, closing ends what waits; the device does it for all of its streams.
TEST_F(Fetch, ClosingWakesWaitersAndDeadPointersAreRefused) {
    Control::setCancelMode(Control::eIgnored);
    const auto vecBuffers = queueBuffers(1);
    auto waiting = fetchAsync(TIMEOUT_INFINITE);
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, DEADLINE_MS));
    EXPECT_EQ(GC_ERR_SUCCESS, closeDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_ABORT, waiting.get().iResult);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, fetch(0).iResult);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, closeDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(0U, payloadSize(m_pStream));

    ASSERT_EQ(GC_ERR_SUCCESS, openDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, openDataStream(m_pDevice, m_pStream));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, queueBuffer(m_pStream, vecBuffers[0])) << "closing revokes";
    startAcquisition(m_pStream);
    waiting = fetchAsync(TIMEOUT_INFINITE);
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, DEADLINE_MS));
    EXPECT_EQ(GC_ERR_SUCCESS, closeDevice(m_pDevice));
    EXPECT_EQ(GC_ERR_ABORT, waiting.get().iResult);

    int iOnStack = 0;
    for (Device* pDead : {m_pDevice, static_cast<Device*>(nullptr), reinterpret_cast<Device*>(&iOnStack)}) {
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, closeDevice(pDead));
        EXPECT_EQ(nullptr, remoteNodes(pDead));
        EXPECT_EQ(nullptr, firstDataStream(pDead));
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, openDataStream(pDead, m_pStream));
    }
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, fetch(0).iResult);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, startAcquisition(m_pStream));
    EXPECT_FALSE(m_pStream->IsOpen());
    EXPECT_THROW(m_pStream->Open(), Exceptions::Xapel_ObjectInvalidException);
    EXPECT_EQ(nullptr, m_pDevice->GetDataStreams());
    EXPECT_THROW(m_pDevice->GetRemoteNode("Width"), Exceptions::Xapel_ObjectInvalidException);
}

TEST_F(Fetch, BadDeviceNamesAreTold) {
    EXPECT_THROW(openDevice("nothing"), Exceptions::Xapel_InvalidParameterException);
    EXPECT_THROW(openDevice("replay:/no/such/folder"), Exceptions::Xapel_NotAvailableException);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
