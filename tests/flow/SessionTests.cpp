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
#include "xapel2/XapelBypassRegistration.h"
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
        CSession camera(CAMERA);
        return recordReference(camera, bLight, nFrames, m_folder / pFile, m_progress);
    }

    CTemporaryFolder m_folder;
    CSilentProgress m_progress;
};

}  // namespace

TEST_F(Session, IncompleteFramesAreLeftOutAndCounted) {
    loseEveryThird();
    const Recording made = record(true, 4, "light.tif");
    EXPECT_EQ(made.nFrames, 4U);
    EXPECT_EQ(made.nLeftOut, 2U);
    EXPECT_THAT(made.strLeftOut, HasSubstr("incomplete"));
    const XAPEL2::StandIn::ReferenceImage light4 = XAPEL2::StandIn::readReferenceFile(m_folder / "light.tif");
    EXPECT_EQ(light4.nImages, 4U);
    EXPECT_EQ(framesTaken(light4), 6U) << "none of these may show what the reference does";

    CSession camera(CAMERA);
    PairOptions light;
    light.strLight = m_folder / "light.tif";
    applyPair(camera, light);
    for (const bool bKeepRaw : {false, true}) {
        CCorrectedStream stream(camera, bKeepRaw);
        stream.start(0, true);
        unsigned nSaid = 0;
        for (unsigned i = 0; i < 9; ++i) {
            const CCorrectedStream::Fetched fetched = stream.next();
            nSaid += fetched.bNewReason ? 1 : 0;
            camera.giveBack(fetched.hBuffer);
        }
        stream.stop();
        EXPECT_EQ(stream.tally().nCorrected, 6U);
        EXPECT_THAT(stream.tally().mapUntouched, ElementsAre(Pair(HasSubstr("incomplete"), 3U)));
        EXPECT_EQ(nSaid, 1U);
    }
    Control::setBufferFaults([](uint64_t) { return Control::eNoImage; });
    EXPECT_THROW(record(true, 4, "none.tif"), std::runtime_error);
    EXPECT_THAT(m_folder.names(), ElementsAre("light.tif"));
}

TEST_F(Session, RecordingThatCannotBeWrittenLeavesTheOlderFile) {
    EXPECT_EQ(record(false, 2, "dark.tif").strNoSettings, "");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{std::filesystem::file_size(m_folder / "dark.tif") - 1, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    std::string strReason;
    try {
        record(false, 3, "dark.tif");
    } catch (const std::runtime_error& rError) {
        strReason = rError.what();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(strReason, HasSubstr("too large"));
    const auto reference = XAPEL2::StandIn::readReferenceFile(m_folder / "dark.tif");
    EXPECT_EQ(reference.nImages, 2U);
    EXPECT_THAT(reference.strCamera, HasSubstr("ExposureTime"));
    EXPECT_THAT(m_folder.names(), ElementsAre("dark.tif"));
}

TEST_F(Session, RecordingOutlivesItsSettings) {
    EXPECT_EQ(record(true, 2, "light.tif").strNoSettings, "");
    EXPECT_NE(XAPEL2::StandIn::readReferenceFile(m_folder / "light.tif").strCamera, "");
    Control::inject({Control::eNodeGetString, Control::eThrowStd, 1, true, "Gain"});
    EXPECT_THAT(record(false, 3, "dark.tif").strNoSettings, HasSubstr("injected"));
    EXPECT_EQ(XAPEL2::StandIn::readReferenceFile(m_folder / "dark.tif").strCamera, "") << "not those of another one";
}

TEST_F(Session, EachFrameTellsWhyItIsUntouched) {
    record(false, 2, "dark.tif");
    CSession camera(CAMERA);
    PairOptions dark;
    dark.strDark = m_folder / "dark.tif";
    applyPair(camera, dark);
    camera.nodes().GetNode("PixelFormat")->SetValue("Mono10");
    Control::setBufferFaults([](uint64_t i) { return i % 2 == 0 ? Control::eGood : Control::eNoImage; });
    for (const bool bKeepRaw : {false, true}) {
        CCorrectedStream stream(camera, bKeepRaw);
        stream.start(0, false);
        for (unsigned i = 0; i < 6; ++i) {
            camera.giveBack(stream.next().hBuffer);
        }
        stream.stop();
        EXPECT_THAT(stream.tally().mapUntouched, ElementsAre(Pair("a reference is applied for another format", 3U),
                                                             Pair("incomplete, or without an image", 3U)));
    }
}

// As with a host that takes the hook of a stream away, and tells nobody.
TEST_F(Session, FramesThatNeverReachAProcessorAreAnError) {
    record(false, 2, "dark.tif");
    CSession camera(CAMERA);
    PairOptions dark;
    dark.strDark = m_folder / "dark.tif";
    applyPair(camera, dark);
    for (void* pContext : Control::hookContexts()) {
        registerBypass_DataStreamEventControlGetFilledBuffer(camera.stream(), nullptr, pContext, nullptr, nullptr);
    }
    CCorrectedStream stream(camera, false);
    stream.start(0, false);
    EXPECT_THROW(stream.next(), std::runtime_error);
}

// What a step says is its own: not what failed before it, nor on another thread.
TEST_F(Session, FailedStepTellsItsOwnReason) {
    CSession camera(CAMERA);
    const auto fnWhy = [&](const std::function<void()>& fnOperation) {
        try {
            camera.attempt("step", fnOperation);
        } catch (const std::runtime_error& rError) {
            return std::string(rError.what());
        }
        return std::string();
    };
    auto& rShading = camera.shading();
    EXPECT_EQ(fnWhy([&] { rShading.ReferenceApply(); }), "step: cannot apply to Mono8 32x32; there is no reference");
    EXPECT_EQ(fnWhy([&] { rShading.ReferenceEnd("x"); }), "step: no recording is running");
    Control::inject({Control::eNodeSetInt, Control::eThrowHost, 1, false, "ShadingCommand"});
    EXPECT_EQ(fnWhy([&] { rShading.ReferenceClear(); }), "step: injected");
    Control::forceStatus(4, -1001);
    EXPECT_EQ(fnWhy([&] { rShading.ReferenceClear(); }), "step: shading clear reference failed.");
    EXPECT_EQ(fnWhy([&] {
                  std::thread([&] { EXPECT_ANY_THROW(rShading.ReferenceEnd("x")); }).join();
                  rShading.ReferenceClear();
              }),
              "step: shading clear reference failed.");
}

TEST_F(Session, InterruptEndsAFetchThatWaitsForNothing) {
    EXPECT_EXIT(
        {
            Interrupt::install();
            CSession camera(CAMERA, 60.0);
            camera.start(1);
            camera.fetch();
            std::thread signal([&] {
                Control::waitForBlockedFetches(camera.stream(), 1, 10000);
                std::raise(SIGINT);
            });
            const auto tBegin = std::chrono::steady_clock::now();
            EXPECT_THROW(camera.fetch(), CInterruptedError);
            signal.join();
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
            CSession camera(CAMERA);
            camera.start(1);
            camera.fetch();
            Interrupt::install();
            std::raise(SIGINT);
            const CFetchCanceller late(camera.stream());
            XAPEL2::StandIn::BufferHandle hBuffer = nullptr;
            const int iResult = XAPEL2::StandIn::getFilledBuffer(camera.stream(), &hBuffer, 10000);
            std::_Exit(iResult == GC_ERR_ABORT ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(Session, FetchSurvivesTheSwitchingOfCorrection) {
    CSession camera(CAMERA);
    camera.start();
    std::atomic<bool> bEnd{false};
    std::thread switch_([&] {
        for (bool bOn = true; !bEnd; bOn = !bOn) {
            camera.shading().SetEnable(bOn);
        }
    });
    for (unsigned i = 0; i < 200; ++i) {
        camera.giveBack(camera.fetch());
    }
    bEnd = true;
    switch_.join();
    camera.stop();
}

TEST(Times, QuantileIsTheLeastThatTheShareDoesNotExceed) {
    CTimes times;
    EXPECT_TRUE(std::isnan(times.median()));
    for (const double dMs : {7.0, 1.0, 3.0, 5.0}) {
        times.add(dMs);
    }
    EXPECT_EQ(times.median(), 3.0);
    EXPECT_EQ(times.quantile(0.51), 5.0);
    EXPECT_EQ(times.quantile(0.99), 7.0);
    EXPECT_EQ(times.quantile(0.25), 1.0);
    EXPECT_EQ(times.quantile(0.001), 1.0);
}
