// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replaces the samples of defective pixels by those of their neighbours.

#include "standin/processor/correction/DefectRepair.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <utility>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t RADIUS = 2;
constexpr std::size_t ENOUGH = 3;
constexpr uint32_t UNIT = 1U << 16;

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

struct Read8 {
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const { return pImage[i]; }
};

struct Read16 {
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const {
        uint16_t uSample = 0;  // little endian, as every processor that the stand-in runs on
        std::memcpy(&uSample, pImage + i * 2, sizeof uSample);
        return uSample;
    }
};

/// Samples of 10 or 12 bits one behind the other: each lies in two bytes.
struct ReadDense {
    std::size_t nBits;
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const {
        const std::size_t iBit = i * nBits;
        uint16_t uBytes = 0;
        std::memcpy(&uBytes, pImage + iBit / 8, sizeof uBytes);
        return uBytes >> iBit % 8 & ((1U << nBits) - 1);
    }
};

/// Two samples in three bytes, the low bits of both in the middle one.
struct ReadSplit {
    std::size_t nBits;
    uint32_t operator()(const uint8_t* pImage, std::size_t i) const {
        const std::size_t nLow = nBits - 8;
        const uint8_t* const pPair = pImage + i / 2 * 3;
        const uint32_t uLow = pPair[1] >> i % 2 * 4 & ((1U << nLow) - 1);
        return static_cast<uint32_t>(pPair[i % 2 * 2]) << nLow | uLow;
    }
};

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
    : m_pFormat(rLayout.pFormat) {
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

template <class READER>
std::size_t CDefectRepair::repairBy(const READER& rRead, uint8_t* pImage, std::size_t i,
                                    std::size_t nDone) const noexcept {
    for (; i < m_vecPlaces.size() && m_vecPlaces[i].uNeed <= nDone; ++i) {
        const Place& rPlace = m_vecPlaces[i];
        const DefectNeighbour* const pFirst = m_vecNeighbours.data() + rPlace.uFirst;
        uint32_t uSum = 0;
        for (const DefectNeighbour* p = pFirst; p != pFirst + rPlace.nCount; ++p) {
            uSum += p->uWeight *
                    rRead(pImage, static_cast<std::size_t>(static_cast<std::ptrdiff_t>(rPlace.uSample) + p->iDistance));
        }
        const uint16_t uResult = rounded(uSum);
        if (m_pFormat->nWireBits == 8) {
            pImage[rPlace.uSample] = static_cast<uint8_t>(uResult);
        } else {
            packSamples(*m_pFormat, &uResult, rPlace.uSample, 1, pImage);
        }
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
        return repairBy(ReadSplit{m_pFormat->nBits}, pImage, i, nDone);
    }
    return repairBy(ReadDense{m_pFormat->nBits}, pImage, i, nDone);
}

}  // namespace StandIn
}  // namespace XAPEL2
