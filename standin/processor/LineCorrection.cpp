// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrects every row of an image with the table of one row.

#include "standin/processor/LineCorrection.h"

#include <algorithm>

namespace XAPEL2 {
namespace StandIn {

namespace {

template <class T>
std::vector<T> repeated(const std::vector<T>& rRow, uint64_t nTimes) {
    std::vector<T> vecRows;
    vecRows.reserve(rRow.size() * static_cast<std::size_t>(nTimes));
    for (uint64_t i = 0; i < nTimes; ++i) {
        vecRows.insert(vecRows.end(), rRow.begin(), rRow.end());
    }
    return vecRows;
}

class CLineCorrection : public ICorrection {
public:
    CLineCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
                    const CorrectionOutput& rOutput) {
        ImageLayout rows = rLayout;
        rows.nHeight = 1;
        while (rows.samples() * rows.pFormat->nWireBits % 8 != 0) {
            ++rows.nHeight;
        }
        rows.nHeight = std::min(rows.nHeight, rLayout.nHeight);
        m_nGroups = rLayout.nHeight / rows.nHeight;
        m_nStep = rows.bytes();
        const auto fnMake = [&] {
            const auto fnRows = [&rows](const auto* pRow) {
                return pRow ? repeated(*pRow, rows.nHeight) : std::decay_t<decltype(*pRow)>();
            };
            const std::vector<float> vecDark = fnRows(pDark);
            const std::vector<float> vecLight = fnRows(pLight);
            const std::vector<uint8_t> vecMap = fnRows(rOutput.pDefects);
            CorrectionOutput output = rOutput;
            output.pDefects = vecMap.empty() ? nullptr : &vecMap;
            return makeCorrection(rows, pDark ? &vecDark : nullptr, pLight ? &vecLight : nullptr, nullptr, output);
        };
        m_pGroup = fnMake();
        rows.nHeight = rLayout.nHeight % rows.nHeight;
        if (rows.nHeight != 0) {
            m_pRest = fnMake();
        }
    }

    void correct(void* pImage) const noexcept override {
        auto* pRows = static_cast<uint8_t*>(pImage);
        for (uint64_t i = 0; i < m_nGroups; ++i, pRows += m_nStep) {
            m_pGroup->correct(pRows);
        }
        if (m_pRest) {
            m_pRest->correct(pRows);
        }
    }

    std::string description() const override { return m_pGroup->description() + ", for each row"; }

private:
    uint64_t m_nGroups = 0;
    std::size_t m_nStep = 0;  // bytes of a group of rows; whole ones where there are two groups
    std::unique_ptr<ICorrection> m_pGroup, m_pRest;
};

}  // namespace

std::unique_ptr<ICorrection> makeLineCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                                const std::vector<float>* pLight, const CorrectionOutput& rOutput) {
    return std::make_unique<CLineCorrection>(rLayout, pDark, pLight, rOutput);
}

}  // namespace StandIn
}  // namespace XAPEL2
