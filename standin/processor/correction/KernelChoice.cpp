// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Finds out by measurement which variant of a kernel serves on this machine.
//
// Rounds of samples, one of each variant, so that a change of the machine's pace meets all alike. Where a round goes
// through less than the image, the samples of all variants lie at places of their own: each meets table and image as a
// stream would, and not warmed up by the variant before it. The order within a round is drawn by lot: with a fixed one,
// and the sizes that images have, a variant would come back to the same few places again and again, and the figures
// would tell the state of these places in the caches and nothing of the variant. The memory has the pages that buffers
// of images have: on small ones other variants win.

#include "standin/processor/correction/KernelChoice.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "standin/pixels/LargeMemory.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Of the memory that stands for the image.
constexpr std::size_t SCRATCH_BYTES = std::size_t{1} << 22;

// By which a variant must be faster than one before it, and what few rounds cannot tell.
constexpr double CLEARLY = 1.05;
constexpr double OF_ONE_ROUND = 0.2;

// Fewer tell nothing: the first samples fetch code and pages.
constexpr std::size_t ROUNDS_LEAST = 2;

// After these rounds what is so much slower than the fastest is out: the time is for those that may win.
constexpr std::size_t ROUNDS_FOR_ALL = 3;
constexpr double FAR_SLOWER = 1.3;

uint64_t threadTime() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000U + static_cast<uint64_t>(time.tv_nsec);
}

unsigned sizeClass(std::size_t nBlocks) {
    unsigned n = 0;
    for (; nBlocks != 0; nBlocks /= 2) {
        ++n;
    }
    return n;
}

class CMeasurement {
public:
    CMeasurement(const std::vector<KernelVariant>& rVariants, const CorrectionTable& rTable, std::size_t nBlocks,
                 const std::function<uint64_t()>& fnNow)
        : m_rVariants(rVariants), m_rTable(rTable), m_fnNow(fnNow), m_uBegin(fnNow()) {
        const TableLayout& rLayout = rTable.layout;
        const std::size_t nBytes = rLayout.imageBlockBytes();
        const std::size_t nOfSample = CKernelChoice::SAMPLE_BYTES / (rLayout.blockBytes() + nBytes);
        m_nPart = std::min(nOfSample, nBlocks);
        m_nTimes = nOfSample / m_nPart;
        m_nScratchParts = std::max<std::size_t>(1, std::min(SCRATCH_BYTES / nBytes, nBlocks) / m_nPart);
        m_nTableParts = nBlocks / m_nPart;
        const std::size_t nScratch = m_nScratchParts * m_nPart * nBytes;
        m_vecScratch.assign(nScratch, 0x55);
        m_vecIn.resize(rVariants.size());
        std::iota(m_vecIn.begin(), m_vecIn.end(), std::size_t{0});
    }

    void run() {
        std::vector<uint64_t> vecRound(m_rVariants.size());
        for (std::size_t iRound = 0; iRound < CKernelChoice::ROUNDS_MAX; ++iRound) {
            const uint64_t uBefore = m_fnNow();
            if (round(vecRound)) {
                // The first also fetches the code.
                if (m_nRounds++ == 1) {
                    m_vecRounds.clear();
                }
                m_vecRounds.push_back(vecRound);
                dropSlow();
            }
            const uint64_t uNow = m_fnNow();
            if (uNow - m_uBegin + (uNow - uBefore) > CKernelChoice::BUDGET_NS) {
                break;
            }
        }
    }

    /// The first where too few rounds were good, and where no other is faster by more than what a measurement can tell.
    ChosenKernel fastest() const {
        if (m_vecRounds.size() < ROUNDS_LEAST) {
            return {m_rVariants.front(), "not measured: no time, or no clock"};
        }
        const std::vector<double> vecTimes = relativeTimes();
        const double dLeast = *std::min_element(vecTimes.begin(), vecTimes.end());
        const double dNear = dLeast * (CLEARLY + OF_ONE_ROUND / static_cast<double>(m_vecRounds.size()));
        const auto itChosen =
            std::find_if(vecTimes.begin(), vecTimes.end(), [&](double dTime) { return dTime <= dNear; });
        const double dSlowest = std::max(m_dSlowest, *std::max_element(vecTimes.begin(), vecTimes.end()) / *itChosen);
        std::array<char, 80> aText;
        std::snprintf(aText.data(), aText.size(), "fastest of %zu in %zu rounds, the slowest %.2f", m_rVariants.size(),
                      m_vecRounds.size(), dSlowest);
        return {m_rVariants[m_vecIn[static_cast<std::size_t>(itChosen - vecTimes.begin())]], aText.data()};
    }

private:
    /// False where the time is over, or the clock cannot be right.
    bool round(std::vector<uint64_t>& rTimes) {
        std::vector<std::size_t> vecOrder = m_vecIn;
        std::shuffle(vecOrder.begin(), vecOrder.end(), m_random);
        for (const std::size_t i : vecOrder) {
            const uint64_t uBegin = m_fnNow();
            if (uBegin - m_uBegin + m_uLongest > CKernelChoice::BUDGET_NS) {
                return false;
            }
            sample(m_rVariants[i]);
            rTimes[i] = m_fnNow() - uBegin;
            m_uLongest = std::max(m_uLongest, rTimes[i]);
            if (rTimes[i] == 0 || rTimes[i] > CKernelChoice::BUDGET_NS) {
                return false;
            }
        }
        return true;
    }
    void dropSlow() {
        if (m_nRounds <= ROUNDS_FOR_ALL) {
            return;
        }
        const std::vector<double> vecTimes = relativeTimes();
        const double dLeast = *std::min_element(vecTimes.begin(), vecTimes.end());
        std::vector<std::size_t> vecStay;
        for (std::size_t k = 0; k < vecTimes.size(); ++k) {
            if (vecTimes[k] <= FAR_SLOWER * dLeast) {
                vecStay.push_back(m_vecIn[k]);
            } else {
                m_dSlowest = std::max(m_dSlowest, vecTimes[k] / dLeast);
            }
        }
        m_vecIn = vecStay;
    }
    /// Of those that are still in: the median of each one's shares of their rounds.
    std::vector<double> relativeTimes() const {
        std::vector<double> vecTimes, vecShares;
        for (const std::size_t iVariant : m_vecIn) {
            vecShares.clear();
            for (const std::vector<uint64_t>& rRound : m_vecRounds) {
                double dSum = 0.0;
                for (const std::size_t i : m_vecIn) {
                    dSum += static_cast<double>(rRound[i]);
                }
                vecShares.push_back(static_cast<double>(rRound[iVariant]) / dSum);
            }
            const auto itMiddle = vecShares.begin() + static_cast<std::ptrdiff_t>(vecShares.size() / 2);
            std::nth_element(vecShares.begin(), itMiddle, vecShares.end());
            vecTimes.push_back(*itMiddle);
        }
        return vecTimes;
    }
    void sample(const KernelVariant& rVariant) {
        // Steps that share no divisor with most numbers of parts lead to each part, and to none beside the last one.
        m_iPart += 7;
        const std::size_t nBytes = m_rTable.layout.imageBlockBytes();
        uint8_t* const pImage = m_vecScratch.data() + m_iPart % m_nScratchParts * m_nPart * nBytes;
        const std::size_t iFirst = m_iPart % m_nTableParts * m_nPart;
        for (std::size_t i = 0; i < m_nTimes; ++i) {
            CChunks chunks(m_rTable, iFirst, pImage, m_nPart, rVariant.way.blocksAhead(m_rTable.layout));
            rVariant.fnKernel(chunks);
        }
    }

    const std::vector<KernelVariant>& m_rVariants;
    const CorrectionTable& m_rTable;
    const std::function<uint64_t()>& m_fnNow;
    const uint64_t m_uBegin;
    std::size_t m_nPart = 0;   // blocks
    std::size_t m_nTimes = 0;  // that a sample goes through its part
    std::size_t m_nScratchParts = 0;
    std::size_t m_nTableParts = 0;
    std::size_t m_iPart = 0;
    std::size_t m_nRounds = 0;
    uint64_t m_uLongest = 0;  // of all samples
    std::minstd_rand m_random;
    std::vector<std::size_t> m_vecIn;  // variants that may still win
    double m_dSlowest = 1.0;           // of the others, in times of the fastest
    std::vector<std::vector<uint64_t>> m_vecRounds;
    std::vector<uint8_t, LargeAllocator<uint8_t>> m_vecScratch;
};

}  // namespace

ChosenKernel CKernelChoice::choose(const KernelTarget& rTarget, const CorrectionTable& rTable, std::size_t nSamples) {
    const std::vector<KernelVariant> vecVariants = rTarget.variants(rTable.layout);
    const std::size_t nBlocks = nSamples / BLOCK;
    if (vecVariants.size() == 1 || nBlocks == 0) {
        return {vecVariants.front(), vecVariants.size() == 1 ? "the only one" : "no whole block"};
    }
    const std::lock_guard<std::mutex> lock(m_mtx);
    const Key key(vecVariants.front().fnKernel, sizeClass(nBlocks));
    const auto itKnown = m_mapChosen.find(key);
    if (itKnown != m_mapChosen.end()) {
        return itKnown->second;
    }
    CMeasurement measurement(vecVariants, rTable, nBlocks, m_fnNow);
    measurement.run();
    return m_mapChosen.emplace(key, measurement.fastest()).first->second;
}

CKernelChoice& CKernelChoice::ofProcess() {
    static CKernelChoice s_choice(threadTime);
    return s_choice;
}

}  // namespace StandIn
}  // namespace XAPEL2
