// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Stress: three cameras, six threads at a time, their roles dealt out anew for every short episode.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <thread>

#include "standin/host/testing/Control.h"

#include "Invariants.h"
#include "TemporaryFolder.h"
#include "XapelBypass.h"

namespace XapelStress {
namespace {

int64_t nowUs() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::microseconds(1);
}

/// The random choices of a thread under stress.
class CWorker {
public:
    explicit CWorker(uint64_t uSeed) : m_random(uSeed) {}
    unsigned pick(unsigned n) { return static_cast<unsigned>(m_random() >> 4) % n; }
    bool oneIn(unsigned n) { return pick(n) == 0; }
    /// Up to a millisecond, often nothing.
    void pause() {
        if (!oneIn(3)) {
            std::this_thread::sleep_for(std::chrono::microseconds(pick(1000)));
        }
    }

private:
    std::minstd_rand m_random;
};

constexpr unsigned TRANSIENT = 2;  // the slot of facades that come and go beside the lasting ones

uint64_t tick() {
    static std::atomic<uint64_t> s_uTick{0};
    return ++s_uTick;
}

template <typename Change>
void changeList(Change fnChange) {
    const int64_t tBegan = nowUs();
    fnChange();
    raiseFigure(eListChangeUs, nowUs() - tBegan);
    ++figure(eListChanges);
}

void require(const CCamera& rCamera, const char* pWhat, int iResult, int iAlsoAllowed) {
    if (iResult != GC_ERR_SUCCESS && iResult != iAlsoAllowed) {
        broken(rCamera.m_strName, pWhat + std::string(" returned ") + std::to_string(iResult));
    }
}

void fetchStep(CWorker& rWorker, CCamera& rCamera, unsigned iFetch) {
    static constexpr unsigned long long TIMEOUTS_MS[] = {0, 1, 5, 20, 50, 50, TIMEOUT_INFINITE, TIMEOUT_INFINITE};
    const unsigned long long iTimeoutMs = TIMEOUTS_MS[rWorker.pick(8)];
    BufferHandle hBuffer = nullptr;
    const CameraLook before(rCamera);
    rCamera.m_atFirstCancel[iFetch] = 0;
    const int64_t tBegan = nowUs();
    const int iResult = getFilledBuffer(rCamera.m_pStream, &hBuffer, iTimeoutMs);
    const int64_t tEnded = nowUs(), tCancel = rCamera.m_atFirstCancel[iFetch];
    checkFetch(rCamera, {before, CameraLook(rCamera), tBegan, tEnded, tCancel, iTimeoutMs, iResult, hBuffer});
    if (iResult == GC_ERR_INVALID_HANDLE || rWorker.oneIn(16)) {
        rWorker.pause();
    }
    if (Pixels* pPixels = rCamera.pixelsOf(hBuffer)) {
        std::fill(pPixels->begin(), pPixels->end(), WIPED);
        require(rCamera, "queueBuffer", queueBuffer(rCamera.m_pStream, hBuffer), GC_ERR_INVALID_HANDLE);
    }
}

void enable(CCamera& rCamera, Slot& rSlot) {
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    rSlot.uEnterBegan = tick();
    changeList([&] { rSlot.pFacade->SetEnable(true); });
    rSlot.uEntered = tick();
    rSlot.bOn = true;
}

void disable(CWorker& rWorker, CCamera& rCamera, Slot& rSlot, unsigned iSlot) {
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    if (rWorker.oneIn(8)) {
        changeList([&] { rSlot.pFacade->ReferenceLoad(true, rCamera.m_aReferences[iSlot].c_str()); });
    } else {
        changeList([&] { rSlot.pFacade->SetEnable(false); });
    }
    rSlot.bOn = false;
}

/// A facade that lives for a moment; with it a hub, where no other facade holds one.
void liveShortly(CWorker& rWorker, CCamera& rCamera, unsigned iSlot) {
    Slot& rSlot = rCamera.m_aSlots[iSlot];
    const bool bEnable = rWorker.oneIn(2);
    rSlot.pFacade = bEnable ? rCamera.makeFacade(iSlot) : std::make_unique<Shading>(rCamera.m_pDevice);
    if (bEnable) {
        enable(rCamera, rSlot);
        rWorker.pause();
    }
    if (bEnable && rWorker.oneIn(2)) {
        disable(rWorker, rCamera, rSlot, iSlot);
    }
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    rSlot.pFacade.reset();
    figure(eListChanges) += rSlot.bOn.exchange(false) ? 1U : 0U;
}

void switchStep(CWorker& rWorker, CCamera& rCamera, unsigned iSlot) {
    Slot& rSlot = rCamera.m_aSlots[iSlot];
    if (!rCamera.m_bFacades) {
        liveShortly(rWorker, rCamera, iSlot);
    } else if (rSlot.bOn) {
        disable(rWorker, rCamera, rSlot, iSlot);
    } else {
        enable(rCamera, rSlot);
    }
    rWorker.pause();
}

/// Carries every call on.
class CGuest final : public CXapelBypass {
public:
    using CXapelBypass::CXapelBypass;
    ~CGuest() { leaveLists(); }
};

void takePart(CWorker& rWorker, CCamera& rCamera) {
    std::optional<CGuest> guest(rCamera.m_pDevice);
    {
        const CChanging ends(rCamera.m_ends);
        changeList([&] { guest->registerParticipant(); });
    }
    rWorker.pause();
    const CChanging ends(rCamera.m_ends);
    if (rWorker.oneIn(2)) {
        changeList([&] { guest->unregisterParticipant(); });
    }
    guest.reset();
}

void createStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    rWorker.oneIn(4) ? takePart(rWorker, rCamera) : liveShortly(rWorker, rCamera, TRANSIENT);
    rWorker.pause();
}

void cancelFetches(CCamera& rCamera) {
    const CChanging ends(rCamera.m_ends);
    for (auto& rFirst : rCamera.m_atFirstCancel) {
        int64_t tNone = 0;
        rFirst.compare_exchange_strong(tNone, nowUs());
    }
    require(rCamera, "cancelGetFilledBuffer", cancelGetFilledBuffer(rCamera.m_pStream), GC_ERR_INVALID_HANDLE);
}

void cancelStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    cancelFetches(rCamera);
    uint64_t nValue = 0;
    unsigned long long nSize = sizeof(nValue);
    const int iInfo = getStreamInfo(rCamera.m_pStream, STREAM_INFO_NUM_DELIVERED, nullptr, &nValue, &nSize);
    require(rCamera, "getStreamInfo", iInfo, GC_ERR_INVALID_HANDLE);
    rWorker.pause();
    rWorker.pause();
}

/// Writes filters of the dark reference alone: there is none, so the gains stay when they are applied.
void filterStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    const CChanging ends(rCamera.m_ends);  // a facade of its own, which may be a hub's last
    const auto pOwn = rCamera.m_bFacades ? nullptr : std::make_unique<Shading>(rCamera.m_pDevice);
    Shading& rFacade = pOwn ? *pOwn : *rCamera.m_aSlots[rWorker.pick(2)].pFacade;
    const auto eType = rWorker.oneIn(2) ? Shading::eBoxFilter : Shading::eMedianFilter;
    const unsigned uRadius = rWorker.pick(32);
    rFacade.SetFilter(eType, false, uRadius);
    if (rFacade.GetFilter(eType, false) != static_cast<int>(uRadius) || rFacade.GetFilter(eType, true) != 0 ||
        rFacade.GetFilterMax(eType, rWorker.oneIn(2)) != 31) {
        broken("filter", "a value is wrong");
    }
    rWorker.pause();
}

void reopenStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    const std::string strWrong = rCamera.reopen();
    if (!strWrong.empty()) {
        broken(rCamera.m_strName, "cannot open its stream again: " + strWrong);
    }
    rWorker.pause();
    rWorker.pause();
}

/// A part that a thread plays on one camera, step after step until the episode ends.
struct Role {
    const char* pName;
    unsigned iInstance;  ///< tells two of one kind apart
    void (*pfnStep)(CWorker&, CCamera&, unsigned iInstance);
};

/// All may run at the same time, on one camera or on several. Those that fetch come first.
constexpr unsigned FETCHES = 2;
const Role ROLES[] = {{"fetch", 0, fetchStep},   {"fetch", 1, fetchStep},   {"switch", 0, switchStep},
                      {"switch", 1, switchStep}, {"create", 0, createStep}, {"reopen", 0, reopenStep},
                      {"cancel", 0, cancelStep}, {"filter", 0, filterStep}};

constexpr unsigned CAMERAS = 3, THREADS = 6, LIMIT_SECONDS = 30;
constexpr auto EPISODE = std::chrono::milliseconds(100);

struct Part {
    const Role* pRole;
    unsigned iCamera;
};

/// The fetches and four of the other roles, each on a camera of its own choice, which for others than fetches is more
/// often than not one where frames are fetched.
std::vector<Part> dealOut(std::mt19937_64& rRandom) {
    std::vector<Part> vecParts;
    for (const Role& rRole : ROLES) {
        vecParts.push_back({&rRole, static_cast<unsigned>(rRandom() % CAMERAS)});
    }
    std::shuffle(vecParts.begin() + FETCHES, vecParts.end(), rRandom);
    vecParts.resize(THREADS);
    for (unsigned i = FETCHES; i < THREADS; ++i) {
        if (rRandom() % 3 != 0) {
            vecParts[i].iCamera = vecParts[rRandom() % FETCHES].iCamera;
        }
    }
    return vecParts;
}

void play(const Part& rPart, CCamera& rCamera, uint64_t uSeed, const std::atomic<bool>& rEnd,
          std::atomic<unsigned>& rnLeft) {
    const std::string strName = rPart.pRole->pName + (" on " + rCamera.m_strName);
    CWorker worker(uSeed);
    try {
        while (!rEnd) {
            rPart.pRole->pfnStep(worker, rCamera, rPart.pRole->iInstance);
        }
    } catch (const std::exception& rError) {
        broken(strName, rError.what());
    }
    --rnLeft;
}

void runEpisode(std::mt19937_64& rRandom, const Cameras& rCameras) {
    alarm(LIMIT_SECONDS);  // whatever hangs hangs an episode
    const std::vector<Part> vecParts = dealOut(rRandom);
    for (const auto& rpCamera : rCameras) {
        rpCamera->m_bHubMissesOpening =
            !rpCamera->m_bFacades && std::any_of(vecParts.begin(), vecParts.end(), [&](const Part& r) {
                return r.iCamera == rpCamera->m_iCamera && r.pRole->pfnStep == reopenStep;
            });
        rpCamera->m_nFrames = rRandom() % 4 == 0 ? 20 : ~0ULL;  // then fetches wait until something ends them
        if (!rpCamera->restart().empty()) {
            broken("main", "a stream cannot be opened");
        }
    }
    std::atomic<bool> bEnd{false};
    std::atomic<unsigned> nLeft{THREADS};
    std::vector<std::thread> vecThreads;
    for (const Part& rPart : vecParts) {
        const uint64_t uSeed = rRandom();
        vecThreads.emplace_back([&, uSeed, part = rPart] { play(part, *rCameras[part.iCamera], uSeed, bEnd, nLeft); });
    }
    std::this_thread::sleep_for(EPISODE);
    bEnd = true;
    for (; nLeft != 0; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        for (const auto& rpCamera : rCameras) {
            cancelFetches(*rpCamera);
        }
    }
    for (std::thread& rThread : vecThreads) {
        rThread.join();
    }
    checkEpisode(rCameras);
}

void run(unsigned nSeconds, uint64_t uSeed, const std::vector<uint64_t>& rRequired) {
    const XAPEL2::Test::CTemporaryFolder folder;
    std::mt19937_64 random(uSeed);
    Control::recordTraces(true);  // recorded, so not printed
    Cameras vecCameras;
    for (unsigned i = 0; i < CAMERAS; ++i) {
        vecCameras.push_back(std::make_unique<CCamera>(i, folder.path().string(), i + 1 < CAMERAS));
    }
    Control::setBufferFaults([](uint64_t i) { return isIncomplete(i) ? Control::eIncomplete : Control::eGood; });
    Control::setFrameContent([&](uint64_t iFrame, void* pImage, std::size_t nBytes) {
        for (const auto& rpCamera : vecCameras) {
            const Pixels vecPixels = rpCamera->m_frames.raw({rpCamera->m_uEpoch, iFrame});
            if (rpCamera->m_frames.m_layout.bytes() == nBytes) {
                std::copy(vecPixels.begin(), vecPixels.end(), static_cast<uint16_t*>(pImage));
            }
        }
    });
    const int64_t tEnd = nowUs() + static_cast<int64_t>(nSeconds) * 1000000;
    while (nowUs() < tEnd && figure(eBroken) == 0) {
        runEpisode(random, vecCameras);
    }
    checkRun();
    const uint64_t reached[] = {figure(eFrames), figure(eListChanges), figure(eHubLives)};
    for (std::size_t i = 0; i < rRequired.size(); ++i) {
        if (reached[i] < rRequired[i]) {
            broken("run", "less was reached than required");
        }
    }
}

}  // namespace
}  // namespace XapelStress

int main(int argc, char** argv) {
    CLI::App app("Stress of the library by six threads on three cameras");
    unsigned nSeconds = 10;
    uint64_t uSeed = std::random_device{}();
    std::vector<uint64_t> vecRequired;
    app.add_option("--seconds", nSeconds, "How long to run");
    app.add_option("--seed", uSeed, "Of the roles and what they choose (default: random)");
    app.add_option("--require", vecRequired, "Least frames, list changes and lives of hubs")->expected(3);
    CLI11_PARSE(app, argc, argv);
    std::printf("seed %llu\n", static_cast<unsigned long long>(uSeed));
    std::fflush(stdout);
    std::signal(SIGALRM, [](int) {
        static const char s_acHang[] = "broken: hang\n";
        static_cast<void>(write(STDERR_FILENO, s_acHang, sizeof(s_acHang) - 1) != 0);
        std::abort();  // what each thread waits for stands in the core
    });
    XapelStress::run(nSeconds, uSeed, vecRequired);
    XapelStress::printFigures();
    std::printf("seed %llu\n", static_cast<unsigned long long>(uSeed));
    return XapelStress::figure(XapelStress::eBroken) == 0 ? 0 : 1;
}
