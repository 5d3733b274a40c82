// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Buffers, cancels, closings and late calls as a host should not have them: nothing is lost, hangs or is touched.

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>

#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_ext_sc.h"

#include "Participants.h"
#include "StreamFixture.h"
#include "TemporaryFolder.h"
#include "XapelBypassDevice.h"
#include "xapel2_standin/ReferenceFile.h"

namespace {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;
using XapelTest::CHookCaller;
using XapelTest::CPlain;
using XapelTest::eventually;
using XapelTest::ready;

typedef std::vector<uint8_t> Image;

class HostFaults : public XapelTest::StreamFixture {};

TEST_F(HostFaults, BadBuffersStayAsTheyAreAmongCorrectedOnes) {
    const XAPEL2::Test::CTemporaryFolder folder;
    Image vecPattern(64 * 48), vecMemory(vecPattern.size());
    for (size_t i = 0; i < vecPattern.size(); ++i) {
        vecPattern[i] = i % 2 == 0 ? 80 : 120;
    }
    const Image vecFlat(vecPattern.size(), 100), vecUntouched(vecPattern.size(), 0xEE);
    Image vecHalf = vecUntouched;
    std::copy_n(vecPattern.begin(), vecHalf.size() / 2, vecHalf.begin());

    Shading shading(m_pDevice);
    shading.ReferenceStart(true);
    Image vecReference = vecPattern;
    shading.ReferenceAdd("Mono8", 64, 48, vecReference.data(), vecReference.size());
    shading.ReferenceEnd((folder / "light.tif").c_str());
    shading.ReferenceApply();
    shading.SetEnable(true);
    Control::setFrameContent([&](uint64_t, void* pImage, size_t) {
        std::copy(vecPattern.begin(), vecPattern.end(), static_cast<char*>(pImage));
    });
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(announceBuffer(m_pStream, vecMemory.data(), vecMemory.size(), &hBuffer), 0);
    const auto fnNext = [&]() -> const Image& {
        vecMemory = vecUntouched;
        EXPECT_EQ(queueBuffer(m_pStream, hBuffer), 0);
        BufferHandle hFetched = nullptr;
        EXPECT_EQ(getFilledBuffer(m_pStream, &hFetched, XapelTest::DEADLINE_MS), 0);
        EXPECT_EQ(hFetched, hBuffer);
        return vecMemory;
    };
    const std::string strInvalid = "Extended-API;CVexShadingObj; extended_useFilledBuffer; invalid Buffer;";
    for (uint64_t nGood = 1; nGood <= 5; ++nGood) {
        const auto fnFault = [nGood](uint64_t iFrame) {
            const bool bOdd = iFrame / (nGood + 1) % 2 != 0;
            return iFrame % (nGood + 1) != nGood ? Control::eGood : bOdd ? Control::eNoImage : Control::eIncomplete;
        };
        Control::setBufferFaults(fnFault);
        Control::recordTraces(true);
        ASSERT_EQ(startAcquisition(m_pStream), 0);
        for (uint64_t iFrame = 0; iFrame < 4 * (nGood + 1); ++iFrame) {
            SCOPED_TRACE(iFrame);
            const auto eFault = fnFault(iFrame);
            EXPECT_EQ(fnNext(), eFault == Control::eGood      ? vecFlat
                                : eFault == Control::eNoImage ? vecUntouched
                                                              : vecHalf);
        }
        EXPECT_EQ(XapelTest::traceTexts(2), std::vector<std::string>(4, strInvalid));
        stopAcquisition(m_pStream);
    }
}

TEST_F(HostFaults, WeakerCancelsCostTimeButNoFrame) {
    // Ended: of two fetches that wait, and whether one on its way to the host is.
    const struct {
        Control::eCancelMode eMode;
        unsigned nEnded;
        bool bSticks;
    } rows[] = {{Control::eWakesOne, 1, true},
                {Control::eSticksWithoutWaiter, 2, true},
                {Control::eForgotten, 2, false},
                {Control::eIgnored, 0, false}};
    CPlain participant(m_pDevice);
    startStream(0);
    const auto fnEmpty = [this] {
        stopAcquisition(m_pStream);
        flushBuffers(m_pStream);
        EXPECT_EQ(startAcquisition(m_pStream), 0);
    };
    const auto fnChange = [&] {
        const uint64_t nBefore = Control::calls(Control::eHostCancel);
        auto change = std::async(std::launch::async, [&] { participant.registerParticipantForCalling(); });
        EXPECT_TRUE(eventually([&] { return Control::calls(Control::eHostCancel) > nBefore; }));
        return change;
    };
    for (const auto& rRow : rows) {
        SCOPED_TRACE(rRow.eMode);
        Control::setCancelMode(rRow.eMode);
        for (const bool bFrame : {false, true}) {
            std::vector<std::future<int>> vecFetches;
            for (unsigned i = 1; i <= 2; ++i) {
                vecFetches.push_back(
                    std::async(std::launch::async, [&, bFrame] { return fetch(bFrame ? TIMEOUT_INFINITE : 2000); }));
                ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, i, XapelTest::DEADLINE_MS));
            }
            auto change = fnChange();
            EXPECT_TRUE(!bFrame || rRow.nEnded == 2 || !ready(change, 30));  // it waits for whoever the cancel left
            for (unsigned i = rRow.nEnded; bFrame && i < 2; ++i) {
                queueBuffers(1);
            }
            EXPECT_TRUE(ready(change));
            std::vector<int> vecResults;
            for (auto& rFetch : vecFetches) {
                vecResults.push_back(rFetch.get());
            }
            const int iElse = bFrame ? GC_ERR_SUCCESS : GC_ERR_TIMEOUT;
            EXPECT_EQ(std::count(vecResults.begin(), vecResults.end(), GC_ERR_ABORT), rRow.nEnded);
            EXPECT_EQ(std::count(vecResults.begin(), vecResults.end(), iElse), 2 - rRow.nEnded);
            fnEmpty();
        }
        // Inside the gate, but not yet waiting in the host.
        std::vector<std::string> vecLog;
        XapelTest::CSpy spy(m_pDevice, "spy", vecLog, {0, true});
        spy.registerParticipant();
        XapelTest::HeldCall held(spy);
        auto early = std::async(std::launch::async, [&] { return fetch(TIMEOUT_INFINITE); });
        ASSERT_TRUE(held.waitUntilHeld());
        auto change = fnChange();
        held.release();
        if (!rRow.bSticks) {
            queueBuffers(1);
        }
        EXPECT_TRUE(ready(change));
        // The cancel has been called, but may have met the fetch after all; then the frame waits for the next one.
        const int iEarly = early.get();
        EXPECT_TRUE(iEarly == (rRow.bSticks ? GC_ERR_ABORT : GC_ERR_SUCCESS) ||
                    (rRow.eMode == Control::eForgotten && iEarly == GC_ERR_ABORT))
            << iEarly;
        EXPECT_EQ(rRow.bSticks ? fetch(0) : fetch(), rRow.bSticks ? GC_ERR_TIMEOUT : GC_ERR_SUCCESS);
        fnEmpty();
        Control::setCancelMode(Control::eEndsAllBegun);
        spy.unregisterParticipant();
    }
}

// The price of a host that forgets: the change has cancelled too early, and the application's own cancel comes too
// late.
TEST_F(HostFaults, ForgottenCancelLeavesChangeAndApplicationToTheFetch) {
    startStream(0);
    std::vector<std::string> vecLog;
    CPlain participant(m_pDevice);
    XapelTest::CSpy spy(m_pDevice, "spy", vecLog, {0, true});
    spy.registerParticipant();
    XapelTest::HeldCall held(spy);
    Control::setCancelMode(Control::eForgotten);
    auto fetched = std::async(std::launch::async, [this] { return fetch(TIMEOUT_INFINITE); });
    ASSERT_TRUE(held.waitUntilHeld());
    auto change = std::async(std::launch::async, [&] { participant.registerParticipantForCalling(); });
    ASSERT_TRUE(eventually([] { return Control::cancelsDone() == 1; }));
    held.release();
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, XapelTest::DEADLINE_MS));
    auto cancel = std::async(std::launch::async, [this] { return cancelGetFilledBuffer(m_pStream); });
    EXPECT_FALSE(ready(cancel, 50));
    EXPECT_FALSE(ready(change, 1));
    EXPECT_EQ(Control::calls(Control::eHostCancel), 1U);
    queueBuffers(1);
    EXPECT_EQ(fetched.get(), 0);
    EXPECT_TRUE(ready(change));
    EXPECT_TRUE(ready(cancel));
}

void everyOperation(Shading& rShading, bool bDeviceGone) {
    const auto fnTry = [](const auto& fnOperation) {
        try {
            fnOperation();
        } catch (const XAPEL2::Exceptions::IException&) {
        }
    };
    fnTry([&] { rShading.ReferenceStart(false); });
    fnTry([&] { rShading.ReferenceEnd("/no/folder/file"); });
    fnTry([&] { rShading.ReferenceLoad(true, "/no/folder/file"); });
    fnTry([&] { rShading.ReferenceClear(); });
    fnTry([&] { rShading.SetFilter(Shading::eBoxFilter, true, 1); });
    fnTry([&] { rShading.GetFilterMax(Shading::eBoxFilter, true); });
    fnTry([&] { rShading.SetEnable(true); });
    if (bDeviceGone) {
        EXPECT_THROW(rShading.ReferenceApply(), XAPEL2::Exceptions::Xapel_ObjectInvalidException);
    }
}

TEST_F(HostFaults, StreamDeviceAndFacadeMayGoInAnyOrder) {
    enum eFetch { eNone, eBlocked, eCorrecting };
    std::string strOrder = "CDSX";  // close the device, disable, close the stream, destroy the facade
    do {
        for (const eFetch eWhat : {eNone, eBlocked, eCorrecting}) {
            SCOPED_TRACE(strOrder + " " + std::to_string(eWhat));
            TearDown();
            SetUp();
            Control::recordTraces(true);
            auto pShading = std::make_unique<Shading>(m_pDevice);
            pShading->ReferenceStart(true);  // so that the processor reads the buffer
            pShading->SetEnable(true);
            startStream(eWhat == eCorrecting ? 1 : 0);
            std::atomic<bool> bInside{false}, bGoOn{eWhat != eCorrecting};
            Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
                if (rAccess.strNode == XAPEL2::SHADING_NODE_BUFFER && !bInside.exchange(true)) {
                    eventually([&] { return bGoOn.load(); });
                }
            });
            std::future<int> fetched;
            if (eWhat == eBlocked) {
                fetched = blockedFetch();
            } else if (eWhat == eCorrecting) {
                fetched = std::async(std::launch::async, [this] { return fetch(); });
            }
            ASSERT_TRUE(eWhat != eCorrecting || eventually([&] { return bInside.load(); }));
            bool bDeviceGone = false;
            for (const char cStep : strOrder) {
                bGoOn = bGoOn || cStep == 'D' || cStep == 'X';  // these wait for the fetch
                if (cStep == 'C') {
                    bDeviceGone = closeDevice(m_pDevice) == 0;
                } else if (cStep == 'S') {
                    closeDataStream(m_pDevice, m_pStream);
                } else if (cStep == 'X') {
                    pShading.reset();
                } else if (pShading != nullptr) {
                    pShading->SetEnable(false);
                }
                if (pShading != nullptr && bGoOn) {
                    everyOperation(*pShading, bDeviceGone);
                }
            }
            EXPECT_TRUE(bDeviceGone);
            if (eWhat != eNone) {
                EXPECT_TRUE(ready(fetched));
                EXPECT_EQ(fetched.get(), eWhat == eBlocked ? GC_ERR_ABORT : GC_ERR_SUCCESS);
            }
            EXPECT_EQ(Control::liveHooks(), 0U);
        }
    } while (std::next_permutation(strOrder.begin(), strOrder.end()));
}

TEST_F(HostFaults, EndCancelsOnceAndACallAtTheGateFindsNoFunctions) {
    startStream(0);
    auto pParticipant = std::make_unique<CPlain>(m_pDevice);
    const CHookCaller hooks;
    Control::setCancelMode(Control::eIgnored);
    auto blocked = std::async(std::launch::async, [this] { return fetch(200); });
    ASSERT_TRUE(Control::waitForBlockedFetches(m_pStream, 1, XapelTest::DEADLINE_MS));
    auto end = std::async(std::launch::async, [&] { pParticipant.reset(); });
    EXPECT_TRUE(eventually([] { return Control::calls(Control::eHostCancel) == 1; }));
    // The end holds the gate until the fetch has timed out; this one waits before the gate meanwhile.
    void* pBuffer = nullptr;
    EXPECT_EQ(hooks.fetch(&pBuffer, 0), GC_ERR_NOT_INITIALIZED);
    EXPECT_TRUE(ready(end));
    EXPECT_EQ(blocked.get(), GC_ERR_TIMEOUT);
    EXPECT_EQ(Control::calls(Control::eHostCancel), 1U);
}

TEST_F(HostFaults, HeldCallMeetsNoHubOrTheNextOneOfItsSlot) {
    XAPEL2::Device* const pOther = openDevice("sim:8?width=64&height=48&format=Mono8");
    startStream();
    const auto fnInfo = [this] {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof(nValue);
        const int iResult = getStreamInfo(m_pStream, STREAM_INFO_NUM_ANNOUNCED, nullptr, &nValue, &nSize);
        return nValue == 4 ? iResult : -1;
    };
    const std::function<int()> calls[] = {[&] { return fetch(50); }, [&] { return cancelGetFilledBuffer(m_pStream); },
                                          fnInfo, [&] { return closeDataStream(m_pDevice, m_pStream); },
                                          [&] { return openDataStream(m_pDevice, m_pStream); }};
    XAPEL2::Device* const next[] = {nullptr, m_pDevice, pOther};  // whose hub stands in the slot then
    for (XAPEL2::Device* const pNext : next) {
        for (const auto eKind :
             {Control::eHookFetch, Control::eHookCancel, Control::eHookInfo, Control::eHookClose, Control::eHookOpen}) {
            SCOPED_TRACE(std::to_string(eKind) + (pNext == nullptr ? " none" : pNext == pOther ? " other" : " same"));
            auto pHub = std::make_unique<CPlain>(m_pDevice);
            void* const pContext = Control::hookContexts().at(0);
            if (eKind == Control::eHookOpen) {
                closeDataStream(m_pDevice, m_pStream);
            }
            Control::HookHold hold(eKind);
            auto call = std::async(std::launch::async, calls[eKind]);
            ASSERT_TRUE(hold.waitUntilHeld(XapelTest::DEADLINE_MS));
            pHub.reset();
            for (size_t i = 0; pNext != nullptr && i < 2 * XAPEL_SLOTS_RETIRED_MIN; ++i) {
                pHub = std::make_unique<CPlain>(pNext);
                if (Control::hookContexts().at(0) == pContext) {
                    break;
                }
                ASSERT_LT(i + 1, 2 * XAPEL_SLOTS_RETIRED_MIN) << "the slot is not used again";
                pHub.reset();
            }
            hold.release();
            ASSERT_TRUE(ready(call));
            // In the slot of another device's hub a fetch waits for that device's frame; it has none.
            EXPECT_EQ(call.get(), eKind == Control::eHookFetch && pNext == pOther ? GC_ERR_TIMEOUT : 0);
            EXPECT_EQ(m_pStream->IsOpen(), eKind != Control::eHookClose);
            const bool bDropped = eKind == Control::eHookClose && pNext == m_pDevice;
            EXPECT_EQ(Control::liveHooks(), pNext == nullptr ? 0U : bDropped ? 2U : 5U);
            pHub.reset();
            EXPECT_EQ(Control::liveHooks(), 0U);
            if (eKind == Control::eHookOpen) {
                startStream();
            }
            if (eKind != Control::eHookClose) {
                EXPECT_EQ(fetch(), 0);
            }
        }
    }
    closeDevice(pOther);
}

// A fetch that is looked up on one stream is carried to the next one, which is closed while its frame is recorded.
TEST_F(HostFaults, BufferOfAnotherStreamOutlivesItsClosing) {
    mallopt(M_PERTURB, 0x5A);  // freed memory does not keep what it held
    const XAPEL2::Test::CTemporaryFolder folder;
    Control::setFrameContent([](uint64_t, void* pImage, std::size_t nBytes) { std::memset(pImage, 77, nBytes); });
    Shading shading(m_pDevice);
    shading.ReferenceStart(true);
    shading.SetEnable(true);
    startStream();
    std::atomic<bool> bInside{false}, bGoOn{false};
    Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
        if (rAccess.strNode == XAPEL2::SHADING_NODE_COMMAND && !bInside.exchange(true)) {
            eventually([&] { return bGoOn.load(); });
        }
    });
    Control::HookHold hold(Control::eHookFetch);
    auto call = std::async(std::launch::async, [this] { return fetch(); });
    ASSERT_TRUE(hold.waitUntilHeld(XapelTest::DEADLINE_MS));
    stopAcquisition(m_pStream);
    m_pStream = Control::addFirstStream(m_pDevice);
    startStream(1);
    hold.release();
    EXPECT_TRUE(eventually([&] { return bInside.load(); }));
    EXPECT_EQ(closeDataStream(m_pDevice, m_pStream), 0);
    bGoOn = true;
    EXPECT_EQ(call.get(), 0);
    Control::setNodeObserver(nullptr);
    shading.ReferenceEnd((folder / "light.tif").c_str());
    const std::vector<float> vecSamples = readReferenceFile(folder / "light.tif").vecSamples;
    EXPECT_EQ(vecSamples, std::vector<float>(vecSamples.size(), 77.0F));
    mallopt(M_PERTURB, 0);
}

TEST_F(HostFaults, CancelEndsAFetchOnItsWayToAnotherStream) {
    std::vector<std::string> vecLog;
    CPlain participant(m_pDevice);
    XapelTest::CSpy spy(m_pDevice, "spy", vecLog, {0, true});
    spy.registerParticipant();
    startStream(0);
    Control::HookHold hold(Control::eHookFetch);
    auto call = std::async(std::launch::async, [this] { return fetch(TIMEOUT_INFINITE); });
    ASSERT_TRUE(hold.waitUntilHeld(XapelTest::DEADLINE_MS));
    stopAcquisition(m_pStream);
    m_pStream = Control::addFirstStream(m_pDevice);
    startStream(0);
    XapelTest::HeldCall held(spy);
    hold.release();
    ASSERT_TRUE(held.waitUntilHeld());
    const uint64_t nBefore = Control::calls(Control::eHostCancel);
    auto change = std::async(std::launch::async, [&] { participant.registerParticipantForCalling(); });
    EXPECT_TRUE(eventually([&] { return Control::calls(Control::eHostCancel) > nBefore; }));
    EXPECT_FALSE(ready(change, 30));  // its cancel is over, and it waits
    held.release();
    EXPECT_TRUE(ready(call));
    queueBuffers(1);  // ends it in any case
    EXPECT_EQ(call.get(), GC_ERR_ABORT);
    change.get();
}

TEST_F(HostFaults, HookThatTheHostKeepsNeverMeetsAnotherHub) {
    XAPEL2::Device* const pOther = openDevice("sim:8?width=64&height=48&format=Mono8");
    for (int i = 0; i < 14; ++i) {
        SCOPED_TRACE(i);
        // At the end of a hub, or when a construction that fails takes its hooks back.
        const auto eKind = i < 5 ? Control::eRefuse : Control::eThrowStd;
        Control::inject({static_cast<Control::eHostOp>(Control::eRemoveFetch + i % 5), eKind});
        if (i >= 10) {
            Control::inject({Control::eRegisterOpen, Control::eRefuse});
        }
        try {
            CPlain last(m_pDevice);
        } catch (const XAPEL2::Exceptions::Xapel_ObjectInvalidException&) {
        }
        void* const pContext = Control::hookContexts().at(0);
        for (size_t n = 0; n < 2 * XAPEL_SLOTS_RETIRED_MIN; ++n) {
            CPlain next(pOther);
            ASSERT_EQ(Control::liveHooks(pContext), 1U);
        }
    }
    closeDevice(pOther);
}

}  // namespace
