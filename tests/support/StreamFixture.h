// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A small simulated camera with its stream, and waiting with a deadline.

#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "standin/host/testing/Control.h"
#include "xapel2_standin/Host.h"

namespace XapelTest {

/// Deadline of everything that ends at once when all is well.
constexpr unsigned DEADLINE_MS = 10000;

/// True as soon as fnCondition is; false after the deadline.
template <typename Condition>
bool eventually(Condition fnCondition, unsigned iDeadlineMs = DEADLINE_MS) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(iDeadlineMs);
    while (!fnCondition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// True when the future is ready within the deadline.
template <typename T>
bool ready(const std::future<T>& rFuture, unsigned iDeadlineMs = DEADLINE_MS) {
    return rFuture.wait_for(std::chrono::milliseconds(iDeadlineMs)) == std::future_status::ready;
}

/// Opens the camera; every switch of the host is off before and after.
class StreamFixture : public ::testing::Test {
protected:
    explicit StreamFixture(const std::string& strId = "sim:7?width=64&height=48&format=Mono8") : m_strId(strId) {}

    void SetUp() override {
        XAPEL2::StandIn::Control::reset();
        m_pDevice = XAPEL2::StandIn::openDevice(m_strId);
        m_pStream = XAPEL2::StandIn::firstDataStream(m_pDevice);
    }

    void TearDown() override {
        XAPEL2::StandIn::Control::reset();
        XAPEL2::StandIn::closeDevice(m_pDevice);
        EXPECT_EQ(XAPEL2::StandIn::Control::liveHooks(), 0U);
    }

    /// Announces and queues buffers of the payload's size.
    std::vector<XAPEL2::StandIn::BufferHandle> queueBuffers(unsigned nBuffers) {
        using namespace XAPEL2::StandIn;
        std::vector<BufferHandle> buffers(nBuffers);
        for (BufferHandle& rBuffer : buffers) {
            EXPECT_EQ(allocAndAnnounceBuffer(m_pStream, payloadSize(m_pStream), &rBuffer), 0);
            EXPECT_EQ(queueBuffer(m_pStream, rBuffer), 0);
        }
        return buffers;
    }

    /// Opens the stream if it is closed, queues buffers and starts the camera.
    void startStream(unsigned nBuffers = 4, uint64_t nFrames = ~0ULL) {
        using namespace XAPEL2::StandIn;
        if (!m_pStream->IsOpen()) {
            ASSERT_EQ(openDataStream(m_pDevice, m_pStream), 0);
        }
        queueBuffers(nBuffers);
        ASSERT_EQ(startAcquisition(m_pStream, nFrames), 0);
    }

    /// Fetches one buffer and queues it again.
    int fetch(unsigned long long iTimeoutMs = DEADLINE_MS) {
        XAPEL2::StandIn::BufferHandle hBuffer = nullptr;
        const int iResult = XAPEL2::StandIn::getFilledBuffer(m_pStream, &hBuffer, iTimeoutMs);
        if (hBuffer != nullptr)
            XAPEL2::StandIn::queueBuffer(m_pStream, hBuffer);
        return iResult;
    }

    /// A fetch on another thread that is blocked in the host: there is no frame. End it with a cancel.
    std::future<int> blockedFetch(unsigned nBlocked = 1, unsigned long long iTimeoutMs = DEADLINE_MS) {
        auto result = std::async(std::launch::async, [=] { return fetch(iTimeoutMs); });
        EXPECT_TRUE(XAPEL2::StandIn::Control::waitForBlockedFetches(m_pStream, nBlocked, DEADLINE_MS));
        return result;
    }

    uint64_t streamNumber(int iInfoCmd) {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof(nValue);
        EXPECT_EQ(XAPEL2::StandIn::getStreamInfo(m_pStream, iInfoCmd, nullptr, &nValue, &nSize), 0);
        return nValue;
    }

    std::string m_strId;
    XAPEL2::Device* m_pDevice = nullptr;
    XAPEL2::DataStream* m_pStream = nullptr;
};

/// Texts of the recorded traces of one level.
inline std::vector<std::string> traceTexts(int32_t iLevel) {
    std::vector<std::string> texts;
    for (const auto& rLine : XAPEL2::StandIn::Control::traces()) {
        if (rLine.iLevel == iLevel)
            texts.push_back(rLine.strText);
    }
    return texts;
}

/// The recorded node accesses, "node operation value" each.
inline std::vector<std::string> nodeTexts() {
    std::vector<std::string> texts;
    for (const auto& rAccess : XAPEL2::StandIn::Control::nodeAccesses())
        texts.push_back(rAccess.strNode + " " + rAccess.strOperation + " " + rAccess.strValue);
    return texts;
}

/// Runs fnCall and yields what its host exception says as "function: description"; empty when it throws none.
template <typename Failure, typename Call>
std::string thrown(Call fnCall) {
    try {
        fnCall();
    } catch (const Failure& rFailure) {
        return std::string(rFailure.GetFunctionName().get()) + ": " + rFailure.GetErrorDescription().get();
    }
    return "";
}

}  // namespace XapelTest
