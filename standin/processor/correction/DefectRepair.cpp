// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Replaces the samples of defective pixels by those of their neighbours.

#include "standin/processor/correction/DefectRepair.h"

#include <algorithm>
#include <map>

#include "standin/processor/correction/Prefetch.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

/// The weights of a sample's window; empty where a neighbour lies outside of it or weighs too much for a vector, where
/// vectors would reach beyond the image, or where its rows do not begin at the same place in a byte.
std::vector<int16_t> windowWeights(const ImageLayout& rLayout, std::size_t iSample,
                                   const std::vector<DefectNeighbour>& rNeighbours) {
    constexpr auto NEAR = static_cast<std::ptrdiff_t>(DefectWindow::RADIUS);
    const PixelFormat& rFormat = *rLayout.pFormat;
    const auto nRow = static_cast<std::ptrdiff_t>(rLayout.samplesPerRow());
    const auto nPixel = static_cast<std::ptrdiff_t>(rFormat.nChannels);
    const auto iFirst = static_cast<std::ptrdiff_t>(iSample) -
                        static_cast<std::ptrdiff_t>(DefectWindow::before(rFormat, rLayout.samplesPerRow()));
    const std::size_t nLanes = DefectWindow::LANES * DefectWindow::vectors(rFormat);
    const std::size_t nRead = std::max(nLanes, DefectWindow::READ_BYTES * 8 / rFormat.nWireBits + 1);
    const std::ptrdiff_t iEnd = iFirst + 2 * NEAR * nRow + static_cast<std::ptrdiff_t>(nRead);
    const std::size_t nRows = DefectWindow::rows(rFormat);
    const auto nStep = static_cast<std::ptrdiff_t>(DefectWindow::rowStep(nRows));
    const std::size_t nGroup = DefectWindow::group(rFormat.nWireBits);
    const bool bAlike = DefectWindow::rowStep(nRows) * rLayout.samplesPerRow() % nGroup == 0;
    if (iFirst < 0 || iEnd > static_cast<std::ptrdiff_t>(rLayout.samples()) || !bAlike) {
        return {};
    }
    const std::size_t nBefore = static_cast<std::size_t>(iFirst) % nGroup;
    std::vector<int16_t> vecWeights(nRows * nLanes);
    for (const DefectNeighbour& rOne : rNeighbours) {
        bool bHeld = false;
        for (std::ptrdiff_t y = -NEAR; y <= NEAR && !bHeld; y += nStep) {
            const std::ptrdiff_t iInRow = rOne.iDistance - y * nRow + NEAR * nPixel;
            bHeld = iInRow >= 0 && iInRow <= 2 * NEAR * nPixel && rOne.uWeight <= INT16_MAX;
            if (bHeld) {
                const auto iRow = static_cast<std::size_t>((y + NEAR) / nStep);
                vecWeights[iRow * nLanes + nBefore + static_cast<std::size_t>(iInRow)] =
                    static_cast<int16_t>(rOne.uWeight);
            }
        }
        if (!bHeld) {
            return {};
        }
    }
    return vecWeights;
}

/// Where a pattern begins in what all places share; it is added when it is new.
template <class T>
uint32_t shared(std::map<std::vector<T>, uint32_t>& rKnown, std::vector<T>& rAll, const std::vector<T>& rPattern) {
    const auto [it, bNew] = rKnown.emplace(rPattern, static_cast<uint32_t>(rAll.size()));
    if (bNew) {
        rAll.insert(rAll.end(), rPattern.begin(), rPattern.end());
    }
    return it->second;
}

}  // namespace

CDefectRepair::CDefectRepair(const ImageLayout& rLayout, const std::vector<uint8_t>& rMap) {
    m_list.pFormat = rLayout.pFormat;
    m_list.nRowSamples = rLayout.samplesPerRow();
    std::map<std::vector<int16_t>, uint32_t> mapWindows;
    std::map<std::vector<DefectNeighbour>, uint32_t> mapNeighbours;
    const std::size_t nChannels = rLayout.pFormat->nChannels;
    for (std::size_t iPixel = 0; iPixel < rMap.size(); ++iPixel) {
        if (rMap[iPixel] == 0) {
            continue;
        }
        ++m_nDefects;
        const std::vector<DefectNeighbour> vecNeighbours =
            defectNeighbours(rLayout, rMap, iPixel % rLayout.nWidth, iPixel / rLayout.nWidth);
        for (std::size_t i = iPixel * nChannels; i < (iPixel + 1) * nChannels && !vecNeighbours.empty(); ++i) {
            const auto uLast = static_cast<uint32_t>(std::max(0, vecNeighbours.back().iDistance));
            DefectPlace place{static_cast<uint32_t>(i), static_cast<uint32_t>(i) + uLast + 1, 0, 0};
            const std::vector<int16_t> vecWeights = windowWeights(rLayout, i, vecNeighbours);
            if (!vecWeights.empty()) {
                place.uFirst = shared(mapWindows, m_list.vecWeights, vecWeights);
            } else {
                place.uFirst = shared(mapNeighbours, m_list.vecNeighbours, vecNeighbours);
                place.nNeighbours = static_cast<uint32_t>(vecNeighbours.size());
            }
            m_list.vecPlaces.push_back(place);
        }
    }
    std::stable_sort(m_list.vecPlaces.begin(), m_list.vecPlaces.end(),
                     [](const DefectPlace& a, const DefectPlace& b) { return a.uNeed < b.uNeed; });
}

std::size_t CDefectRepair::repair(uint8_t* pImage, std::size_t i, std::size_t nDone) const noexcept {
    return replaceDefects(m_list, pImage, i, nDone);
}

void CDefectRepair::fetchPlaces(std::size_t i) const noexcept {
    constexpr std::size_t PLACES = 32;
    constexpr std::size_t LINE = 64;
    const std::size_t iEnd = std::min(i + PLACES, size());
    for (; i < iEnd; i += LINE / sizeof(DefectPlace)) {
        prefetch(m_list.vecPlaces.data() + i);
    }
    // Most likely the first defect that has a window lies alone, as most others do.
    const std::size_t nWeights =
        std::min(DefectWindow::rows(*m_list.pFormat) * DefectWindow::LANES, m_list.vecWeights.size());
    for (std::size_t k = 0; k < nWeights; k += LINE / sizeof(int16_t)) {
        prefetch(m_list.vecWeights.data() + k);
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
