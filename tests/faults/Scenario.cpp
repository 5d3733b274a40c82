// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The steps of the scenario and the checks after it.

#include "Scenario.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <future>
#include <iterator>
#include <set>

#include "StreamFixture.h"

extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*)());

namespace XapelTest {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

namespace {

constexpr unsigned BUFFERS = 3;
constexpr unsigned CASE_SECONDS = 60;
typedef std::array<uint8_t, 16 * 8> Image;

Image imageOf(uint8_t uEven, uint8_t uOdd) {
    Image image;
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = i % 2 == 0 ? uEven : uOdd;
    return image;
}
const Image RAW = imageOf(80, 120), FLAT = imageOf(100, 100);

void setContent() {
    Control::setFrameContent([](uint64_t, void* pImage, std::size_t nBytes) {
        std::memcpy(pImage, RAW.data(), std::min(nBytes, RAW.size()));
    });
}

const XAPEL2::Test::CTemporaryFolder& folder() {
    // Every run saves a file: in memory, where there is such a folder.
    static const int s_iIgnored = access("/dev/shm", W_OK) == 0 ? setenv("TMPDIR", "/dev/shm", 0) : 0;
    static const XAPEL2::Test::CTemporaryFolder s_Folder;
    static_cast<void>(s_iIgnored);
    return s_Folder;
}

/// A reference of the pattern, recorded once without any fault.
std::string goodReference() {
    static const std::string s_strFile = folder() / "good.tif";
    if (access(s_strFile.c_str(), F_OK) != 0) {
        XAPEL2::Device* pDevice = openDevice("sim:7?width=16&height=8&format=Mono8");
        {
            Shading shading(pDevice);
            Image image = RAW;
            shading.ReferenceStart(true);
            shading.ReferenceAdd("Mono8", 16, 8, image.data(), image.size());
            shading.ReferenceEnd(s_strFile.c_str());
        }
        closeDevice(pDevice);
    }
    return s_strFile;
}

char g_acCase[200] = "no case";

void tellCase() {
    const auto nWritten = write(STDERR_FILENO, g_acCase, std::strlen(g_acCase));
    static_cast<void>(nWritten);
}

/// Whether the library may trace this, or the host.
bool isKnownTrace(const Control::TraceLine& rLine) {
    static const std::set<std::string> s_Known{
        "0 CXapelBypassDevice::; initCallBack called;",
        "0 CXapelBypassDevice::; deInitCallBack called;",
        "0 CExtScShading created;",
        "0 CVexoShadingObj; SetParam called;",
        "0 CVexoShadingObj; GetParam called;",
        "0 CVexoShadingObj; SetEnable called;",
        "0 CExtScShadingObj; initCallBack called;",
        "0 CExtScShadingObj; initCallBack; image callback registered successfully",
        "0 CExtScShadingObj; deInitCallBack called;",
        "0 CExtScShadingObj; deinitCallBack; image callback unregistered successfully",
        "2 CExtScShadingObj; initCallback; unexpected exception occurred;",
        "2 CExtScShadingObj; deinitCallback; unexpected exception occurred;",
        "2 CVexShadingObj; extended_useFilledBuffer; invalid Buffer;",
        "2 XapelBypass; ctor;CXapelBypassDevice The device doesn't support any data streams.",
        "2 XapelBypass; dtor;deInitCallBacks The DataStream object is not valid or is no longer valid",
        "2 XapelBypass; dtor;deInitCallBacks The Device object is not valid or is no longer valid"};
    // Before a caught exception of the host: the function, a blank, the description.
    static const char* const s_aCaught[] = {
        "2 XapelBypass; ctor;",          "2 XapelBypass; dtor;",
        "2 CVexoShadingObj; SetEnable;", "2 CVexoShadingObj; SetParam;",
        "2 CVexoShadingObj; >GetParam;", "2 CVexoShadingObj; extended_useFilledBuffer; "};
    const auto fnIsCaught = [](const std::string& rText) {
        return std::any_of(std::begin(s_aCaught), std::end(s_aCaught), [&rText](const std::string& rPrefix) {
            // "NodeSetInt injected" or "SetInt ShadingWidth: injected".
            const std::string strRest = rText.substr(std::min(rPrefix.size(), rText.size()));
            const std::size_t iBlank = strRest.find(' '), iLast = strRest.rfind(" injected");
            return rText.rfind(rPrefix, 0) == 0 && iBlank != 0 && iLast != std::string::npos &&
                   iLast + 9 == strRest.size() &&
                   (iLast == iBlank || (strRest.compare(iBlank, 8, " Shading") == 0 && strRest[iLast - 1] == ':'));
        });
    };
    static const std::string s_strPrefix = "Extended-API;";
    const std::string strLevel = std::to_string(rLine.iLevel) + " ";
    if (rLine.strText.rfind(s_strPrefix, 0) == 0) {
        const std::string strText = strLevel + rLine.strText.substr(s_strPrefix.size());
        return s_Known.count(strText) != 0 || fnIsCaught(strText);
    }
    return (strLevel + rLine.strText).rfind("2 ImageProcessor; ", 0) == 0 ||
           (strLevel + rLine.strText).rfind("2 the acquisition cannot start: ", 0) == 0;
}

}  // namespace

void beginCase(const std::string& strCase) {
    static const bool s_bOnce = [] {
        // What is called after its end must not look alive.
        mallopt(M_PERTURB, 0x5A);
        const bool bSanitizer = &__sanitizer_set_death_callback != nullptr;  // has handlers of its own
        if (bSanitizer)
            __sanitizer_set_death_callback(&tellCase);
        for (const int iSignal : {SIGALRM, SIGSEGV, SIGABRT}) {
            if (iSignal == SIGALRM || !bSanitizer)
                std::signal(iSignal, [](int iCaught) {
                    tellCase();
                    _exit(128 + iCaught);
                });
        }
        return true;
    }();
    static_cast<void>(s_bOnce);
    std::snprintf(g_acCase, sizeof(g_acCase), "\nended in: %s\n", strCase.c_str());
    alarm(CASE_SECONDS);
}

void endCases() {
    alarm(0);
}

CScenario::CScenario(bool bHolder, std::function<void(bool)> fnArm)
    : m_fnArm(std::move(fnArm)), m_pDevice(openDevice("sim:7?width=16&height=8&format=Mono8")) {
    Control::reset();
    goodReference();
    m_vecStreams.reserve(2);  // a step must not fail for the sake of this list
    m_vecStreams.push_back(firstDataStream(m_pDevice));
    if (bHolder)
        m_pHolder = std::make_unique<CPlain>(m_pDevice);
    setContent();
    Control::recordTraces(true);
}

CScenario::~CScenario() {
    closeDevice(m_pDevice);
    EXPECT_EQ(Control::liveHooks(), 0U);
}

void CScenario::step(const std::function<void()>& fnStep) {
    if (m_fnArm)
        m_fnArm(true);
    try {
        fnStep();
    } catch (const std::exception&) {
    } catch (...) {
        ++m_nBad;
    }
    if (m_fnArm)
        m_fnArm(false);
}

void CScenario::facade(const std::function<void(Shading&)>& fnStep) {
    if (m_pShading != nullptr)
        step([&] { fnStep(*m_pShading); });
}

void CScenario::start() {
    m_bRunning = false;
    openDataStream(m_pDevice, m_vecStreams.back());
    for (unsigned i = 0; i < BUFFERS; ++i) {
        BufferHandle hBuffer = nullptr;
        if (allocAndAnnounceBuffer(m_vecStreams.back(), sizeof(Image), &hBuffer) != 0 ||
            queueBuffer(m_vecStreams.back(), hBuffer) != 0)
            return;
    }
    m_bRunning = startAcquisition(m_vecStreams.back()) == 0;
}

void CScenario::fetch(unsigned nFrames, unsigned long long iTimeoutMs) {
    while (nFrames-- > 0) {
        BufferHandle hBuffer = nullptr;
        try {
            getFilledBuffer(m_vecStreams.back(), &hBuffer, iTimeoutMs);
        } catch (...) {
            m_nBad += hBuffer != nullptr ? 1U : 0U;
            throw;
        }
        if (hBuffer == nullptr)
            continue;
        void* pImage = nullptr;
        unsigned long long nSize = sizeof(pImage);
        getBufferInfo(m_vecStreams.back(), hBuffer, BUFFER_INFO_BASE, nullptr, &pImage, &nSize);
        const bool bRaw = std::memcmp(pImage, RAW.data(), RAW.size()) == 0;
        const bool bFlat = std::memcmp(pImage, FLAT.data(), FLAT.size()) == 0;
        ++(bRaw ? m_nRaw : bFlat ? m_nFlat : m_nBad);
        queueBuffer(m_vecStreams.back(), hBuffer);
    }
}

void CScenario::reopen() {
    // As a participant, so that the host's own information and close functions are called too.
    std::unique_ptr<CPlain> pOther;
    step([&] {
        pOther = std::make_unique<CPlain>(m_pDevice);
        pOther->registerParticipant();
    });
    step([&] {
        uint64_t nValue = 0;
        unsigned long long nSize = sizeof(nValue);
        getStreamInfo(m_vecStreams.back(), STREAM_INFO_NUM_DELIVERED, nullptr, &nValue, &nSize);
    });
    m_bRunning = false;
    step([&] { closeDataStream(m_pDevice, m_vecStreams.back()); });
    step([&] { pOther.reset(); });
    step([&] { m_vecStreams.push_back(Control::addFirstStream(m_pDevice)); });
    step([&] { openDataStream(m_pDevice, m_vecStreams.back()); });
}

void CScenario::disableBesideABlockedFetch() {
    XAPEL2::DataStream* const pStream = m_vecStreams.back();
    stopAcquisition(pStream);
    flushBuffers(pStream);
    auto blocked = std::async(std::launch::async, [&] {
        try {
            fetch(1, 20);
        } catch (const std::exception&) {
        }
    });
    while (!Control::waitForBlockedFetches(pStream, 1, 1) && !ready(blocked, 0)) {
    }
    facade([](Shading& r) { r.SetEnable(false); });
    step([&] { cancelGetFilledBuffer(pStream); });
    blocked.get();
}

void CScenario::run() {
    const std::string strFile = folder() / "own.tif";
    unlink(strFile.c_str());
    const auto fnFetch = [this] {
        for (int i = 0; m_bRunning && i < 2; ++i) step([this] { fetch(1); });
    };
    step([this] { m_pShading = std::make_unique<Shading>(m_pDevice); });
    step([this] { start(); });
    facade([](Shading& r) { r.SetEnable(true); });
    fnFetch();
    facade([](Shading& r) { r.ReferenceStart(true); });
    facade([](Shading& r) { r.SetEnable(true); });
    fnFetch();
    facade([&](Shading& r) { r.ReferenceEnd(strFile.c_str()); });
    facade([&](Shading& r) { r.ReferenceLoad(true, strFile.c_str()); });
    facade([](Shading& r) { r.ReferenceApply(); });
    facade([](Shading& r) { r.SetEnable(true); });
    fnFetch();
    facade([](Shading& r) { r.SetFilter(Shading::eBoxFilter, true, 1); });
    facade([](Shading& r) { r.GetFilter(Shading::eBoxFilter, true); });
    facade([](Shading& r) { r.GetFilterMin(Shading::eBoxFilter, true); });
    facade([](Shading& r) { r.GetFilterMax(Shading::eBoxFilter, true); });
    reopen();
    step([this] { start(); });
    fnFetch();
    disableBesideABlockedFetch();
    step([this] { m_pShading.reset(); });
}

void CScenario::check(bool bFaulty, uint64_t nRefusedHooks) {
    const auto vecTraces = Control::traces();
    Control::reset();
    for (const auto& rLine : vecTraces) EXPECT_TRUE(isKnownTrace(rLine)) << rLine.iLevel << " " << rLine.strText;
    setContent();
    Control::recordTraces(true);
    if (!bFaulty) {
        EXPECT_EQ(m_nRaw, 4U);
        EXPECT_EQ(m_nFlat, 4U);
    }
    EXPECT_EQ(m_pShading, nullptr);
    EXPECT_EQ(m_nBad, 0U);
    if (m_pHolder != nullptr)
        checkHub();
    m_pHolder.reset();
    EXPECT_LE(Control::liveHooks(), nRefusedHooks);
    checkLateCalls();
    const std::size_t nHooks = Control::liveHooks();
    checkFreshFacade();
    EXPECT_LE(Control::liveHooks(), nHooks);
    for (const auto& rLine : Control::traces()) EXPECT_TRUE(isKnownTrace(rLine)) << rLine.strText;
    EXPECT_LE(folder().names().size(), 2U) << "a temporary file stays";
}

// Whoever waits at a gate that was not left waits until the alarm.
void CScenario::checkHub() {
    auto* const pHub = static_cast<CXapelBypassDevice*>(Control::hookContexts().at(0));
    const auto fnInfo = [pHub] { return pHub->getInfo_Callback(STREAM_INFO_ID, nullptr, nullptr, nullptr); };
    EXPECT_EQ(fnInfo(), GC_ERR_NOT_INITIALIZED) << "there is a participant";
    m_pHolder->registerParticipant();
    m_pHolder->unregisterParticipant();
    EXPECT_EQ(fnInfo(), GC_ERR_NOT_INITIALIZED);
    // Whoever is for calling still is called with a frame, dead or alive.
    for (XAPEL2::DataStream* pStream : m_vecStreams) closeDataStream(m_pDevice, pStream);
    start();
    m_nRaw = 0;
    fetch(1);
    EXPECT_EQ(m_nRaw, 1U);
}

void CScenario::checkLateCalls() {
    for (const auto& rHook : Control::registeredHooks()) {
        const CHookCaller caller(rHook);
        const bool bSilent = rHook.eKind == Control::eHookCancel || rHook.eKind == Control::eHookOpen;
        EXPECT_EQ(caller.call(rHook.eKind, m_vecStreams.back()), bSilent ? 0 : GC_ERR_NOT_INITIALIZED);
    }
}

void CScenario::checkFreshFacade() {
    for (XAPEL2::DataStream* pStream : m_vecStreams) closeDataStream(m_pDevice, pStream);
    Shading shading(m_pDevice);
    shading.ReferenceLoad(true, goodReference().c_str());
    shading.ReferenceApply();
    start();
    ASSERT_TRUE(m_bRunning);
    for (const bool bEnable : {false, true}) {
        shading.SetEnable(bEnable);
        // A frame that was filled before keeps what it is: each is read before it is corrected.
        m_nRaw = m_nFlat = 0;
        fetch(2 * BUFFERS);
        EXPECT_EQ(bEnable ? m_nFlat : m_nRaw, 2 * BUFFERS) << "raw " << m_nRaw << ", flat " << m_nFlat;
    }
}

}  // namespace XapelTest
