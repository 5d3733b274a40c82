// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Kernels that XOR, in accesses of 16, 32 and 64 bytes. Compiled with -O3, which unrolls their inner loops.

#include "Limit.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace XapelBench {

namespace {

constexpr std::size_t LINE = 64;

// A block is IN_PLACE lines of the image, FIRST lines of the first table and SECOND of the second. Every table line is
// XORed into one image line; where there are fewer table lines than image lines, into several.
#define XAPEL2_BENCH_KERNEL(NAME, WIDTH, TARGET)                                                              \
    template <unsigned IN_PLACE, unsigned FIRST, unsigned SECOND, bool PREFETCH>                              \
    TARGET void NAME(uint8_t* pInPlace, const uint8_t* pFirst, const uint8_t* pSecond, std::size_t nBlocks) { \
        typedef uint64_t Vector __attribute__((vector_size(WIDTH), may_alias));                               \
        constexpr std::size_t STEPS = LINE / (WIDTH);                                                         \
        constexpr std::size_t AHEAD = 12; /* lines */                                                         \
        for (std::size_t iBlock = 0; iBlock < nBlocks; ++iBlock) {                                            \
            for (std::size_t i = 0; PREFETCH && i < IN_PLACE; ++i)                                            \
                __builtin_prefetch(pInPlace + (AHEAD + i) * LINE);                                            \
            for (std::size_t i = 0; PREFETCH && i < FIRST; ++i)                                               \
                __builtin_prefetch(pFirst + (AHEAD + i) * LINE);                                              \
            for (std::size_t i = 0; PREFETCH && i < SECOND; ++i)                                              \
                __builtin_prefetch(pSecond + (AHEAD + i) * LINE);                                             \
            auto* const pImage = reinterpret_cast<Vector*>(pInPlace);                                         \
            const auto* const pA = reinterpret_cast<const Vector*>(pFirst);                                   \
            const auto* const pB = reinterpret_cast<const Vector*>(pSecond);                                  \
            for (std::size_t i = 0; i < IN_PLACE * STEPS; ++i) {                                              \
                Vector uValue = pImage[i] ^ pA[i % (FIRST * STEPS)];                                          \
                for (std::size_t j = i + IN_PLACE * STEPS; j < FIRST * STEPS; j += IN_PLACE * STEPS)          \
                    uValue ^= pA[j];                                                                          \
                for (std::size_t j = i; j < SECOND * STEPS; j += IN_PLACE * STEPS)                            \
                    uValue ^= pB[j];                                                                          \
                pImage[i] = uValue;                                                                           \
            }                                                                                                 \
            pInPlace += IN_PLACE * LINE;                                                                      \
            pFirst += FIRST * LINE;                                                                           \
            pSecond += SECOND * LINE;                                                                         \
        }                                                                                                     \
    }

XAPEL2_BENCH_KERNEL(xor16, 16, )
XAPEL2_BENCH_KERNEL(xor32, 32, __attribute__((target("avx2"))))
XAPEL2_BENCH_KERNEL(xor64, 64, __attribute__((target("avx512f"))))

uint64_t fold(const uint8_t* pBytes, std::size_t nBytes) {
    uint64_t uFold = 0;
    for (std::size_t i = 0; i < nBytes; i += sizeof uFold) {
        uint64_t uWord;
        std::memcpy(&uWord, pBytes + i, sizeof uWord);
        uFold ^= uWord;
    }
    return uFold;
}

}  // namespace

template <unsigned IN_PLACE, unsigned FIRST, unsigned SECOND>
void CLimit::addKernels() {
    const auto fnAdd = [this](const std::string& strWidth, auto pfnOne, auto pfnOneAhead, auto pfnTwo,
                              auto pfnTwoAhead) {
        m_vecKernels.push_back({strWidth + " one table", false, pfnOne});
        m_vecKernels.push_back({strWidth + " one table, prefetch", false, pfnOneAhead});
        if (SECOND == 0) {
            return;
        }
        m_vecKernels.push_back({strWidth + " two tables", true, pfnTwo});
        m_vecKernels.push_back({strWidth + " two tables, prefetch", true, pfnTwoAhead});
    };
    constexpr unsigned ALL = FIRST + SECOND;
    m_nInPlaceLines = IN_PLACE;
    m_nReadLines = ALL;
    m_nBlocks = m_nBytes / (IN_PLACE * LINE);
    fnAdd("16 B", xor16<IN_PLACE, ALL, 0, false>, xor16<IN_PLACE, ALL, 0, true>, xor16<IN_PLACE, FIRST, SECOND, false>,
          xor16<IN_PLACE, FIRST, SECOND, true>);
    if (__builtin_cpu_supports("avx2")) {
        fnAdd("32 B", xor32<IN_PLACE, ALL, 0, false>, xor32<IN_PLACE, ALL, 0, true>,
              xor32<IN_PLACE, FIRST, SECOND, false>, xor32<IN_PLACE, FIRST, SECOND, true>);
    }
    if (__builtin_cpu_supports("avx512f")) {
        fnAdd("64 B", xor64<IN_PLACE, ALL, 0, false>, xor64<IN_PLACE, ALL, 0, true>,
              xor64<IN_PLACE, FIRST, SECOND, false>, xor64<IN_PLACE, FIRST, SECOND, true>);
    }
}

CLimit::CLimit(eTraffic eKind, std::size_t nBytes)
    : m_nBytes(nBytes), m_interleaved(4 * nBytes), m_first(2 * nBytes), m_second(2 * nBytes) {
    switch (eKind) {
        case eSamples8:
            addKernels<1, 1, 2>();
            break;
        case eSamples16:
            addKernels<1, 1, 1>();
            break;
        case ePacked12:
            addKernels<3, 4, 4>();
            break;
        case eSums:
            addKernels<2, 1, 0>();
            break;
    }
    for (const CHugeMemory* pTable : {&m_interleaved, &m_first, &m_second}) {
        for (std::size_t i = 0; i < 2 * nBytes; ++i) {
            pTable->data()[i] = static_cast<uint8_t>(i * 7 + i / 251);
        }
    }
    check();
}

// A kernel that left bytes out would set a limit that nothing can reach.
void CLimit::check() const {
    if (m_nBytes % (m_nInPlaceLines * LINE) != 0) {
        throw std::runtime_error("the limit needs whole blocks");
    }
    const CHugeMemory image(m_nBytes);
    const std::size_t nRead = m_nBlocks * m_nReadLines * LINE;
    const std::size_t nFirst = m_nReadLines == 3 ? nRead / 3 : nRead / 2;
    for (const Kernel& rKernel : m_vecKernels) {
        const CHugeMemory& rFirst = rKernel.bTwoTables ? m_first : m_interleaved;
        uint64_t uExpected = fold(image.data(), m_nBytes);
        if (rKernel.bTwoTables) {
            uExpected ^= fold(m_first.data(), nFirst) ^ fold(m_second.data(), nRead - nFirst);
        } else if (m_nReadLines >= m_nInPlaceLines) {  // else every line goes in twice, which cancels out
            uExpected ^= fold(m_interleaved.data(), nRead);
        }
        rKernel.pfn(image.data(), rFirst.data(), m_second.data(), m_nBlocks);
        if (fold(image.data(), m_nBytes) != uExpected) {
            throw std::runtime_error("the limit's kernel with " + rKernel.strName + " leaves bytes out");
        }
    }
}

std::vector<std::size_t> CLimit::addTo(CRounds& rRounds, std::vector<uint8_t*> vecInPlace,
                                       std::vector<const uint8_t*> vecRead) const {
    struct Turn {
        std::vector<uint8_t*> vecInPlace;
        std::vector<const uint8_t*> vecRead;
        std::size_t iNext = 0;
    };
    std::vector<std::size_t> vecCandidates;
    for (const Kernel& rKernel : m_vecKernels) {
        const uint8_t* const pTable = (rKernel.bTwoTables ? m_first : m_interleaved).data();
        const auto pTurn =
            std::make_shared<Turn>(Turn{vecInPlace, vecRead.empty() ? std::vector<const uint8_t*>{pTable} : vecRead});
        Candidate candidate{rKernel.strName, [this, &rKernel, pTurn](uint64_t nTimes) {
                                for (uint64_t i = 0; i < nTimes; ++i, ++pTurn->iNext) {
                                    rKernel.pfn(pTurn->vecInPlace[pTurn->iNext % pTurn->vecInPlace.size()],
                                                pTurn->vecRead[pTurn->iNext % pTurn->vecRead.size()], m_second.data(),
                                                m_nBlocks);
                                }
                            }};
        candidate.nUnit = std::max(vecInPlace.size(), vecRead.size());
        vecCandidates.push_back(rRounds.add(std::move(candidate)));
    }
    return vecCandidates;
}

double CLimit::traffic() const {
    return static_cast<double>(m_nBlocks * LINE) * (2.0 * m_nInPlaceLines + m_nReadLines);
}

}  // namespace XapelBench
