// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrects an image with the table of its references.

#include "standin/processor/correction/Correction.h"

#include <cstring>
#include <utility>

#include "standin/processor/correction/CorrectionChunks.h"
#include "standin/processor/correction/CorrectionFormula.h"
#include "standin/processor/correction/CorrectionKernels.h"
#include "standin/processor/correction/CorrectionTable.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

class CTableCorrection : public ICorrection {
public:
    CTableCorrection(const ImageLayout& rLayout, CorrectionTable sTable, const KernelTarget& rTarget)
        : m_sTable(std::move(sTable)),
          m_nSamples(rLayout.samples()),
          m_rTarget(rTarget),
          m_fnKernel(rTarget.fnKernel(m_sTable.sLayout, m_nSamples)) {}

    void correct(void* pImage) const noexcept override {
        CChunks oChunks(m_sTable, static_cast<uint8_t*>(pImage), m_nSamples);
        m_fnKernel(oChunks);
    }

    std::string description() const override {
        return m_sTable.sLayout.description() + ", " + std::to_string(m_sTable.vecExceptions.size()) + " exceptions, " +
               m_rTarget.pName;
    }

private:
    const CorrectionTable m_sTable;
    const std::size_t m_nSamples;
    const KernelTarget& m_rTarget;
    const Kernel m_fnKernel;
};

}  // namespace

std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget) {
    const std::vector<KernelTarget>& rTargets = kernelTargets();
    const KernelTarget* pChosen = &rTargets.front();
    for (const KernelTarget& rTarget : rTargets) {
        if (pTarget && std::strcmp(rTarget.pName, pTarget) == 0)
            pChosen = &rTarget;
    }
    return std::make_unique<CTableCorrection>(rLayout, makeTable(CFormula(rLayout, pDark, pLight)), *pChosen);
}

std::vector<const char*> correctionTargets() {
    std::vector<const char*> vecNames;
    for (const KernelTarget& rTarget : kernelTargets()) vecNames.push_back(rTarget.pName);
    return vecNames;
}

}  // namespace StandIn
}  // namespace XAPEL2
