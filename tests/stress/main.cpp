// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Stress: three cameras, six threads at a time, their roles dealt out anew for every short episode.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <thread>

#include "xapel2_standin/Control.h"

#include "Invariants.h"
#include "Roles.h"
#include "TemporaryFolder.h"

namespace XapelStress {
namespace {

constexpr unsigned CAMERAS = 3, THREADS = 6;
constexpr auto EPISODE = std::chrono::milliseconds(100);

struct Part {
    const Role* pRole;
    unsigned iCamera;
};

/// The fetches and four of the other roles, each on a camera of its own choice, which for others than fetches is more
/// often than not one where frames are fetched.
std::vector<Part> dealOut(std::mt19937_64& rRandom) {
    std::vector<Part> parts;
    for (const Role& rRole : roles()) parts.push_back({&rRole, static_cast<unsigned>(rRandom() % CAMERAS)});
    std::shuffle(parts.begin() + FETCHES, parts.end(), rRandom);
    parts.resize(THREADS);
    for (unsigned i = FETCHES; i < THREADS; ++i) {
        if (rRandom() % 3 != 0)
            parts[i].iCamera = parts[rRandom() % FETCHES].iCamera;
    }
    return parts;
}

void play(const Part& rPart, CCamera& rCamera, uint64_t uSeed, const std::atomic<bool>& rEnd,
          std::atomic<unsigned>& rnLeft) {
    const std::string strName = rPart.pRole->pName + (" on " + rCamera.m_strName);
    CWorker worker(strName, uSeed);
    try {
        while (!rEnd) rPart.pRole->pfnStep(worker, rCamera, rPart.pRole->iInstance);
    } catch (const std::exception& rError) {
        broken(strName, rError.what());
    }
    --rnLeft;
}

void runEpisode(std::mt19937_64& rRandom, const Cameras& rCameras, CWorker& rMain) {
    const std::vector<Part> parts = dealOut(rRandom);
    for (const auto& rpCamera : rCameras) {
        rpCamera->m_bHubMissesOpening =
            !rpCamera->m_bFacades && std::any_of(parts.begin(), parts.end(), [&](const Part& r) {
                return r.iCamera == rpCamera->m_iCamera && r.pRole->pfnStep == reopenStep;
            });
        rpCamera->m_nFrames = rRandom() % 4 == 0 ? 20 : ~0ULL;  // then fetches wait until something ends them
        if (!rpCamera->restart().empty())
            broken("main", "a stream cannot be opened");
    }
    std::atomic<bool> bEnd{false};
    std::atomic<unsigned> nLeft{THREADS};
    std::vector<std::thread> threads;
    for (const Part& rPart : parts) {
        const uint64_t uSeed = rRandom();
        threads.emplace_back([&, uSeed, part = rPart] { play(part, *rCameras[part.iCamera], uSeed, bEnd, nLeft); });
    }
    std::this_thread::sleep_for(EPISODE);
    bEnd = true;
    for (; nLeft != 0; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        for (const auto& rpCamera : rCameras) cancelFetches(rMain, *rpCamera);
    }
    for (std::thread& rThread : threads) rThread.join();
    checkEpisode(rCameras);
}

void run(unsigned nSeconds, uint64_t uSeed, const std::vector<uint64_t>& rRequired) {
    const XAPEL2::Test::CTemporaryFolder folder;
    CWorker worker("main", uSeed);
    std::mt19937_64 random(uSeed);
    Control::recordTraces(true);  // recorded, so not printed
    Cameras cameras;
    for (unsigned i = 0; i < CAMERAS; ++i)
        cameras.push_back(std::make_unique<CCamera>(i, folder.path().string(), i + 1 < CAMERAS));
    Control::setBufferFaults([](uint64_t i) { return isIncomplete(i) ? Control::eIncomplete : Control::eGood; });
    Control::setFrameContent([&](uint64_t iFrame, void* pImage, std::size_t nBytes) {
        for (const auto& rpCamera : cameras) {
            const Pixels pixels = rpCamera->m_frames.raw({rpCamera->m_uEpoch, iFrame});
            if (rpCamera->m_frames.m_layout.bytes() == nBytes)
                std::copy(pixels.begin(), pixels.end(), static_cast<uint16_t*>(pImage));
        }
    });
    const int64_t tEnd = nowUs() + static_cast<int64_t>(nSeconds) * 1000000;
    while (nowUs() < tEnd && figure(eBroken) == 0) runEpisode(random, cameras, worker);
    checkRun();
    const uint64_t reached[] = {figure(eFrames), figure(eListChanges), figure(eHubLives)};
    for (std::size_t i = 0; i < rRequired.size(); ++i) {
        if (reached[i] < rRequired[i])
            broken("run", "less was reached than required");
    }
}

}  // namespace
}  // namespace XapelStress

int main(int argc, char** argv) {
    CLI::App app("Stress of the library by six threads on three cameras");
    unsigned nSeconds = 10;
    uint64_t uSeed = std::random_device{}();
    std::vector<uint64_t> required;
    app.add_option("--seconds", nSeconds, "How long to run");
    app.add_option("--seed", uSeed, "Of the roles and what they choose (default: random)");
    app.add_option("--require", required, "Least frames, list changes and lives of hubs")->expected(3);
    CLI11_PARSE(app, argc, argv);
    std::printf("seed %llu\n", static_cast<unsigned long long>(uSeed));
    std::fflush(stdout);
    XapelStress::startWatchdog(uSeed);
    XapelStress::run(nSeconds, uSeed, required);
    XapelStress::printFigures();
    std::printf("seed %llu\n", static_cast<unsigned long long>(uSeed));
    return XapelStress::figure(XapelStress::eBroken) == 0 ? 0 : 1;
}
