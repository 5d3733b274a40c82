// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sessions of the application with a host that misbehaves.

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "TemporaryFolder.h"
#include "standin/host/testing/Control.h"
#include "toolkit/sessions/CorrectedStream.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Pair.h"
#include "toolkit/sessions/Recording.h"
#include "xapel2_standin/ReferenceFile.h"

namespace Control = XAPEL2::StandIn::Control;
using namespace XAPEL2::Toolkit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;
using XAPEL2::Test::CTemporaryFolder;

namespace {

constexpr const char* CAMERA = "sim:7?width=32&height=32&format=Mono8";

// Every third frame comes incomplete, from the first on.
void loseEveryThird() {
    Control::setBufferFaults([](uint64_t i) { return i % 3 == 0 ? Control::eIncomplete : Control::eGood; });
}

class Session : public ::testing::Test {
protected:
    ~Session() override { Control::reset(); }
    Recording record(bool bLight, uint64_t nFrames, const char* pFile) {
        CSession Camera(CAMERA);
        return recordReference(Camera, bLight, nFrames, m_Folder / pFile, m_Progress);
    }

    CTemporaryFolder m_Folder;
    CSilentProgress m_Progress;
};

}  // namespace

TEST_F(Session, IncompleteFramesAreLeftOutAndCounted) {
    loseEveryThird();
    const Recording Made = record(true, 4, "light.tif");
    EXPECT_EQ(Made.nFrames, 4U);
    EXPECT_EQ(Made.nLeftOut, 2U);
    EXPECT_THAT(Made.strLeftOut, HasSubstr("incomplete"));
    const XAPEL2::StandIn::ReferenceImage Light4 = XAPEL2::StandIn::readReferenceFile(m_Folder / "light.tif");
    EXPECT_EQ(Light4.nImages, 4U);
    EXPECT_EQ(framesTaken(Light4), 6U) << "none of these may show what the reference does";

    CSession Camera(CAMERA);
    PairOptions Light;
    Light.strLight = m_Folder / "light.tif";
    applyPair(Camera, Light);
    for (const bool bKeepRaw : {false, true}) {
        CCorrectedStream Stream(Camera, bKeepRaw);
        Stream.start(0, true);
        unsigned nSaid = 0;
        for (unsigned i = 0; i < 9; ++i) {
            const CCorrectedStream::Fetched Fetched = Stream.next();
            nSaid += Fetched.bNewReason ? 1 : 0;
            Camera.giveBack(Fetched.hBuffer);
        }
        Stream.stop();
        EXPECT_EQ(Stream.tally().nCorrected, 6U);
        EXPECT_THAT(Stream.tally().mapUntouched, ElementsAre(Pair(HasSubstr("incomplete"), 3U)));
        EXPECT_EQ(nSaid, 1U);
    }
    Control::setBufferFaults([](uint64_t) { return Control::eNoImage; });
    EXPECT_THROW(record(true, 4, "none.tif"), std::runtime_error);
    EXPECT_THAT(m_Folder.names(), ElementsAre("light.tif"));
}

TEST_F(Session, RecordingThatCannotBeWrittenLeavesTheOlderFile) {
    EXPECT_EQ(record(false, 2, "dark.tif").strNoSettings, "");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{std::filesystem::file_size(m_Folder / "dark.tif") - 1, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    std::string strReason;
    try {
        record(false, 3, "dark.tif");
    } catch (const std::runtime_error& rError) {
        strReason = rError.what();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(strReason, HasSubstr("too large"));
    const auto reference = XAPEL2::StandIn::readReferenceFile(m_Folder / "dark.tif");
    EXPECT_EQ(reference.nImages, 2U);
    EXPECT_THAT(reference.strCamera, HasSubstr("ExposureTime"));
    EXPECT_THAT(m_Folder.names(), ElementsAre("dark.tif"));
}

TEST_F(Session, InterruptEndsAFetchThatWaitsForNothing) {
    EXPECT_EXIT(
        {
            Interrupt::install();
            CSession Camera(CAMERA, 60.0);
            Camera.start(1);
            Camera.fetch();
            std::thread Signal([&] {
                Control::waitForBlockedFetches(Camera.stream(), 1, 10000);
                std::raise(SIGINT);
            });
            const auto tBegin = std::chrono::steady_clock::now();
            EXPECT_THROW(Camera.fetch(), CInterruptedError);
            Signal.join();
            // A fetch that is not cancelled ends by its time-out, and is interrupted then.
            if (std::chrono::steady_clock::now() - tBegin > std::chrono::seconds(30)) {
                std::_Exit(1);
            }
            Interrupt::endProcess();
        },
        ::testing::KilledBySignal(SIGINT), "");
}

// As when the signal comes before the canceller's thread has looked for the first time.
TEST_F(Session, InterruptBeforeTheCancellerBeginsEndsAFetch) {
    EXPECT_EXIT(
        {
            CSession Camera(CAMERA);
            Camera.start(1);
            Camera.fetch();
            Interrupt::install();
            std::raise(SIGINT);
            const CFetchCanceller Late(Camera.stream());
            XAPEL2::StandIn::BufferHandle hBuffer = nullptr;
            const int iResult = XAPEL2::StandIn::getFilledBuffer(Camera.stream(), &hBuffer, 10000);
            std::_Exit(iResult == GC_ERR_ABORT ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(Session, FetchSurvivesTheSwitchingOfCorrection) {
    CSession Camera(CAMERA);
    Camera.start();
    std::atomic<bool> bEnd{false};
    std::thread Switch([&] {
        for (bool bOn = true; !bEnd; bOn = !bOn) Camera.shading().SetEnable(bOn);
    });
    for (unsigned i = 0; i < 200; ++i) Camera.giveBack(Camera.fetch());
    bEnd = true;
    Switch.join();
    Camera.stop();
}

TEST(Times, QuantileIsTheLeastThatTheShareDoesNotExceed) {
    CTimes Times;
    EXPECT_TRUE(std::isnan(Times.median()));
    for (const double fMs : {7.0, 1.0, 3.0, 5.0}) Times.add(fMs);
    EXPECT_EQ(Times.median(), 3.0);
    EXPECT_EQ(Times.quantile(0.51), 5.0);
    EXPECT_EQ(Times.quantile(0.99), 7.0);
    EXPECT_EQ(Times.quantile(0.25), 1.0);
    EXPECT_EQ(Times.quantile(0.001), 1.0);
}
