// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// One life of a facade on a camera of its own, in steps that may fail, and what must hold after it.

#pragma once

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "xapel2_ext_sc.h"

#include "Participants.h"
#include "StreamFixture.h"
#include "TemporaryFolder.h"
#include "XapelBypassDevice.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XapelTest {

using namespace XAPEL2::StandIn;
using XAPEL2::Ext::Sc::Shading;

constexpr unsigned BUFFERS = 3;
constexpr unsigned CASE_SECONDS = 60;
typedef std::array<uint8_t, 16 * 8> Image;

inline Image imageOf(uint8_t uEven, uint8_t uOdd) {
    Image image;
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = i % 2 == 0 ? uEven : uOdd;
    }
    return image;
}
const Image RAW = imageOf(80, 120), FLAT = imageOf(100, 100);

inline void setContent() {
    Control::setFrameContent([](uint64_t, void* pImage, std::size_t nBytes) {
        std::memcpy(pImage, RAW.data(), std::min(nBytes, RAW.size()));
    });
}

inline const XAPEL2::Test::CTemporaryFolder& folder() {
    // Every run saves a file: in memory, where there is such a folder.
    static const int s_iIgnored = access("/dev/shm", W_OK) == 0 ? setenv("TMPDIR", "/dev/shm", 0) : 0;
    static const XAPEL2::Test::CTemporaryFolder s_folder;
    static_cast<void>(s_iIgnored);
    return s_folder;
}

/// A file with a reference of the pattern.
inline std::string goodReference() {
    static const std::string s_strFile = [] {
        const std::string strFile = folder() / "good.tif";
        writeReferenceFile(strFile, {eReferenceLight,
                                     {findPixelFormat("Mono8"), 16, 8},
                                     1,
                                     0,
                                     100,
                                     0,
                                     "",
                                     std::vector<float>(RAW.begin(), RAW.end())});
        return strFile;
    }();
    return s_strFile;
}

inline char g_acCase[200];

/// Whether the library may trace this, or the host.
inline bool isKnownTrace(const Control::TraceLine& rLine) {
    static const std::set<std::string> s_known{
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
    static const std::string s_strPrefix = "Extended-API;", s_strInjected = " injected";
    std::string strText = rLine.strText;
    if (strText.rfind(s_strPrefix, 0) == 0) {
        strText.erase(0, s_strPrefix.size());
    }
    strText = std::to_string(rLine.iLevel) + " " + strText;
    const auto fnBegins = [&strText](const char* pText) { return strText.rfind(pText, 0) == 0; };
    // Caught exceptions of the host.
    for (const char* pText : {"2 XapelBypass; ctor;", "2 XapelBypass; dtor;", "2 CVexoShadingObj; SetEnable;",
                              "2 CVexoShadingObj; SetParam;", "2 CVexoShadingObj; >GetParam;",
                              "2 CVexoShadingObj; extended_useFilledBuffer; "}) {
        if (fnBegins(pText) && strText.find(s_strInjected) == strText.size() - s_strInjected.size()) {
            return true;
        }
    }
    return s_known.count(strText) != 0 || fnBegins("2 ImageProcessor; ") ||
           fnBegins("2 the acquisition cannot start: ");
}

/// What a hang of the program is said to have happened in; it ends the program.
inline void beginCase(const std::string& strCase) {
    static const int s_iPerturbed = mallopt(M_PERTURB, 0x5A);  // what is called after its end must not look alive
    static_cast<void>(s_iPerturbed);
    std::snprintf(g_acCase, sizeof(g_acCase), "\nhangs in: %s\n", strCase.c_str());
    std::signal(SIGALRM, [](int iSignal) {
        _exit(write(STDERR_FILENO, g_acCase, std::strlen(g_acCase)) < 0 ? 2 : 128 + iSignal);
    });
    alarm(CASE_SECONDS);
}

/// Every frame of the camera is a pattern that a light reference of it makes flat. After run() every frame that came
/// was wholly the one or wholly the other.
class CScenario {
public:
    /// @param[in] bHolder  another participant holds the device's hub before, during and after the scenario.
    /// @param[in] fnArm    called with true before and with false after each step; null: nothing.
    explicit CScenario(bool bHolder, std::function<void(bool)> fnArm = nullptr)
        : m_fnArm(std::move(fnArm)), m_pDevice(openDevice("sim:7?width=16&height=8&format=Mono8")) {
        Control::reset();
        goodReference();
        m_vecStreams.reserve(2);  // a step must not fail for the sake of this list
        m_vecStreams.push_back(firstDataStream(m_pDevice));
        if (bHolder) {
            m_pHolder = std::make_unique<CPlain>(m_pDevice);
        }
        setContent();
        Control::recordTraces(true);
    }
    ~CScenario() {
        closeDevice(m_pDevice);
        EXPECT_EQ(Control::liveHooks(), 0U);
    }
    CScenario(const CScenario&) = delete;
    CScenario& operator=(const CScenario&) = delete;

    /// Construct, enable, fetch, record, load, apply, filter, re-open, disable, destroy. Exceptions end their step
    /// only.
    void run() {
        const std::string strFile = folder() / "own.tif";
        unlink(strFile.c_str());
        const auto fnFetch = [this] {
            for (int i = 0; m_bRunning && i < 2; ++i) {
                step([this] { fetch(1); });
            }
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

    /// Switches all faults off and looks at what is left.
    /// @param[in] bFaulty       a fault hit, so steps may have failed.
    /// @param[in] nRefusedHooks removals of hooks that the host refused: so many may be left, of hubs that are gone.
    void check(bool bFaulty, uint64_t nRefusedHooks) {
        const auto vecTraces = Control::traces();
        Control::reset();
        for (const auto& rLine : vecTraces) {
            EXPECT_TRUE(isKnownTrace(rLine)) << rLine.iLevel << " " << rLine.strText;
        }
        setContent();
        Control::recordTraces(true);
        if (!bFaulty) {
            EXPECT_EQ(m_nRaw, 4U);
            EXPECT_EQ(m_nFlat, 4U);
        }
        EXPECT_EQ(m_pShading, nullptr);
        EXPECT_EQ(m_nBad, 0U);
        if (m_pHolder != nullptr) {
            checkHub();
        }
        m_pHolder.reset();
        EXPECT_LE(Control::liveHooks(), nRefusedHooks);
        checkLateCalls();
        const std::size_t nHooks = Control::liveHooks();
        checkFreshFacade();
        EXPECT_LE(Control::liveHooks(), nHooks);
        for (const auto& rLine : Control::traces()) {
            EXPECT_TRUE(isKnownTrace(rLine)) << rLine.strText;
        }
        EXPECT_LE(folder().names().size(), 2U) << "a temporary file stays";
    }

private:
    void step(const std::function<void()>& fnStep) {
        if (m_fnArm) {
            m_fnArm(true);
        }
        try {
            fnStep();
        } catch (const std::exception&) {
        } catch (...) {
            ++m_nBad;
        }
        if (m_fnArm) {
            m_fnArm(false);
        }
    }

    void facade(const std::function<void(Shading&)>& fnStep) {
        if (m_pShading != nullptr) {
            step([&] { fnStep(*m_pShading); });
        }
    }

    void start() {
        m_bRunning = false;
        openDataStream(m_pDevice, m_vecStreams.back());
        for (unsigned i = 0; i < BUFFERS; ++i) {
            BufferHandle hBuffer = nullptr;
            if (allocAndAnnounceBuffer(m_vecStreams.back(), sizeof(Image), &hBuffer) != 0 ||
                queueBuffer(m_vecStreams.back(), hBuffer) != 0) {
                return;
            }
        }
        m_bRunning = startAcquisition(m_vecStreams.back()) == 0;
    }

    void fetch(unsigned nFrames, unsigned long long iTimeoutMs = 5000) {
        while (nFrames-- > 0) {
            BufferHandle hBuffer = nullptr;
            try {
                getFilledBuffer(m_vecStreams.back(), &hBuffer, iTimeoutMs);
            } catch (...) {
                m_nBad += hBuffer != nullptr ? 1U : 0U;
                throw;
            }
            if (hBuffer == nullptr) {
                continue;
            }
            void* pImage = nullptr;
            unsigned long long nSize = sizeof(pImage);
            getBufferInfo(m_vecStreams.back(), hBuffer, BUFFER_INFO_BASE, nullptr, &pImage, &nSize);
            const bool bRaw = std::memcmp(pImage, RAW.data(), RAW.size()) == 0;
            const bool bFlat = std::memcmp(pImage, FLAT.data(), FLAT.size()) == 0;
            ++(bRaw ? m_nRaw : bFlat ? m_nFlat : m_nBad);
            queueBuffer(m_vecStreams.back(), hBuffer);
        }
    }

    void reopen() {
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

    void disableBesideABlockedFetch() {
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

    // Whoever waits at a gate that was not left waits until the alarm.
    void checkHub() {
        auto* const pHub = static_cast<CXapelBypassDevice*>(Control::hookContexts().at(0));
        const auto fnInfo = [pHub] { return pHub->getInfo_Callback(STREAM_INFO_ID, nullptr, nullptr, nullptr); };
        EXPECT_EQ(fnInfo(), GC_ERR_NOT_INITIALIZED) << "there is a participant";
        m_pHolder->registerParticipant();
        m_pHolder->unregisterParticipant();
        EXPECT_EQ(fnInfo(), GC_ERR_NOT_INITIALIZED);
        // Whoever is for calling still is called with a frame, dead or alive.
        for (XAPEL2::DataStream* pStream : m_vecStreams) {
            closeDataStream(m_pDevice, pStream);
        }
        start();
        m_nRaw = 0;
        fetch(1);
        EXPECT_EQ(m_nRaw, 1U);
    }

    void checkLateCalls() {
        for (const auto& rHook : Control::registeredHooks()) {
            const CHookCaller caller(rHook);
            void* pBuffer = nullptr;
            const std::function<int()> calls[] = {[&] { return caller.fetch(&pBuffer, 0); },
                                                  [&] { return caller.cancel(); }, [&] { return caller.info(); },
                                                  [&] { return caller.close(m_vecStreams.back()); },
                                                  [&] { return caller.open(); }};
            const bool bSilent = rHook.eKind == Control::eHookCancel || rHook.eKind == Control::eHookOpen;
            EXPECT_EQ(calls[rHook.eKind](), bSilent ? 0 : GC_ERR_NOT_INITIALIZED);
        }
    }

    void checkFreshFacade() {
        for (XAPEL2::DataStream* pStream : m_vecStreams) {
            closeDataStream(m_pDevice, pStream);
        }
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

    const std::function<void(bool)> m_fnArm;
    XAPEL2::Device* m_pDevice;
    std::vector<XAPEL2::DataStream*> m_vecStreams;  // the last one is the one in use
    std::unique_ptr<CPlain> m_pHolder;
    std::unique_ptr<Shading> m_pShading;
    bool m_bRunning = false;  // every buffer is queued and the camera fills them
    unsigned m_nBad = 0;      // frames neither raw nor flat, exceptions of an unknown type
    unsigned m_nRaw = 0, m_nFlat = 0;
};

}  // namespace XapelTest
