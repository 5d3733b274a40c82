// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Median of large windows by histograms.
//
// The plane is filtered in tiles. 16-bit samples less the smallest one of the plane are keys as they are. Floats are
// replaced by their ranks in the tile and its border, of which there are at most 2^16; equal floats have ranks of their
// own.

#include "standin/processor/filters/MedianHistogram.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "standin/processor/filters/MedianTile.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t TILE_WIDTH = 128;
// The border's rows above and below a tile enter the columns once more, so tiles are high where they may be.
constexpr std::size_t TILE_HEIGHT = 1024;
constexpr std::size_t RANKED_HEIGHT = 128;
static_assert(TILE_WIDTH + 62 <= Tile::SIDE_MAX && RANKED_HEIGHT + 62 <= Tile::SIDE_MAX, "ranks fit 16 bits");

/// Calls fn(first column, first row, columns, rows) for each tile.
template <class F>
void forEachTile(const PlaneSize& rSize, std::size_t nTileHeight, F fn) {
    for (std::size_t iX = 0; iX < rSize.nWidth; iX += TILE_WIDTH) {
        for (std::size_t iY = 0; iY < rSize.nHeight; iY += nTileHeight)
            fn(iX, iY, std::min(TILE_WIDTH, rSize.nWidth - iX), std::min(nTileHeight, rSize.nHeight - iY));
    }
}

/// Copies nColumns x nRows samples, less uLess; the first one lies nBorder columns and rows before (iX, iY), maybe
/// beyond the border of the plane.
template <class T>
void copyBordered(const PlaneSize& rSize, const T* pIn, std::size_t iX, std::size_t iY, std::size_t nBorder,
                  std::size_t nColumns, std::size_t nRows, T tLess, T* pOut) {
    const auto inside = [nBorder](std::size_t i, std::size_t n) {
        return std::min(std::max(i, nBorder) - nBorder, n - 1);
    };
    const std::size_t nBefore = std::max(iX, nBorder) - iX;                    // columns before the plane
    const std::size_t nEnd = std::min(nColumns, rSize.nWidth + nBorder - iX);  // first column after the plane
    for (std::size_t iRow = 0; iRow < nRows; ++iRow, pOut += nColumns) {
        const T* const pRow = pIn + inside(iY + iRow, rSize.nHeight) * rSize.nWidth;
        std::fill_n(pOut, nBefore, static_cast<T>(pRow[0] - tLess));
        const T* pFrom = pRow + inside(iX, rSize.nWidth);
        for (std::size_t i = nBefore; i < nEnd; ++i) pOut[i] = static_cast<T>(*pFrom++ - tLess);
        std::fill(pOut + nEnd, pOut + nColumns, static_cast<T>(pRow[rSize.nWidth - 1] - tLess));
    }
}

/// Makes the medians of a tile whose first pixel is (iX, iY), and writes what fnValue makes of each key.
template <class T, class F>
void filterTile(const PlaneSize& rSize, const Tile& rTile, unsigned nRadius, TileMemory& rMemory, std::size_t iX,
                std::size_t iY, F fnValue, T* pOut) {
    const std::size_t nColumns = rTile.nColumns - std::size_t{2} * nRadius;
    const std::size_t nRows = rTile.nRows - std::size_t{2} * nRadius;
    rMemory.vMedians.resize(nColumns * nRows);
    medianOfTile(rTile, nRadius, rMemory, rMemory.vMedians.data());
    const uint16_t* pMedian = rMemory.vMedians.data();
    for (std::size_t i = iY; i < iY + nRows; ++i, pMedian += nColumns)
        std::transform(pMedian, pMedian + nColumns, pOut + i * rSize.nWidth + iX, fnValue);
}

/// Ranks of floats that are not negative: their bits, sorted by radix.
class CRanks {
public:
    /// Makes the keys and places of a tile from its values.
    void rank(const std::vector<float>& rValues, Tile& rTile) {
        const std::size_t n = rValues.size();
        m_vSorted.resize(n);
        m_vOther.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            const float fValue = rValues[i] + 0.0F;  // no negative zero, whose bits are not in order
            std::memcpy(&m_vSorted[i].uBits, &fValue, sizeof fValue);
            m_vSorted[i].iColumn = static_cast<uint8_t>(i % rTile.nColumns);
            m_vSorted[i].iRow = static_cast<uint8_t>(i / rTile.nColumns);
        }
        for (unsigned nShift = 0; nShift < 32; nShift += DIGIT_BITS) sortByDigit(nShift);
        const std::size_t nFull = (n + Tile::PLACES_AT_ONCE - 1) / Tile::PLACES_AT_ONCE * Tile::PLACES_AT_ONCE;
        rTile.vKeys.resize(n);
        rTile.vColumnOf.resize(nFull);
        rTile.vRowOf.resize(nFull);
        rTile.uLargest = static_cast<uint16_t>(n - 1);
        for (std::size_t i = 0; i < n; ++i) {
            const Value& rValue = m_vSorted[i];
            rTile.vKeys[rValue.iRow * rTile.nColumns + rValue.iColumn] = static_cast<uint16_t>(i);
            rTile.vColumnOf[i] = rValue.iColumn;
            rTile.vRowOf[i] = rValue.iRow;
        }
    }
    float value(uint16_t uRank) const {
        float fValue = 0.0F;
        std::memcpy(&fValue, &m_vSorted[uRank].uBits, sizeof fValue);
        return fValue;
    }

private:
    static constexpr unsigned DIGIT_BITS = 11;
    struct Value {
        uint32_t uBits;
        uint8_t iColumn;
        uint8_t iRow;
    };

    void sortByDigit(unsigned nShift) {
        const auto digit = [nShift](const Value& r) { return r.uBits >> nShift & ((1U << DIGIT_BITS) - 1U); };
        std::array<uint32_t, 1U << DIGIT_BITS> aPlaces = {};
        for (const Value& rValue : m_vSorted) ++aPlaces[digit(rValue)];
        if (aPlaces[digit(m_vSorted[0])] == m_vSorted.size())
            return;  // all the same
        uint32_t nBefore = 0;
        for (uint32_t& rPlace : aPlaces) nBefore += std::exchange(rPlace, nBefore);
        for (const Value& rValue : m_vSorted) m_vOther[aPlaces[digit(rValue)]++] = rValue;
        m_vSorted.swap(m_vOther);
    }

    std::vector<Value> m_vSorted;
    std::vector<Value> m_vOther;
};

}  // namespace

void medianByHistogram(const PlaneSize& rSize, const uint16_t* pIn, unsigned nRadius, uint16_t* pOut) {
    const auto sLimits = std::minmax_element(pIn, pIn + rSize.nWidth * rSize.nHeight);
    const uint16_t uSmallest = *sLimits.first;
    Tile sTile;
    sTile.uLargest = static_cast<uint16_t>(*sLimits.second - uSmallest);
    TileMemory sMemory;
    forEachTile(rSize, TILE_HEIGHT, [&](std::size_t iX, std::size_t iY, std::size_t nColumns, std::size_t nRows) {
        sTile.nColumns = nColumns + std::size_t{2} * nRadius;
        sTile.nRows = nRows + std::size_t{2} * nRadius;
        sTile.vKeys.resize(sTile.nColumns * sTile.nRows);
        copyBordered(rSize, pIn, iX, iY, nRadius, sTile.nColumns, sTile.nRows, uSmallest, sTile.vKeys.data());
        filterTile(
            rSize, sTile, nRadius, sMemory, iX, iY,
            [&](uint16_t uKey) { return static_cast<uint16_t>(uKey + uSmallest); }, pOut);
    });
}

void medianByHistogram(const PlaneSize& rSize, const float* pIn, unsigned nRadius, float* pOut) {
    CRanks oRanks;
    Tile sTile;
    TileMemory sMemory;
    std::vector<float> vValues;
    forEachTile(rSize, RANKED_HEIGHT, [&](std::size_t iX, std::size_t iY, std::size_t nColumns, std::size_t nRows) {
        sTile.nColumns = nColumns + std::size_t{2} * nRadius;
        sTile.nRows = nRows + std::size_t{2} * nRadius;
        vValues.resize(sTile.nColumns * sTile.nRows);
        copyBordered(rSize, pIn, iX, iY, nRadius, sTile.nColumns, sTile.nRows, 0.0F, vValues.data());
        oRanks.rank(vValues, sTile);
        filterTile(
            rSize, sTile, nRadius, sMemory, iX, iY, [&](uint16_t uKey) { return oRanks.value(uKey); }, pOut);
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
