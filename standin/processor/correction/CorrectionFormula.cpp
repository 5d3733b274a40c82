// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Offset and gain of every sample of an image as the formula of the correction has them, in double precision.

#include "standin/processor/correction/CorrectionFormula.h"

#include <algorithm>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t LANES = 12;  // a multiple of 1, 2 and 3: the lane of a sample tells its colour class

}  // namespace

CFormula::CFormula(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
                   const CorrectionOutput& rOutput)
    : m_rLayout(rLayout),
      m_pDark(pDark ? pDark->data() : nullptr),
      m_pLight(pLight ? pLight->data() : nullptr),
      m_output(rOutput) {
    if (m_output.pDefects && m_output.pDefects->empty()) {
        m_output.pDefects = nullptr;
    }
    if (!m_pLight) {
        return;
    }
    if (rOutput.pTargets) {
        m_aTargets = *rOutput.pTargets;
        return;
    }
    switch (rOutput.output.eTarget) {
        case eTargetValue:
            m_aTargets.fill(rOutput.output.dTarget);
            break;
        case eTargetMax:
            setBrightest();
            break;
        default:
            setMeans();
    }
}

void CFormula::setMeans() {
    const ImageLayout& rLayout = m_rLayout;
    std::array<double, 4> aSums = {};
    for (std::size_t iRow = 0; iRow < rLayout.nHeight; ++iRow) {
        addRow(iRow, aSums);
    }
    const std::size_t nWidth = rLayout.nWidth;
    const std::size_t nHeight = rLayout.nHeight;
    for (std::size_t i = 0; i < aSums.size(); ++i) {
        const std::size_t nSamples =
            rLayout.pFormat->isCfa() ? (nWidth + 1 - i % 2) / 2 * ((nHeight + 1 - i / 2) / 2) : nWidth * nHeight;
        m_aTargets[i] = nSamples != 0 ? aSums[i] / static_cast<double>(nSamples) : 0.0;
    }
}

void CFormula::setBrightest() {
    setMeans();
    constexpr std::size_t CELL = 16;
    struct Sum {
        double dSum = 0.0;
        std::size_t nGood = 0;
    };
    const auto nWidth = static_cast<std::size_t>(m_rLayout.nWidth);
    const auto nHeight = static_cast<std::size_t>(m_rLayout.nHeight);
    const std::size_t nChannels = m_rLayout.pFormat->nChannels;
    const bool bCfa = m_rLayout.pFormat->isCfa();
    const std::size_t nLeast = CELL * CELL / (bCfa ? 8 : 2);
    std::array<double, 4> aBrightest = {};
    std::vector<std::array<Sum, 4>> vecCells(nWidth / CELL);
    for (std::size_t iY = 0; iY < nHeight / CELL * CELL; ++iY) {
        for (std::size_t iX = 0; iX < vecCells.size() * CELL; ++iX) {
            const std::size_t iPixel = iY * nWidth + iX;
            if (m_output.pDefects && (*m_output.pDefects)[iPixel] != 0) {
                continue;
            }
            for (std::size_t c = 0; c < nChannels; ++c) {
                const std::size_t i = iPixel * nChannels + c;
                Sum& rSum = vecCells[iX / CELL][bCfa ? iY % 2 * 2 + iX % 2 : c];
                rSum.dSum += static_cast<double>(m_pLight[i]) - (m_pDark ? static_cast<double>(m_pDark[i]) : 0.0);
                ++rSum.nGood;
            }
        }
        if (iY % CELL == CELL - 1) {
            for (std::array<Sum, 4>& rCell : vecCells) {
                for (std::size_t c = 0; c < rCell.size(); ++c) {
                    if (rCell[c].nGood >= nLeast) {
                        aBrightest[c] = std::max(aBrightest[c], rCell[c].dSum / static_cast<double>(rCell[c].nGood));
                    }
                }
                rCell = {};
            }
        }
    }
    for (std::size_t c = 0; c < aBrightest.size(); ++c) {
        m_aTargets[c] = aBrightest[c] > 0.0 ? aBrightest[c] : m_aTargets[c];
    }
}

/// Adds L - D of a row to the sums of its classes.
void CFormula::addRow(std::size_t iRow, std::array<double, 4>& rSums) const {
    const std::size_t nSamples = m_rLayout.samplesPerRow();
    const float* pLight = m_pLight + iRow * nSamples;
    const float* pDark = m_pDark ? m_pDark + iRow * nSamples : nullptr;
    std::array<double, LANES> aLanes = {};
    std::size_t iX = 0;
    for (; iX + LANES <= nSamples; iX += LANES) {
        if (pDark) {
            for (std::size_t i = 0; i < LANES; ++i) {
                aLanes[i] += static_cast<double>(pLight[iX + i]) - static_cast<double>(pDark[iX + i]);
            }
        } else {
            for (std::size_t i = 0; i < LANES; ++i) {
                aLanes[i] += static_cast<double>(pLight[iX + i]);
            }
        }
    }
    for (std::size_t i = 0; iX + i < nSamples; ++i) {
        aLanes[i] += static_cast<double>(pLight[iX + i]) - (pDark ? static_cast<double>(pDark[iX + i]) : 0.0);
    }
    const bool bCfa = m_rLayout.pFormat->isCfa();
    for (std::size_t i = 0; i < LANES; ++i) {
        rSums[bCfa ? iRow % 2 * 2 + i % 2 : i % m_rLayout.pFormat->nChannels] += aLanes[i];
    }
}

void CFormula::fillTargets(std::size_t iFirst, std::array<double, BLOCK>& rTargets) const {
    const std::size_t nChannels = m_rLayout.pFormat->nChannels;
    if (m_rLayout.pFormat->isCfa()) {
        const std::size_t nWidth = m_rLayout.nWidth;
        std::size_t iY = iFirst / nWidth;
        std::size_t iX = iFirst % nWidth;
        for (double& rTarget : rTargets) {
            rTarget = m_aTargets[iY % 2 * 2 + iX % 2];
            if (++iX == nWidth) {
                iX = 0;
                ++iY;
            }
        }
    } else if (nChannels == 1) {
        rTargets.fill(m_aTargets[0]);
    } else {
        for (std::size_t i = 0; i < BLOCK; ++i) {
            rTargets[i] = m_aTargets[(iFirst + i) % 3];
        }
    }
}

void CFormula::foldPedestal(FormulaBlock& rBlock) const {
    if (pedestal() == 0.0) {
        return;
    }
    for (std::size_t i = 0; i < BLOCK; ++i) {
        rBlock.aOffsets[i] -= pedestal() / rBlock.aGains[i];
    }
}

uint64_t CFormula::defectsOf(std::size_t iFirst) const {
    if (!m_output.pDefects) {
        return 0;
    }
    const std::size_t nChannels = m_rLayout.pFormat->nChannels;
    uint64_t uMarked = 0;
    for (std::size_t i = 0; i < std::min(BLOCK, m_rLayout.samples() - iFirst); ++i) {
        uMarked |= uint64_t{(*m_output.pDefects)[(iFirst + i) / nChannels] != 0} << i;
    }
    return uMarked;
}

void CFormula::block(std::size_t iFirst, FormulaBlock& rBlock) const {
    const std::size_t nSamples = std::min(BLOCK, m_rLayout.samples() - iFirst);
    std::array<float, BLOCK> aDark;
    std::array<float, BLOCK> aLight;
    const std::size_t nRow = m_rLayout.samplesPerRow();
    const CorrectionOutput::Crop& rCrop = m_output.crop;
    const auto whole = [&](const float* pSamples, std::array<float, BLOCK>& rBuffer) {
        if (pSamples && nSamples == BLOCK && rCrop.nRowStep == 0) {
            return pSamples + iFirst;
        }
        rBuffer.fill(0.0F);  // D = 0 and, as there is no signal, G = 1
        if (pSamples && rCrop.nRowStep == 0) {
            std::copy_n(pSamples + iFirst, nSamples, rBuffer.begin());
        } else if (pSamples) {
            std::size_t iY = iFirst / nRow;
            std::size_t iX = iFirst % nRow;
            if (nSamples == BLOCK && iX + BLOCK <= nRow) {
                return pSamples + rCrop.iFirst + iY * rCrop.nRowStep + iX;
            }
            for (std::size_t i = 0; i < nSamples; iX = 0, ++iY) {
                const std::size_t nPart = std::min(nSamples - i, nRow - iX);
                std::copy_n(pSamples + rCrop.iFirst + iY * rCrop.nRowStep + iX, nPart, rBuffer.data() + i);
                i += nPart;
            }
        }
        return static_cast<const float*>(rBuffer.data());
    };
    std::array<double, BLOCK> aTargets;
    fillTargets(iFirst, aTargets);
    formulaBlock(aTargets.data(), whole(m_pDark, aDark), whole(m_pLight, aLight), rBlock);
}

}  // namespace StandIn
}  // namespace XAPEL2
