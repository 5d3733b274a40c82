// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The definition of what the samples of defective pixels are replaced by.

#include "standin/processor/correction/DefectNeighbours.h"

#include <algorithm>
#include <cmath>

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
            pSamples[i] = roundedMean(uSum);
        }
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
