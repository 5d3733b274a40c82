// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replaces the samples of defective pixels by those of their neighbours.

#include "standin/processor/correction/DefectRepair.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <utility>

#include "standin/processor/correction/Prefetch.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t RADIUS = 2;
constexpr std::size_t ENOUGH = 3;
constexpr uint32_t UNIT = 1U << 16;
constexpr std::size_t AHEAD = 16;        // defects whose rows are asked for before they are read
constexpr std::size_t WHOLE_COUNT = 24;  // neighbours of a defect that lacks none

bool isOfColumn(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, std::size_t iX, std::size_t iY) {
    const auto nWidth = static_cast<std::size_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(rLayout.nHeight);
    std::size_t iFirst = iY;
    std::size_t iEnd = iY + 1;
    while (iFirst != 0 && rMap[(iFirst - 1) * nWidth + iX] != 0) {
        --iFirst;
        if (iEnd - iFirst >= DEFECT_COLUMN_ROWS) {
            return true;
        }
    }
    while (iEnd != nHeight && iEnd - iFirst < DEFECT_COLUMN_ROWS && rMap[iEnd * nWidth + iX] != 0) {
        ++iEnd;
    }
    return iEnd - iFirst >= std::min(nHeight, DEFECT_COLUMN_ROWS);
}

struct Found {
    int32_t iDistance;
    double dWeight;
};

/// The good pixels of a window, which is cut off at the edges of the image.
void findIn(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, std::size_t iX, std::size_t iY,
            std::size_t nRows, std::size_t nColumns, std::vector<Found>& rFound) {
    rFound.clear();
    const auto nWidth = static_cast<std::ptrdiff_t>(rLayout.nWidth);
    const auto nHeight = static_cast<std::ptrdiff_t>(rLayout.nHeight);
    const std::ptrdiff_t nStep = rLayout.pFormat->isCfa() ? 2 : 1;
    const auto iFirst = [&](std::size_t iAt, std::size_t nFar) {
        const auto nSide = static_cast<std::ptrdiff_t>(std::min(iAt, nFar)) / nStep * nStep;
        return static_cast<std::ptrdiff_t>(iAt) - nSide;
    };
    const auto iMiddleX = static_cast<std::ptrdiff_t>(iX);
    const auto iMiddleY = static_cast<std::ptrdiff_t>(iY);
    const std::ptrdiff_t iLastY = std::min(nHeight - 1, iMiddleY + static_cast<std::ptrdiff_t>(nRows));
    const std::ptrdiff_t iLastX = std::min(nWidth - 1, iMiddleX + static_cast<std::ptrdiff_t>(nColumns));
    for (std::ptrdiff_t y = iFirst(iY, nRows); y <= iLastY; y += nStep) {
        for (std::ptrdiff_t x = iFirst(iX, nColumns); x <= iLastX; x += nStep) {
            if (rMap[static_cast<std::size_t>(y * nWidth + x)] == 0) {
                const std::ptrdiff_t nDown = y - iMiddleY;
                const std::ptrdiff_t nRight = x - iMiddleX;
                const std::ptrdiff_t nPixels = nDown * nWidth + nRight;
                rFound.push_back({static_cast<int32_t>(nPixels * rLayout.pFormat->nChannels),
                                  1.0 / static_cast<double>(nDown * nDown + nRight * nRight)});
            }
        }
    }
}

/// Weights in whole units; what rounding down leaves goes to the first of the heaviest.
std::vector<DefectNeighbour> weighed(const std::vector<Found>& rFound) {
    std::vector<DefectNeighbour> vecNeighbours;
    double dSum = 0.0;
    std::size_t iHeaviest = 0;
    for (std::size_t i = 0; i < rFound.size(); ++i) {
        dSum += rFound[i].dWeight;
        iHeaviest = rFound[i].dWeight > rFound[iHeaviest].dWeight ? i : iHeaviest;
    }
    uint32_t uLeft = UNIT;
    for (const Found& rOne : rFound) {
        const auto uWeight = static_cast<uint32_t>(std::floor(rOne.dWeight / dSum * UNIT));
        vecNeighbours.push_back({rOne.iDistance, uWeight});
        uLeft -= uWeight;
    }
    if (!vecNeighbours.empty()) {
        vecNeighbours[iHeaviest].uWeight += uLeft;
    }
    return vecNeighbours;
}

/// At most 65,535 * 65,536 and a half: fits.
uint16_t rounded(uint32_t uSum) {
    return static_cast<uint16_t>((uSum + UNIT / 2) >> 16);
}

/// The pixels around one in 5 x 5, added up by the square of their distance.
struct WindowSums {
    uint32_t uAbove;  // the pixel above alone, which uOf1 has, too
    uint32_t uOf1, uOf2, uOf4, uOf5, uOf8;
};

// Readers: a sample, and the sums of a window that lies in the image: of samples at a distance of nStep, in rows at one
// of nRowSamples, from iFirst on.

/// Sample by sample.
template <class READER>
WindowSums windowOf(const READER& rRead, const uint8_t* pImage, std::size_t iFirst, std::size_t nStep,
                    std::size_t nRowSamples) {
    std::array<std::array<uint32_t, 5>, 5> a;
    for (std::size_t iRow = 0; iRow < 5; ++iRow) {
        for (std::size_t k = 0; k < 5; ++k) {
            a[iRow][k] = rRead(pImage, iFirst + iRow * nRowSamples + k * nStep);
        }
    }
    return {a[1][2],
            (a[1][2] + a[3][2]) + (a[2][1] + a[2][3]),
            (a[1][1] + a[1][3]) + (a[3][1] + a[3][3]),
            (a[0][2] + a[4][2]) + (a[2][0] + a[2][4]),
            ((a[0][1] + a[0][3]) + (a[4][1] + a[4][3])) + ((a[1][0] + a[1][4]) + (a[3][0] + a[3][4])),
            (a[0][0] + a[0][4]) + (a[4][0] + a[4][4])};
}

template <class T>
T loadAs(const uint8_t* pMemory) {
    T result = 0;  // little endian, as every processor that the stand-in runs on
    std::memcpy(&result, pMemory, sizeof result);
    return result;
}

struct Read8 {
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const { return pImage[i]; }
    WindowSums window(const uint8_t* pImage, std::size_t iFirst, std::size_t nStep, std::size_t nRowSamples) const {
        if (nStep != 1) {
            return windowOf(*this, pImage, iFirst, nStep, nRowSamples);
        }
        // Each row as two words of 16-bit lanes: the samples 0, 2 and 4, and 1 and 3. Eight bytes are read, of the last
        // row those that end with the window, so that none is outside of the image.
        constexpr uint64_t LANES = 0x00FF00FF00FF00FFU;
        const uint8_t* const p = pImage + iFirst;
        const auto row = [&](std::size_t iRow) { return loadAs<uint64_t>(p + iRow * nRowSamples); };
        const uint64_t uLast = loadAs<uint64_t>(p + 4 * nRowSamples - 3) >> 24;
        const auto even = [](uint64_t uRow) { return uRow & LANES; };
        const auto odd = [](uint64_t uRow) { return uRow >> 8 & LANES; };
        // Of those lanes: all of them are at most 255 * 8.
        constexpr uint64_t MIDDLE = 0x00000000FFFF0000U, OUTER = 0x0000FFFF0000FFFFU, ODD = 0x00000000FFFFFFFFU;
        const auto sum = [](uint64_t uLanes) { return static_cast<uint32_t>(uLanes * 0x0001000100010001U >> 48); };
        const uint64_t uEven04 = even(row(0)) + even(uLast), uOdd04 = odd(row(0)) + odd(uLast);
        const uint64_t uEven13 = even(row(1)) + even(row(3)), uOdd13 = odd(row(1)) + odd(row(3));
        const uint64_t uEven2 = even(row(2)), uOdd2 = odd(row(2));
        return {p[nRowSamples + 2],
                sum((uEven13 & MIDDLE) + (uOdd2 & ODD)),
                sum(uOdd13 & ODD),
                sum((uEven04 & MIDDLE) + (uEven2 & OUTER)),
                sum((uOdd04 & ODD) + (uEven13 & OUTER)),
                sum(uEven04 & OUTER)};
    }
    void write(const PixelFormat&, uint8_t* pImage, std::size_t i, uint16_t uSample) const {
        pImage[i] = static_cast<uint8_t>(uSample);
    }
};

struct Read16 {
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const { return loadAs<uint16_t>(pImage + i * 2); }
    WindowSums window(const uint8_t* pImage, std::size_t iFirst, std::size_t nStep, std::size_t nRowSamples) const {
        if (nStep != 1) {
            return windowOf(*this, pImage, iFirst, nStep, nRowSamples);
        }
        // As of 8 bits, in lanes of 32: the samples 0 and 2, and 1 and 3; sample 4 alone.
        constexpr uint64_t LANES = 0x0000FFFF0000FFFFU;
        const uint8_t* const p = pImage + iFirst * 2;
        const auto row = [&](std::size_t iRow) { return loadAs<uint64_t>(p + iRow * nRowSamples * 2); };
        const auto last = [&](std::size_t iRow) { return uint32_t{loadAs<uint16_t>(p + iRow * nRowSamples * 2 + 8)}; };
        const auto even = [](uint64_t uRow) { return uRow & LANES; };
        const auto odd = [](uint64_t uRow) { return uRow >> 16 & LANES; };
        const auto low = [](uint64_t uSums) { return static_cast<uint32_t>(uSums); };
        const auto high = [](uint64_t uSums) { return static_cast<uint32_t>(uSums >> 32); };
        const uint64_t uEven04 = even(row(0)) + even(row(4)), uOdd04 = odd(row(0)) + odd(row(4));
        const uint64_t uEven13 = even(row(1)) + even(row(3)), uOdd13 = odd(row(1)) + odd(row(3));
        const uint64_t uEven2 = even(row(2)), uOdd2 = odd(row(2));
        return {high(even(row(1))),
                high(uEven13) + low(uOdd2) + high(uOdd2),
                low(uOdd13) + high(uOdd13),
                high(uEven04) + low(uEven2) + last(2),
                low(uOdd04) + high(uOdd04) + low(uEven13) + last(1) + last(3),
                low(uEven04) + last(0) + last(4)};
    }
    void write(const PixelFormat&, uint8_t* pImage, std::size_t i, uint16_t uSample) const {
        std::memcpy(pImage + i * 2, &uSample, sizeof uSample);
    }
};

struct WritePacked {
    void write(const PixelFormat& rFormat, uint8_t* pImage, std::size_t i, uint16_t uSample) const {
        packSamples(rFormat, &uSample, i, 1, pImage);
    }
};

/// Samples of 10 or 12 bits one behind the other: each lies in two bytes.
template <std::size_t BITS>
struct ReadDense : WritePacked {
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const {
        const std::size_t iBit = i * BITS;
        return loadAs<uint16_t>(pImage + iBit / 8) >> iBit % 8 & ((1U << BITS) - 1);
    }
    // These formats have one channel, so five samples of a row are neighbours and lie in eight bytes. As of 8 bits, in
    // lanes of two samples' width: the samples 0, 2 and 4, and 1 and 3.
    WindowSums window(const uint8_t* pImage, std::size_t iFirst, std::size_t, std::size_t nRowSamples) const {
        constexpr std::size_t LANE = 2 * BITS;
        constexpr uint64_t SAMPLE = (1U << BITS) - 1, FIRST = SAMPLE, SECOND = SAMPLE << LANE,
                           THIRD = SAMPLE << 2 * LANE;
        const auto even = [](uint64_t uRow) { return uRow & (FIRST | SECOND | THIRD); };
        const auto odd = [](uint64_t uRow) { return uRow >> BITS & (FIRST | SECOND); };
        const auto row = [&](std::size_t iRow) {
            const std::size_t iBit = (iFirst + iRow * nRowSamples) * BITS;
            return loadAs<uint64_t>(pImage + iBit / 8) >> iBit % 8;
        };
        // Of the last row the eight bytes that end with the window, so that none is outside of the image.
        const std::size_t iLast = (iFirst + 4 * nRowSamples) * BITS, iStart = (iLast + 5 * BITS + 7) / 8 - 8;
        const uint64_t uLast = loadAs<uint64_t>(pImage + iStart) >> (iLast - iStart * 8);
        const uint64_t uAbove = row(1), uMiddle = row(2), uBelow = row(3), uFirst = row(0);
        const uint64_t uEven04 = even(uFirst) + even(uLast), uOdd04 = odd(uFirst) + odd(uLast);
        const uint64_t uEven13 = even(uAbove) + even(uBelow), uOdd13 = odd(uAbove) + odd(uBelow);
        const uint64_t uEven2 = even(uMiddle), uOdd2 = odd(uMiddle);
        // Sums of all lanes, of the outer two, and the middle one. None needs more bits than its lane has.
        constexpr uint64_t MASK = (uint64_t{1} << LANE) - 1;
        const auto both = [](uint64_t u) { return static_cast<uint32_t>((u & MASK) + (u >> LANE & MASK)); };
        const auto outer = [](uint64_t u) { return static_cast<uint32_t>((u & MASK) + (u >> 2 * LANE)); };
        const auto middle = [](uint64_t u) { return static_cast<uint32_t>(u >> LANE & MASK); };
        return {middle(even(uAbove)),
                middle(uEven13) + both(uOdd2),
                both(uOdd13),
                middle(uEven04) + outer(uEven2),
                both(uOdd04) + outer(uEven13),
                outer(uEven04)};
    }
};

/// Two samples in three bytes, the low bits of both in the middle one.
struct ReadSplit : WritePacked {
    explicit ReadSplit(std::size_t n) : nBits(n) {}
    std::size_t nBits;
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const {
        const std::size_t nLow = nBits - 8;
        const uint8_t* const pPair = pImage + i / 2 * 3;
        const uint32_t uLow = pPair[1] >> i % 2 * 4 & ((1U << nLow) - 1);
        return static_cast<uint32_t>(pPair[i % 2 * 2]) << nLow | uLow;
    }
    WindowSums window(const uint8_t* pImage, std::size_t iFirst, std::size_t nStep, std::size_t nRowSamples) const {
        return windowOf(*this, pImage, iFirst, nStep, nRowSamples);
    }
};

/// The weighted sum of all pixels around one in 5 x 5. Weights by the place of a neighbour differ by its distance
/// alone, but for the one above, which has what rounding left: so samples are added first.
template <class READER>
uint32_t sumOfWhole(const READER& rRead, const uint8_t* pImage, std::size_t iSample, std::size_t nStep,
                    std::size_t nRowSamples, const DefectNeighbour* pWeights) {
    const WindowSums sums = rRead.window(pImage, iSample - 2 * nRowSamples - 2 * nStep, nStep, nRowSamples);
    const auto weight = [pWeights](std::size_t i) { return pWeights[i].uWeight; };
    return sums.uOf1 * weight(11) + sums.uOf2 * weight(6) + sums.uOf4 * weight(10) + sums.uOf5 * weight(1) +
           sums.uOf8 * weight(0) + sums.uAbove * (weight(7) - weight(11));
}

/// What sumOfWhole takes for granted.
bool hasWholeWindow(const std::vector<DefectNeighbour>& rNeighbours) {
    if (rNeighbours.size() != WHOLE_COUNT) {
        return false;
    }
    // By square of the distance: 8 5 4 5 8, 5 2 1 2 5, 4 1 . 1 4 and so on.
    constexpr std::array<std::size_t, WHOLE_COUNT> LIKE = {0,  1,  10, 1, 0,  1, 6, 7, 6, 1,  10, 11,
                                                           11, 10, 1,  6, 11, 6, 1, 0, 1, 10, 1,  0};
    for (std::size_t i = 0; i < WHOLE_COUNT; ++i) {
        if (rNeighbours[i].uWeight != rNeighbours[LIKE[i]].uWeight) {
            return false;
        }
    }
    return rNeighbours[7].uWeight >= rNeighbours[11].uWeight;
}

}  // namespace

std::vector<DefectNeighbour> defectNeighbours(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap,
                                              std::size_t iX, std::size_t iY) {
    const bool bColumn = isOfColumn(rLayout, rMap, iX, iY);
    std::vector<Found> vecFound;
    for (std::size_t nRadius = RADIUS; nRadius <= DEFECT_RADIUS_MAX && vecFound.size() < ENOUGH; ++nRadius) {
        findIn(rLayout, rMap, iX, iY, bColumn ? 0 : nRadius, nRadius, vecFound);
    }
    return weighed(vecFound);
}

void repairDefects(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap, uint16_t* pSamples) {
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t iPixel = 0; iPixel < rMap.size(); ++iPixel) {
        if (rMap[iPixel] == 0) {
            continue;
        }
        const std::vector<DefectNeighbour> vecNeighbours =
            defectNeighbours(rLayout, rMap, iPixel % rLayout.nWidth, iPixel / rLayout.nWidth);
        for (std::size_t i = iPixel * nChannels; i < (iPixel + 1) * nChannels && !vecNeighbours.empty(); ++i) {
            uint32_t uSum = 0;
            for (const DefectNeighbour& rNeighbour : vecNeighbours) {
                uSum += rNeighbour.uWeight * pSamples[static_cast<std::ptrdiff_t>(i) + rNeighbour.iDistance];
            }
            pSamples[i] = rounded(uSum);
        }
    }
}

CDefectRepair::CDefectRepair(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap)
    : m_pFormat(rLayout.pFormat), m_nRowSamples(rLayout.samplesPerRow()) {
    std::map<std::vector<std::pair<int32_t, uint32_t>>, uint32_t> mapPatterns;
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t iPixel = 0; iPixel < rMap.size(); ++iPixel) {
        if (rMap[iPixel] == 0) {
            continue;
        }
        ++m_nDefects;
        const std::vector<DefectNeighbour> vecNeighbours =
            defectNeighbours(rLayout, rMap, iPixel % rLayout.nWidth, iPixel / rLayout.nWidth);
        if (vecNeighbours.empty()) {
            continue;
        }
        std::vector<std::pair<int32_t, uint32_t>> vecPattern;
        for (const DefectNeighbour& rOne : vecNeighbours) {
            vecPattern.emplace_back(rOne.iDistance, rOne.uWeight);
        }
        const auto [itPattern, bNew] =
            mapPatterns.emplace(std::move(vecPattern), static_cast<uint32_t>(m_vecNeighbours.size()));
        if (bNew && !rLayout.pFormat->isCfa() && hasWholeWindow(vecNeighbours)) {
            m_uWhole = itPattern->second;
        }
        if (bNew) {
            m_vecNeighbours.insert(m_vecNeighbours.end(), vecNeighbours.begin(), vecNeighbours.end());
        }
        const int32_t iLast = std::max(0, vecNeighbours.back().iDistance);
        for (std::size_t i = iPixel * nChannels; i < (iPixel + 1) * nChannels; ++i) {
            m_vecPlaces.push_back({static_cast<uint32_t>(i),
                                   static_cast<uint32_t>(i) + static_cast<uint32_t>(iLast) + 1, itPattern->second,
                                   static_cast<uint32_t>(vecNeighbours.size())});
        }
    }
    std::stable_sort(m_vecPlaces.begin(), m_vecPlaces.end(),
                     [](const Place& a, const Place& b) { return a.uNeed < b.uNeed; });
}

/// Asks for the rows around a sample, which are no longer, or were never, in the nearest cache.
void CDefectRepair::fetchAround(const uint8_t* pImage, const Place& rPlace, std::size_t nWireBits) const noexcept {
    constexpr uint32_t ROWS = 4;  // and one more: of a whole window each
    if (rPlace.uFirst == m_uWhole) {
        const std::size_t nRowBits = m_nRowSamples * nWireBits;
        const std::size_t iFirst = rPlace.uSample * nWireBits - 2 * nRowBits;
        for (std::size_t k = 0; k <= ROWS; ++k) {
            prefetch(pImage + (iFirst + k * nRowBits) / 8);
        }
        return;
    }
    const DefectNeighbour* const pFirst = m_vecNeighbours.data() + rPlace.uFirst;
    for (uint32_t k = 0; k <= ROWS; ++k) {
        const int32_t iDistance = pFirst[(rPlace.nCount - 1) * k / ROWS].iDistance;
        const auto iSample = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(rPlace.uSample) + iDistance);
        prefetch(pImage + iSample * nWireBits / 8);
    }
}

void CDefectRepair::fetchPlaces(std::size_t i) const noexcept {
    constexpr std::size_t PLACES = 32;
    constexpr std::size_t LINE = 64;
    const std::size_t iEnd = std::min(i + PLACES, m_vecPlaces.size());
    for (; i < iEnd; i += LINE / sizeof(Place)) {
        prefetch(m_vecPlaces.data() + i);
    }
    for (std::size_t k = 0; k < WHOLE_COUNT && m_uWhole != NO_WHOLE; k += LINE / sizeof(DefectNeighbour)) {
        prefetch(m_vecNeighbours.data() + m_uWhole + k);
    }
}

template <class READER>
uint32_t CDefectRepair::sumOf(const READER& rRead, const uint8_t* pImage, const Place& rPlace) const noexcept {
    const std::size_t uSample = rPlace.uSample;
    const DefectNeighbour* const pFirst = m_vecNeighbours.data() + rPlace.uFirst;
    if (rPlace.uFirst == m_uWhole) {
        return sumOfWhole(rRead, pImage, uSample, m_pFormat->nChannels, m_nRowSamples, pFirst);
    }
    uint32_t uSum = 0;
    for (uint32_t k = 0; k < rPlace.nCount; ++k) {
        const auto iFrom = static_cast<std::ptrdiff_t>(uSample) + pFirst[k].iDistance;
        uSum += pFirst[k].uWeight * rRead(pImage, static_cast<std::size_t>(iFrom));
    }
    return uSum;
}

template <class READER>
std::size_t CDefectRepair::repairBy(const READER& rRead, uint8_t* pImage, std::size_t i,
                                    std::size_t nDone) const noexcept {
    // Out of the object once: a byte that is written could be part of it, for all that the compiler knows.
    const PixelFormat& rFormat = *m_pFormat;
    const Place* const pPlaces = m_vecPlaces.data();
    const auto itEnd = std::upper_bound(m_vecPlaces.begin() + static_cast<std::ptrdiff_t>(i), m_vecPlaces.end(), nDone,
                                        [](std::size_t nHave, const Place& r) { return nHave < r.uNeed; });
    const auto iEnd = static_cast<std::size_t>(itEnd - m_vecPlaces.begin());
    for (std::size_t iFetched = i; i < iEnd; ++i) {
        for (; iFetched < std::min(iEnd, i + AHEAD); ++iFetched) {
            fetchAround(pImage, pPlaces[iFetched], rFormat.nWireBits);
        }
        rRead.write(rFormat, pImage, pPlaces[i].uSample, rounded(sumOf(rRead, pImage, pPlaces[i])));
    }
    return i;
}

std::size_t CDefectRepair::repair(uint8_t* pImage, std::size_t i, std::size_t nDone) const noexcept {
    if (m_pFormat->nWireBits == 8) {
        return repairBy(Read8(), pImage, i, nDone);
    }
    if (!m_pFormat->isPacked()) {
        return repairBy(Read16(), pImage, i, nDone);
    }
    if (m_pFormat->bSplit) {
        return repairBy(ReadSplit(m_pFormat->nBits), pImage, i, nDone);
    }
    return m_pFormat->nBits == 10 ? repairBy(ReadDense<10>(), pImage, i, nDone)
                                  : repairBy(ReadDense<12>(), pImage, i, nDone);
}

}  // namespace StandIn
}  // namespace XAPEL2
