// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// choice-bench: how good the choice of a kernel is that a correction makes by measuring.
//
// All variants of a kernel correct the same ring of buffers in interleaved rounds. Beside them a choice is made anew
// for each run, and held against the variant that turned out to be the fastest in that run.

#include <algorithm>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "HugeMemory.h"
#include "Rounds.h"
#include "Scene.h"
#include "standin/processor/correction/KernelChoice.h"

namespace {

using namespace XapelBench;
using namespace XAPEL2::StandIn;

struct Group {
    const char* pName;
    uint64_t nWidth;
    uint64_t nHeight;
    std::size_t nBuffers;
    bool bQuick;
};
constexpr Group GROUPS[] = {
    {"vga-ring", 640, 480, 16, true}, {"5mp-ring", 2448, 2048, 8, false}, {"26mp-ring", 5120, 5120, 4, false}};
constexpr const char* FORMATS[][2] = {
    {"mono8", "Mono8"}, {"mono12", "Mono12"}, {"mono16", "Mono16"}, {"mono12p", "Mono12p"}};

uint64_t threadTime() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000U + static_cast<uint64_t>(time.tv_nsec);
}

struct Tally {
    std::size_t nRuns = 0;
    std::size_t nWithin = 0;
    double dWorst = 1.0;
    double dMost = 0.0;  // time of a choice, ms
};

void bench(const Options& rOptions, const Group& rGroup, const char* const* pFormat, Tally& rTally) {
    const ImageLayout layout{findPixelFormat(pFormat[1]), rGroup.nWidth, rGroup.nHeight};
    const CScene scene(layout);
    const CorrectionTable table = makeTable(CFormula(layout, &scene.dark(), &scene.light()));
    const std::size_t nStep = scene.image().size() / 64 * 64 + 21 * 64;
    const CHugeMemory memory(rGroup.nBuffers * nStep);
    const KernelTarget& rTarget = kernelTargets().front();
    const std::vector<KernelVariant> vecVariants = rTarget.variants(table.layout);
    std::size_t iNext = 0;
    const unsigned nRuns = rOptions.bQuick ? 1 : rOptions.nRounds;
    for (unsigned iRun = 0; iRun < nRuns; ++iRun) {
        CKernelChoice choice(threadTime);
        const uint64_t uBegin = threadTime();
        const ChosenKernel chosen = choice.choose(rTarget, table, layout.samples());
        const double dMs = static_cast<double>(threadTime() - uBegin) / 1e6;
        Options options = rOptions;
        options.nRounds = rOptions.bQuick ? 1 : 9;
        CRounds rounds(options);
        std::vector<std::size_t> vecAll;
        std::size_t iChosen = 0;
        for (const KernelVariant& rVariant : vecVariants) {
            const std::size_t i =
                rounds.add({rTarget.name(rVariant.way),
                            [&, rVariant](uint64_t nTimes) {
                                for (uint64_t k = 0; k < nTimes; ++k) {
                                    CChunks chunks(table, memory.data() + iNext++ % rGroup.nBuffers * nStep,
                                                   layout.samples(), rVariant.way.blocksAhead(table.layout));
                                    rVariant.fnKernel(chunks);
                                }
                            },
                            [&] {
                                for (std::size_t k = 0; k < rGroup.nBuffers; ++k) {
                                    std::memcpy(memory.data() + k * nStep, scene.image().data(), scene.image().size());
                                }
                            },
                            rGroup.nBuffers});
            vecAll.push_back(i);
            if (rVariant.fnKernel == chosen.variant.fnKernel &&
                rVariant.way.eDistance == chosen.variant.way.eDistance) {
                iChosen = i;
            }
        }
        rounds.run();
        const std::size_t iBest = rounds.fastest(vecAll);
        const double dRatio = rounds.ns(iChosen) / rounds.ns(iBest);
        if (iRun == 0) {
            note(rOptions, "%s/%s: %s", rGroup.pName, pFormat[0], table.layout.description().c_str());
            for (const std::size_t i : vecAll) {
                note(rOptions, "    %-16s %.3f of the best", rounds.name(i).c_str(), rounds.ns(i) / rounds.ns(iBest));
            }
        }
        note(rOptions, "    run %u: chose %s (%s) in %.2f ms, best %s, %.3f of it", iRun, rounds.name(iChosen).c_str(),
             chosen.strWhy.c_str(), dMs, rounds.name(iBest).c_str(), dRatio);
        ++rTally.nRuns;
        rTally.nWithin += dRatio <= 1.05;
        rTally.dWorst = std::max(rTally.dWorst, dRatio);
        rTally.dMost = std::max(rTally.dMost, dMs);
    }
}

void bench(const Options& rOptions) {
    for (const auto& rFormat : FORMATS) {
        for (const Group& rGroup : GROUPS) {
            if (!isListed(rOptions.strGroups, rGroup.pName) || !isListed(rOptions.strFormats, rFormat[0]) ||
                (rOptions.bQuick && !rGroup.bQuick)) {
                continue;
            }
            Tally tally;
            bench(rOptions, rGroup, rFormat, tally);
            note(rOptions, "choice at %s/%s: within 5 %% of the best in %zu of %zu runs, worst %.2f, at most %.1f ms",
                 rGroup.pName, rFormat[0], tally.nWithin, tally.nRuns, tally.dWorst, tally.dMost);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return guarded(argc, argv, bench);
}
