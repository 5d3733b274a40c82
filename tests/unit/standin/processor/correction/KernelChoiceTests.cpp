// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The choice of a kernel by measurement: what it follows, that it ends, that it is made once.

#include "standin/processor/correction/KernelChoice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <thread>

#include "TestImages.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

/// A target whose variants differ in the time that a clock says they take.
uint64_t g_uNow = 0;  // ns
std::size_t g_nBlocksDone = 0;
std::array<uint64_t, 3> g_aPerRun = {};

template <std::size_t VARIANT>
void run(CChunks& rChunks) {
    while (rChunks.next()) {
        g_nBlocksDone += rChunks.blocks();
    }
    g_uNow += g_aPerRun[VARIANT];
}

KernelVariant variantOf(const TableLayout&, const KernelWay& rWay) {
    const KernelWay way = {64, rWay.eDistance};
    return {way, rWay.eDistance == eAheadNone ? run<0> : rWay.eDistance == eAheadNear ? run<1> : run<2>};
}

const KernelTarget TARGET = {"test", variantOf};

CorrectionTable tableOf(std::size_t nWidth, std::size_t nHeight) {
    const ImageLayout layout = layoutOf("Mono8", nWidth, nHeight);
    const std::vector<float> vecDark(layout.samples(), 2.0F);
    return makeTable(CFormula(layout, &vecDark, nullptr));
}

ChosenKernel chosenWith(const std::function<uint64_t()>& fnNow, std::array<uint64_t, 3> aPerRun, std::size_t nWidth,
                        std::size_t nHeight) {
    g_uNow = 1000;
    g_nBlocksDone = 0;
    g_aPerRun = aPerRun;
    CKernelChoice choice(fnNow);
    const CorrectionTable table = tableOf(nWidth, nHeight);
    return choice.choose(TARGET, table, nWidth * nHeight);
}

TEST(KernelChoice, TakesTheFastestAndTheFirstOfEquals) {
    const auto fnNow = [] { return g_uNow; };
    for (const auto& [aPerRun, eWanted] : {std::pair(std::array<uint64_t, 3>{900, 800, 700}, eAheadFar),
                                           std::pair(std::array<uint64_t, 3>{900, 700, 800}, eAheadNear),
                                           std::pair(std::array<uint64_t, 3>{700, 800, 900}, eAheadNone),
                                           std::pair(std::array<uint64_t, 3>{1200, 900, 700}, eAheadFar),
                                           std::pair(std::array<uint64_t, 3>{900, 700, 1200}, eAheadNear),
                                           std::pair(std::array<uint64_t, 3>{725, 703, 700}, eAheadNone)}) {
        for (const std::size_t nHeight : {1U, 10U, 4000U}) {
            EXPECT_EQ(chosenWith(fnNow, aPerRun, 1000, nHeight).variant.way.eDistance, eWanted) << nHeight;
        }
    }
}

// Whatever that one says.
TEST(KernelChoice, TakesTheFirstWhereThereIsNoTimeForTwoRounds) {
    const auto fnNow = [] { return g_uNow; };
    EXPECT_EQ(chosenWith(fnNow, {900000, 300000, 300000}, 1000, 1000).variant.way.eDistance, eAheadNone);
}

// A variant that is slow now and then, as when another program has had the processor, is not the slower one.
TEST(KernelChoice, LooksAtTheMiddleOfManyRounds) {
    std::size_t nCalls = 0;
    const auto fnNow = [&] { return g_uNow += ++nCalls % 21 == 0 ? 100000 : 0; };
    EXPECT_EQ(chosenWith(fnNow, {900, 800, 700}, 1000, 1000).variant.way.eDistance, eAheadFar);
}

TEST(KernelChoice, EndsInTimeWhateverTheClockSays) {
    const std::size_t nSampleBlocks = CKernelChoice::SAMPLE_BYTES / (64 * 4);
    const auto fnNow = [] { return g_uNow; };
    // As fast as it may be, or so slow that the time is over: in the course of rounds, or of the first sample.
    for (const uint64_t uPerRun : {100U, 30000U, 200000U, 1400000U, 50000000U}) {
        chosenWith(fnNow, {uPerRun, uPerRun, uPerRun}, 1000, 1000);
        EXPECT_LE(g_uNow - 1000, std::max(CKernelChoice::BUDGET_NS, uPerRun + 1)) << uPerRun;
        EXPECT_LE(g_nBlocksDone, CKernelChoice::ROUNDS_MAX * 3 * nSampleBlocks) << uPerRun;
        EXPECT_GT(g_uNow, 1000U);
    }
    uint64_t uHostile = uint64_t{1} << 40;
    std::size_t nCalls = 0;
    const std::array<std::pair<const char*, std::function<uint64_t()>>, 5> aClocks = {{
        {"stands still", [] { return uint64_t{5}; }},
        {"runs backwards", [&] { return uHostile -= 1000; }},
        {"leaps forward", [&] { return uHostile += 1000000000; }},
        {"leaps back now and then", [&] { return uHostile += ++nCalls % 5 == 0 ? uint64_t{0} - 5000000 : 1000; }},
        {"wraps", [&] { return nCalls++ < 9 ? ~uint64_t{0} : uint64_t{nCalls}; }},
    }};
    for (const auto& [pName, fnClock] : aClocks) {
        const ChosenKernel chosen = chosenWith(fnClock, {900, 800, 700}, 1000, 1000);
        EXPECT_NE(chosen.variant.fnKernel, nullptr) << pName;
        EXPECT_LE(g_nBlocksDone, CKernelChoice::ROUNDS_MAX * 3 * nSampleBlocks) << pName;
        if (std::string(pName) == "stands still" || std::string(pName) == "runs backwards") {
            EXPECT_EQ(chosen.variant.way.eDistance, eAheadNone) << pName;
            EXPECT_EQ(chosen.strWhy, "not measured: no time, or no clock") << pName;
        }
    }
}

TEST(KernelChoice, IsMadeOnceForEachSizeClass) {
    g_aPerRun = {900, 800, 700};
    CKernelChoice choice([] { return g_uNow; });
    const auto nBlocksFor = [&](std::size_t nHeight) {
        g_nBlocksDone = 0;
        choice.choose(TARGET, tableOf(1024, nHeight), 1024 * nHeight);
        return g_nBlocksDone;
    };
    EXPECT_GT(nBlocksFor(64), 0U);
    EXPECT_EQ(nBlocksFor(100), 0U);
    EXPECT_GT(nBlocksFor(128), 0U);
    g_aPerRun = {700, 800, 900};  // too late
    EXPECT_EQ(choice.choose(TARGET, tableOf(1024, 64), 1024 * 64).variant.way.eDistance, eAheadFar);
    EXPECT_EQ(nBlocksFor(64), 0U);
    EXPECT_EQ(choice.choose(TARGET, tableOf(5, 5), 25).strWhy, "no whole block");
    // Those who want the same at the same time wait for it.
    CKernelChoice other([] { return g_uNow; });
    const CorrectionTable table = tableOf(1024, 300);
    g_nBlocksDone = 0;
    std::array<std::thread, 4> aThreads;
    for (std::thread& rThread : aThreads) {
        rThread = std::thread([&] { other.choose(TARGET, table, 1024 * 300); });
    }
    for (std::thread& rThread : aThreads) {
        rThread.join();
    }
    const std::size_t nSampleBlocks = CKernelChoice::SAMPLE_BYTES / (64 * 4);
    EXPECT_LE(g_nBlocksDone, CKernelChoice::ROUNDS_MAX * 3 * nSampleBlocks);
}

// The clock of corrections, on tables of every kind; the time is told, not judged: other programs run here, too.
TEST(KernelChoice, ServesTheProcessWithEveryTarget) {
    for (const KernelTarget& rTarget : kernelTargets()) {
        const CorrectionTable table = tableOf(1000, 1000);
        const std::vector<KernelVariant> vecVariants = rTarget.variants(table.layout);
        const ChosenKernel chosen = CKernelChoice::ofProcess().choose(rTarget, table, 1000000);
        EXPECT_TRUE(std::any_of(vecVariants.begin(), vecVariants.end(), [&](const KernelVariant& rVariant) {
            return rVariant.fnKernel == chosen.variant.fnKernel;
        })) << rTarget.pName;
        EXPECT_EQ(vecVariants.front().way.eDistance, eAheadNone);
    }
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
