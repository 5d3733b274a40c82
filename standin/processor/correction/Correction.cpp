// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrects an image with the table of its references.

#include "standin/processor/correction/Correction.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

#include "standin/processor/correction/CorrectionChunks.h"
#include "standin/processor/correction/CorrectionFormula.h"
#include "standin/processor/correction/CorrectionKernels.h"
#include "standin/processor/correction/CorrectionTable.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

std::string inWords(const ReferenceOutput& rOutput) {
    std::array<char, 80> aText;
    const char* const pTarget = rOutput.eTarget == eTargetMax ? "max" : "mean";
    if (rOutput.eTarget == eTargetValue) {
        std::snprintf(aText.data(), aText.size(), "target %.6g DN, pedestal %.6g DN", rOutput.dTarget,
                      rOutput.dPedestal);
    } else {
        std::snprintf(aText.data(), aText.size(), "target %s, pedestal %.6g DN", pTarget, rOutput.dPedestal);
    }
    return aText.data();
}

class CTableCorrection : public ICorrection {
public:
    CTableCorrection(const ImageLayout& rLayout, CorrectionTable table, const KernelTarget& rTarget,
                     const ReferenceOutput& rOutput)
        : m_table(std::move(table)),
          m_nSamples(rLayout.samples()),
          m_rTarget(rTarget),
          m_output(rOutput),
          m_fnKernel(rTarget.fnKernel(m_table.layout, m_nSamples)) {}

    void correct(void* pImage) const noexcept override {
        CChunks oChunks(m_table, static_cast<uint8_t*>(pImage), m_nSamples);
        m_fnKernel(oChunks);
    }

    std::string description() const override {
        return m_table.layout.description() + ", " + std::to_string(m_table.vecExceptions.size()) + " exceptions, " +
               m_rTarget.pName + ", " + inWords(m_output) + ", " + std::to_string(m_table.oDefects.defects()) +
               " defects";
    }

private:
    const CorrectionTable m_table;
    const std::size_t m_nSamples;
    const KernelTarget& m_rTarget;
    const ReferenceOutput m_output;
    const Kernel m_fnKernel;
};

}  // namespace

std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget,
                                            const CorrectionOutput& rOutput) {
    const std::vector<KernelTarget>& rTargets = kernelTargets();
    const KernelTarget* pChosen = &rTargets.front();
    for (const KernelTarget& rTarget : rTargets) {
        if (pTarget && std::strcmp(rTarget.pName, pTarget) == 0) {
            pChosen = &rTarget;
        }
    }
    return std::make_unique<CTableCorrection>(rLayout, makeTable(CFormula(rLayout, pDark, pLight, rOutput)), *pChosen,
                                              rOutput.output);
}

ClassTargets classTargets(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
                          const CorrectionOutput& rOutput) {
    return CFormula(rLayout, pDark, pLight, rOutput).targets();
}

std::vector<const char*> correctionTargets() {
    std::vector<const char*> vecNames;
    for (const KernelTarget& rTarget : kernelTargets()) {
        vecNames.push_back(rTarget.pName);
    }
    return vecNames;
}

}  // namespace StandIn
}  // namespace XAPEL2
