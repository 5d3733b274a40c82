// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Offset and gain of every sample of an image as the formula of the correction has them, in double precision.

#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "standin/processor/correction/Correction.h"
#include "standin/processor/correction/CorrectionEncode.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

/// D and G of every sample (see makeCorrection). The same bits whatever the processor, as every step is rounded alone.
class CFormula {
public:
    /// References are borrowed for the life of the object; null: D = 0, G = 1.
    CFormula(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
             const CorrectionOutput& rOutput = {});

    /// Offsets and gains of the samples from iFirst, a multiple of BLOCK, on; 0 and 1 behind the end of the image.
    void block(std::size_t iFirst, FormulaBlock& rBlock) const;

    /// Puts the pedestal into the offsets: D - P / G, which may be infinite or, where P is 0, is left as it is.
    void foldPedestal(FormulaBlock& rBlock) const;
    double pedestal() const { return m_output.output.dPedestal; }

    /// Null where no pixel is marked.
    const std::vector<uint8_t>* defects() const { return m_output.pDefects; }
    /// Bit i: sample iFirst + i, of BLOCK, is one of a marked pixel.
    uint64_t defectsOf(std::size_t iFirst) const;

    const ClassTargets& targets() const { return m_aTargets; }

    const ImageLayout& layout() const { return m_rLayout; }

private:
    void setMeans();
    void setBrightest();
    void addRow(std::size_t iRow, std::array<double, 4>& rSums) const;
    void fillTargets(std::size_t iFirst, std::array<double, BLOCK>& rTargets) const;

    const ImageLayout& m_rLayout;
    const float* m_pDark;
    const float* m_pLight;
    CorrectionOutput m_output;
    ClassTargets m_aTargets = {};  // by colour class
};

}  // namespace StandIn
}  // namespace XAPEL2
