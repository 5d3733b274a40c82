// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Single pixels that stand out from their neighbours.

#include "toolkit/judgement/Defects.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "toolkit/judgement/FrameStack.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr float SIGMAS = 6.0F;
constexpr float DARK_SHARE = 0.005F;     // of full scale
constexpr float LIGHT_SHARE = 0.10F;     // of the neighbours
constexpr float MAD_TO_SIGMA = 1.4826F;  // of a normal distribution

/// Eight values of so many pixels side by side, which a compiler makes vectors of.
constexpr std::size_t LANES = 16;
using Eight = std::array<std::array<float, LANES>, 8>;

void order(Eight& rValues, std::size_t i, std::size_t j) {
    const std::array<float, LANES> first = rValues[i], second = rValues[j];
    for (std::size_t k = 0; k < LANES; ++k) {
        rValues[i][k] = std::min(first[k], second[k]);
    }
    for (std::size_t k = 0; k < LANES; ++k) {
        rValues[j][k] = std::max(first[k], second[k]);
    }
}

/// Between the fourth and the fifth: a sorting network, whose last comparisons are left out.
void mediansOfEight(Eight& rValues, float* pMedians) {
    // Two sorted fours, merged as far as the middle.
    for (const std::size_t i : {0U, 4U}) {
        order(rValues, i, i + 1);
        order(rValues, i + 2, i + 3);
        order(rValues, i, i + 2);
        order(rValues, i + 1, i + 3);
        order(rValues, i + 1, i + 2);
    }
    order(rValues, 0, 4);
    order(rValues, 1, 5);
    order(rValues, 2, 6);
    order(rValues, 3, 7);
    order(rValues, 2, 4);
    order(rValues, 3, 5);
    order(rValues, 3, 4);
    for (std::size_t k = 0; k < LANES; ++k) {
        pMedians[k] = (rValues[3][k] + rValues[4][k]) / 2.0F;
    }
}

std::size_t mirrored(std::ptrdiff_t i, std::size_t nCount) {
    const auto nLast = static_cast<std::ptrdiff_t>(nCount) - 1;
    i = i < 0 ? -i : i > nLast ? 2 * nLast - i : i;
    return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(i, 0, nLast));
}

/// The samples of one row, and the medians of their neighbours; those of a light reference without the dark.
class CRows {
public:
    /// @param[in] pDark  of the same size; nullptr: none. Both are borrowed.
    CRows(const CColourPlane& rPlane, const CColourPlane* pDark) : m_rPlane(rPlane), m_pDark(pDark) {
        for (std::vector<float>& rRow : m_vecAvRows) {
            rRow.resize(rPlane.columns() + 2 + LANES);
        }
        m_vecMedians.resize(rPlane.columns() + LANES);
    }

    void goTo(std::size_t iRow) {
        if (iRow == m_iRow) {
            return;
        }
        m_iRow = iRow;
        for (int i = 0; i < 3; ++i) {
            copyRow(mirrored(static_cast<std::ptrdiff_t>(iRow) + i - 1, m_rPlane.rows()), m_vecAvRows[i]);
        }
        const float *pUp = m_vecAvRows[0].data(), *pMid = m_vecAvRows[1].data(), *pDown = m_vecAvRows[2].data();
        for (std::size_t i = 0; i < m_rPlane.columns(); i += LANES) {
            Eight aNear;
            const std::array<const float*, 8> apFrom = {pUp + i,      pUp + i + 1, pUp + i + 2,   pMid + i,
                                                        pMid + i + 2, pDown + i,   pDown + i + 1, pDown + i + 2};
            for (std::size_t k = 0; k < aNear.size(); ++k) {
                std::copy_n(apFrom[k], LANES, aNear[k].begin());
            }
            mediansOfEight(aNear, &m_vecMedians[i]);
        }
    }

    /// Of the row last gone to.
    const float* samples() const { return m_vecAvRows[1].data() + 1; }
    const float* medians() const { return m_vecMedians.data(); }

private:
    void copyRow(std::size_t iRow, std::vector<float>& rTo) const {
        const std::size_t nColumns = m_rPlane.columns();
        const float* const pFrom = m_rPlane.row(iRow);
        float* const pTo = rTo.data() + 1;
        if (m_pDark == nullptr) {
            std::copy(pFrom, pFrom + nColumns, pTo);
        } else {
            std::transform(pFrom, pFrom + nColumns, m_pDark->row(iRow), pTo, std::minus<>());
        }
        pTo[-1] = pTo[mirrored(-1, nColumns)];
        pTo[nColumns] = pTo[mirrored(static_cast<std::ptrdiff_t>(nColumns), nColumns)];
    }

    const CColourPlane& m_rPlane;
    const CColourPlane* m_pDark;
    std::size_t m_iRow = ~std::size_t{0};
    std::vector<float> m_vecAvRows[3];
    std::vector<float> m_vecMedians;
};

float robustSigma(const std::vector<float>& rDifferences) {
    // Of so many it is known to a third of a percent. An odd step does not keep to one of two columns that take turns.
    constexpr std::size_t VALUES = 1U << 18;
    const std::size_t nStep = rDifferences.size() / VALUES / 2 * 2 + 1;
    std::vector<float> vecAmounts;
    vecAmounts.reserve(rDifferences.size() / nStep + 1);
    for (std::size_t i = 0; i < rDifferences.size(); i += nStep) {
        vecAmounts.push_back(std::abs(rDifferences[i]));
    }
    const auto iMiddle = vecAmounts.begin() + static_cast<std::ptrdiff_t>(vecAmounts.size() / 2);
    std::nth_element(vecAmounts.begin(), iMiddle, vecAmounts.end());
    return MAD_TO_SIGMA * *iMiddle;
}

/// How far each sample is from its neighbours: DN in the dark, a share of theirs in the light.
std::vector<float> differences(CRows& rRows, const CColourPlane& rPlane, bool bLight) {
    std::vector<float> vecDifferences, vecRow(rPlane.columns());
    vecDifferences.reserve(rPlane.size());
    for (std::size_t iRow = 0; iRow < rPlane.rows(); ++iRow) {
        rRows.goTo(iRow);
        const float *const pSamples = rRows.samples(), *const pMedians = rRows.medians();
        for (std::size_t i = 0; i < vecRow.size(); ++i) {
            const float fDifference = pSamples[i] - pMedians[i];
            // Where the neighbours have no light, nothing can be told.
            vecRow[i] = !bLight ? fDifference : pMedians[i] > 0.0F ? fDifference / pMedians[i] : 0.0F;
        }
        vecDifferences.insert(vecDifferences.end(), vecRow.begin(), vecRow.end());
    }
    return vecDifferences;
}

void findInPlane(const StandIn::ReferenceImage& rReference, const CColourPlane& rPlane, const CColourPlane* pDark,
                 unsigned iClass, std::vector<Defect>& rFound) {
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    const bool bLight = rReference.eKind == StandIn::eReferenceLight;
    CRows rows(rPlane, pDark);
    const std::vector<float> vecDifferences = differences(rows, rPlane, bLight);
    const float fLeast = bLight ? LIGHT_SHARE : DARK_SHARE * static_cast<float>(rFormat.fullScale());
    const float fLimit = std::max(SIGMAS * robustSigma(vecDifferences), fLeast);
    const bool bCfa = rFormat.isCfa();
    for (std::size_t i = 0; i < vecDifferences.size(); ++i) {
        if (vecDifferences[i] > fLimit || (bLight && vecDifferences[i] < -fLimit)) {
            const std::size_t iRow = i / rPlane.columns(), iColumn = i % rPlane.columns();
            rows.goTo(iRow);
            rFound.push_back({!bLight                    ? eHot
                              : vecDifferences[i] < 0.0F ? eDead
                                                         : eBright,
                              bCfa ? iColumn * 2 + iClass % 2 : iColumn, bCfa ? iRow * 2 + iClass / 2 : iRow, iClass,
                              static_cast<double>(rows.samples()[iColumn]),
                              static_cast<double>(rows.medians()[iColumn])});
        }
    }
}

}  // namespace

std::vector<Defect> findDefects(const StandIn::ReferenceImage& rReference, const StandIn::ReferenceImage* pDark) {
    if (pDark && !pDark->layout.hasSamplesLike(rReference.layout)) {
        throw std::invalid_argument("dark and light reference have different formats or sizes");
    }
    std::vector<Defect> vecFound;
    for (unsigned iClass = 0; iClass < rReference.layout.classes(); ++iClass) {
        const CColourPlane plane = colourPlane(rReference.layout, rReference.vecSamples, iClass);
        if (plane.size() != 0 && pDark != nullptr) {
            const CColourPlane dark = colourPlane(pDark->layout, pDark->vecSamples, iClass);
            findInPlane(rReference, plane, &dark, iClass, vecFound);
        } else if (plane.size() != 0) {
            findInPlane(rReference, plane, nullptr, iClass, vecFound);
        }
    }
    std::sort(vecFound.begin(), vecFound.end(), [](const Defect& a, const Defect& b) {
        return a.nY != b.nY ? a.nY < b.nY : a.nX != b.nX ? a.nX < b.nX : a.iClass < b.iClass;
    });
    return vecFound;
}

std::size_t countDefects(const std::vector<Defect>& rDefects, eDefectKind eKind) {
    return static_cast<std::size_t>(
        std::count_if(rDefects.begin(), rDefects.end(), [eKind](const Defect& r) { return r.eKind == eKind; }));
}

const char* name(eDefectKind eKind) {
    return eKind == eHot ? "hot" : eKind == eDead ? "dead" : "bright";
}

nlohmann::ordered_json toJson(const std::vector<Defect>& rDefects, const StandIn::PixelFormat& rFormat) {
    const std::vector<std::string> vecNames = colourClassNames(rFormat);
    nlohmann::ordered_json result = nlohmann::ordered_json::array();
    for (const Defect& rDefect : rDefects) {
        result.push_back({{"kind", name(rDefect.eKind)},
                          {"x", rDefect.nX},
                          {"y", rDefect.nY},
                          {"class", vecNames[rDefect.iClass]},
                          {"value", rDefect.dValue},
                          {"neighbours", rDefect.dNeighbours}});
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
