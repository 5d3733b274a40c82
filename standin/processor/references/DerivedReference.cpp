// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Crops, bins and mirrors references.

#include "standin/processor/references/DerivedReference.h"

#include <algorithm>

namespace XAPEL2 {
namespace StandIn {

namespace {

bool isAdded(const GeometryAxis& r) {
    return r.nBinning > 1 && r.eMode == eBinningSum;
}

double added(const GeometryAxis& r) {
    return isAdded(r) ? static_cast<double>(r.nBinning) : 1.0;
}

bool isModeKnown(const GeometryAxis& r) {
    return r.nBinning == 1 || r.eMode != eBinningUnknown;
}

// Binned alike, nobody needs to know how, unless one of the two says so.
ePlaceObstacle binningObstacle(const GeometryAxis& rFrom, const GeometryAxis& rTo, bool bLine) {
    if (rFrom.nBinning == rTo.nBinning && rFrom.eMode == rTo.eMode) {
        return eNoObstacle;
    }
    if (!isModeKnown(rFrom) || !isModeKnown(rTo)) {
        return eUnknownMode;
    }
    return bLine || rTo.nBinning % rFrom.nBinning == 0 ? eNoObstacle : eOtherBinning;
}

// Pixels of the reference that make each of nTo pixels of an image. Empty where one lies outside. The image lies on its
// sensor, and the reference does.
std::vector<uint32_t> places(const GeometryAxis& rFrom, uint64_t nFrom, const GeometryAxis& rTo, uint64_t nTo,
                             bool bCfa) {
    const uint64_t nParts = rTo.nBinning / rFrom.nBinning;
    const uint64_t nStep = GeometryAxis::stepOf(nParts, bCfa);
    const uint64_t nBinned = rFrom.binned(bCfa);
    std::vector<uint32_t> vecPlaces;
    vecPlaces.reserve(static_cast<std::size_t>(nTo * nParts));
    for (uint64_t i = 0; i < nTo; ++i) {
        const uint64_t iFirst = GeometryAxis::firstOf(rTo.unmirrored(i, bCfa), nParts, bCfa);
        for (uint64_t k = 0; k < nParts; ++k) {
            const uint64_t iSensor = iFirst + k * nStep;
            const uint64_t iMirrored = rFrom.bReverse ? nBinned - 1 - iSensor : iSensor;
            if (iSensor >= nBinned || iMirrored < rFrom.nOffset || iMirrored - rFrom.nOffset >= nFrom) {
                return {};
            }
            vecPlaces.push_back(static_cast<uint32_t>(iMirrored - rFrom.nOffset));
        }
    }
    return vecPlaces;
}

bool isInOrder(const std::vector<uint32_t>& r) {
    return r.back() >= r.front() && r.back() - r.front() + 1 == r.size();
}

}  // namespace

CDerivation::CDerivation(const ImageLayout& rReference, const ImageGeometry& rFrom, const ImageLayout& rImage,
                         const ImageGeometry& rTo)
    : m_bCfa(rReference.pFormat->isCfa()),
      m_nChannels(rReference.pFormat->nChannels),
      m_nWidth(static_cast<std::size_t>(rReference.nWidth)) {
    examine(rReference, rFrom, rImage, rTo);
}

void CDerivation::examine(const ImageLayout& rReference, const ImageGeometry& rFrom, const ImageLayout& rImage,
                          const ImageGeometry& rTo) {
    const bool bLine = rReference.nHeight == 1 && !m_bCfa && rFrom.y.nSensor == 1;
    if (rFrom.x.nSensor != rTo.x.nSensor || (!bLine && rFrom.y.nSensor != rTo.y.nSensor)) {
        m_eObstacle = eOtherSensor;
        return;
    }
    m_eObstacle = std::max(binningObstacle(rFrom.x, rTo.x, false), binningObstacle(rFrom.y, rTo.y, bLine));
    if (m_eObstacle != eNoObstacle) {
        return;
    }
    // In this order: what lies on the sensor has numbers that can be reckoned with.
    if (rTo.x.holds(rImage.nWidth, m_bCfa) && (bLine || rTo.y.holds(rImage.nHeight, m_bCfa)) &&
        rReference.liesOn(rFrom)) {
        m_vecColumns = places(rFrom.x, rReference.nWidth, rTo.x, rImage.nWidth, m_bCfa);
        m_vecRows =
            bLine ? std::vector<uint32_t>{0} : places(rFrom.y, rReference.nHeight, rTo.y, rImage.nHeight, m_bCfa);
    }
    if (m_vecColumns.empty() || m_vecRows.empty()) {
        m_eObstacle = eOutside;
        return;
    }
    if (m_bCfa &&
        std::string(shiftedFormat(*rReference.pFormat, m_vecColumns[0], m_vecRows[0])->pCfa) != rImage.pFormat->pCfa) {
        m_eObstacle = eOtherFilterArray;
        return;
    }
    m_nRows = bLine ? 1 : rImage.nHeight;
    m_nPartsX = static_cast<std::size_t>(rTo.x.nBinning / rFrom.x.nBinning);
    m_nPartsY = bLine ? 1 : static_cast<std::size_t>(rTo.y.nBinning / rFrom.y.nBinning);
    m_dScale = added(rTo.x) * added(rTo.y) / added(rFrom.x) / added(rFrom.y);
    m_bCrop =
        !bLine && m_nPartsX * m_nPartsY == 1 && m_dScale == 1.0 && isInOrder(m_vecColumns) && isInOrder(m_vecRows);
    m_bSame = rFrom.x == rTo.x && rReference.nWidth == rImage.nWidth && m_dScale == 1.0 &&
              (bLine || (rFrom.y == rTo.y && rReference.nHeight == rImage.nHeight));
}

std::string placeObstacle(const ReferenceImage& rReference, const ImageLayout& rImage, const ImageGeometry& rPlace) {
    if (!rReference.geometry.isKnown() || !rPlace.isKnown()) {
        return "";
    }
    return PLACE_OBSTACLES[CDerivation(rReference.layout, rReference.geometry, rImage, rPlace).obstacle()];
}

unsigned CDerivation::classOf(unsigned iClass) const {
    if (!m_bCfa) {
        return iClass;
    }
    return (m_vecRows[0] + iClass / 2) % 2 * 2 + (m_vecColumns[0] + iClass % 2) % 2;
}

// Adds up row by row all that makes a row of the image: fnAdd(sum, value), fnPut(place in the result, sum).
template <class T, class TSUM, class FADD, class FPUT>
void CDerivation::derive(const std::vector<T>& rFrom, unsigned nChannels, FADD fnAdd, FPUT fnPut) const {
    const std::size_t nColumns = m_vecColumns.size() / m_nPartsX;
    std::vector<TSUM> vecSums(nColumns * nChannels);
    for (std::size_t iRow = 0; iRow < m_nRows; ++iRow) {
        std::fill(vecSums.begin(), vecSums.end(), TSUM{});
        for (std::size_t k = 0; k < m_nPartsY; ++k) {
            const T* const pRow = rFrom.data() + m_vecRows[iRow * m_nPartsY + k] * m_nWidth * nChannels;
            const uint32_t* pColumn = m_vecColumns.data();
            for (std::size_t i = 0; i < nColumns; ++i) {
                for (std::size_t j = 0; j < m_nPartsX; ++j, ++pColumn) {
                    for (unsigned c = 0; c < nChannels; ++c) {
                        fnAdd(vecSums[i * nChannels + c], pRow[std::size_t{*pColumn} * nChannels + c]);
                    }
                }
            }
        }
        for (std::size_t i = 0; i < vecSums.size(); ++i) {
            fnPut(iRow * vecSums.size() + i, vecSums[i]);
        }
    }
}

void CDerivation::samples(const std::vector<float>& rSamples, std::vector<float>& rDerived) const {
    const std::size_t nColumns = m_vecColumns.size() / m_nPartsX;
    rDerived.resize(nColumns * m_nChannels * static_cast<std::size_t>(m_nRows));
    if (m_nPartsX * m_nPartsY == 1 && m_dScale == 1.0 && isInOrder(m_vecColumns)) {
        for (std::size_t iRow = 0; iRow < m_nRows; ++iRow) {
            std::copy_n(rSamples.data() + (m_vecRows[iRow] * m_nWidth + m_vecColumns[0]) * m_nChannels,
                        nColumns * m_nChannels, rDerived.data() + iRow * nColumns * m_nChannels);
        }
        return;
    }
    const double dScale = m_dScale / static_cast<double>(m_nPartsX * m_nPartsY);
    derive<float, double>(
        rSamples, m_nChannels, [](double& rSum, float f) { rSum += static_cast<double>(f); },
        [&](std::size_t i, double dSum) { rDerived[i] = static_cast<float>(dSum * dScale); });
}

std::vector<uint8_t> CDerivation::defects(const std::vector<uint8_t>& rMap) const {
    if (rMap.empty()) {
        return {};
    }
    std::vector<uint8_t> vecDerived(m_vecColumns.size() / m_nPartsX * static_cast<std::size_t>(m_nRows));
    derive<uint8_t, uint8_t>(
        rMap, 1, [](uint8_t& rBits, uint8_t u) { rBits = static_cast<uint8_t>(rBits | u); },
        [&](std::size_t i, uint8_t uBits) { vecDerived[i] = uBits; });
    return vecDerived;
}

}  // namespace StandIn
}  // namespace XAPEL2
