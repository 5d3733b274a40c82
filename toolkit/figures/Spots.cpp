// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Places of an even frame that correction left darker or brighter than what surrounds them.

#include "toolkit/figures/Spots.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr std::size_t CELL = SPOT_SIDES[0] / 2;
constexpr double SPOT_DEVIATIONS = 8.0;
constexpr double SIGMA_BY_MEDIAN = 1.4826;  // of the absolute deviations of a normal distribution
// In cells: the side of a square, and with what surrounds it, of which the outermost count.
constexpr std::size_t SQUARE = 2, REACH = 2, WHOLE = SQUARE + 2 * REACH, INNER = WHOLE - 2;

/// Values of square cells, row by row.
struct Cells {
    std::size_t nPixels;  // side of a cell
    std::size_t nColumns, nRows;
    std::vector<float> vecValues;

    double sum(std::size_t iX, std::size_t iY, std::size_t nSide) const {
        double dSum = 0.0;
        for (std::size_t y = iY; y < iY + nSide; ++y) {
            for (std::size_t x = iX; x < iX + nSide; ++x) {
                dSum += static_cast<double>(vecValues[y * nColumns + x]);
            }
        }
        return dSum;
    }
};

/// The medians of the cells.
Cells cellsOf(const StandIn::ImageLayout& rLayout, const std::vector<float>& rSignal) {
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    const std::size_t nRow = rLayout.samplesPerRow();
    Cells cells{
        CELL, static_cast<std::size_t>(rLayout.nWidth) / CELL, static_cast<std::size_t>(rLayout.nHeight) / CELL, {}};
    cells.vecValues.reserve(cells.nColumns * cells.nRows);
    std::vector<float> vecCell(CELL * CELL * nChannels);
    for (std::size_t iRow = 0; iRow < cells.nRows; ++iRow) {
        for (std::size_t iColumn = 0; iColumn < cells.nColumns; ++iColumn) {
            const float* pFrom = &rSignal[iRow * CELL * nRow + iColumn * CELL * nChannels];
            for (std::size_t y = 0; y < CELL; ++y, pFrom += nRow) {
                std::copy_n(pFrom, CELL * nChannels, &vecCell[y * CELL * nChannels]);
            }
            const auto itMiddle = vecCell.begin() + static_cast<std::ptrdiff_t>(vecCell.size() / 2);
            std::nth_element(vecCell.begin(), itMiddle, vecCell.end());
            cells.vecValues.push_back((*itMiddle + *std::max_element(vecCell.begin(), itMiddle)) / 2);
        }
    }
    return cells;
}

double medianOf(std::vector<double> vecValues) {
    const auto itMiddle = vecValues.begin() + static_cast<std::ptrdiff_t>(vecValues.size() / 2);
    std::nth_element(vecValues.begin(), itMiddle, vecValues.end());
    return *itMiddle;
}

/// Cells of twice the side.
Cells doubled(const Cells& rCells) {
    Cells result{rCells.nPixels * 2, rCells.nColumns / 2, rCells.nRows / 2, {}};
    for (std::size_t y = 0; y < result.nRows; ++y) {
        for (std::size_t x = 0; x < result.nColumns; ++x) {
            result.vecValues.push_back(static_cast<float>(rCells.sum(2 * x, 2 * y, 2) / 4.0));
        }
    }
    return result;
}

/// Spots of squares of two by two cells.
void findIn(const Cells& rCells, std::vector<Spot>& rSpots) {
    if (rCells.nColumns < WHOLE || rCells.nRows < WHOLE) {
        return;
    }
    std::vector<Spot> vecAll;
    std::vector<double> vecSizes;
    for (std::size_t y = 0; y + WHOLE <= rCells.nRows; ++y) {
        for (std::size_t x = 0; x + WHOLE <= rCells.nColumns; ++x) {
            const double dAround = (rCells.sum(x, y, WHOLE) - rCells.sum(x + 1, y + 1, INNER)) /
                                   static_cast<double>(WHOLE * WHOLE - INNER * INNER);
            const double dSquare = rCells.sum(x + REACH, y + REACH, SQUARE) / static_cast<double>(SQUARE * SQUARE);
            vecAll.push_back({(x + REACH) * rCells.nPixels, (y + REACH) * rCells.nPixels, SQUARE * rCells.nPixels,
                              dSquare - dAround, 0.0});
            vecSizes.push_back(std::abs(dSquare - dAround));
        }
    }
    const double dSpread = SIGMA_BY_MEDIAN * medianOf(std::move(vecSizes));
    for (Spot& rSpot : vecAll) {
        if (std::abs(rSpot.dPercent) > std::max(SPOT_LEAST_PERCENT, SPOT_DEVIATIONS * dSpread)) {
            rSpot.dSpreadPercent = dSpread;
            rSpots.push_back(rSpot);
        }
    }
}

/// True where a spot touches what another was measured over: then it is a part of that. What surrounds that, a spot
/// lies in further away, too, and deviates the other way.
bool isOf(const Spot& rSpot, const Spot& rWorse) {
    const bool bOther =
        rSpot.dPercent * rWorse.dPercent < 0.0 && 3.0 * std::abs(rSpot.dPercent) < std::abs(rWorse.dPercent);
    const uint64_t nMargin = bOther ? 4 * rWorse.nSide : rWorse.nSide + rWorse.nSide / 2;
    const auto fnNear = [&](uint64_t i, uint64_t iWorse) {
        return i < iWorse + rWorse.nSide + nMargin && iWorse < i + rSpot.nSide + nMargin;
    };
    return fnNear(rSpot.iX, rWorse.iX) && fnNear(rSpot.iY, rWorse.iY);
}

}  // namespace

std::vector<Spot> findSpots(const StandIn::ImageLayout& rLayout, const std::vector<float>& rSignal) {
    std::vector<Spot> vecAll;
    Cells cells = cellsOf(rLayout, rSignal);
    for (const unsigned nSide : SPOT_SIDES) {
        if (nSide > SPOT_SIDES[0]) {
            cells = doubled(cells);
        }
        findIn(cells, vecAll);
    }
    const auto fnDeviations = [](const Spot& r) {
        return std::abs(r.dPercent) / std::max(r.dSpreadPercent, SPOT_LEAST_PERCENT / SPOT_DEVIATIONS);
    };
    std::stable_sort(vecAll.begin(), vecAll.end(),
                     [&](const Spot& a, const Spot& b) { return fnDeviations(a) > fnDeviations(b); });
    std::vector<Spot> vecSpots;
    for (const Spot& rSpot : vecAll) {
        if (std::none_of(vecSpots.begin(), vecSpots.end(), [&](const Spot& rWorse) { return isOf(rSpot, rWorse); })) {
            vecSpots.push_back(rSpot);
        }
    }
    return vecSpots;
}

Findings judgeSpots(const std::vector<Spot>& rSpots) {
    if (rSpots.empty()) {
        return {};
    }
    const Spot& rWorst = rSpots.front();
    const std::string strSide = std::to_string(rWorst.nSide);
    return {{eWarning, "measured-spots",
             "Correction leaves " + counted(rSpots.size(), "spot") + (rSpots.size() > 1 ? "; the worst, " : ": ") +
                 strSide + " x " + strSide + " pixels at x " + std::to_string(rWorst.iX) + ", y " +
                 std::to_string(rWorst.iY) + ", is " + fixed(std::abs(rWorst.dPercent), 1) + " % " +
                 (rWorst.dPercent < 0.0 ? "darker" : "brighter") + " than what surrounds it, where chance explains " +
                 fixed(3.0 * rWorst.dSpreadPercent, 2) + " %.",
             "Likely is dust that has come or gone since the light reference was recorded. Clean lens and sensor, and "
             "record it anew."}};
}

}  // namespace Toolkit
}  // namespace XAPEL2
