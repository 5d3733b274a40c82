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
#include "standin/processor/correction/KernelChoice.h"

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

struct NamedVariant {
    std::string strName;
    const KernelTarget* pTarget;
    KernelWay way;
};

/// All that this processor can run. Packed samples of 12 bits come in every step.
const std::vector<NamedVariant>& namedVariants() {
    static const std::vector<NamedVariant> s_vecVariants = [] {
        TableLayout layout;
        layout.pFormat = findPixelFormat("Mono12p");
        layout.nFieldBytes = 2;
        std::vector<NamedVariant> vecVariants;
        for (const KernelTarget& rTarget : kernelTargets()) {
            for (const KernelVariant& rVariant : rTarget.variants(layout)) {
                vecVariants.push_back({rTarget.name(rVariant.way), &rTarget, rVariant.way});
            }
        }
        return vecVariants;
    }();
    return s_vecVariants;
}

const NamedVariant* findVariant(const char* pName) {
    for (const NamedVariant& rVariant : namedVariants()) {
        if (pName && rVariant.strName == pName) {
            return &rVariant;
        }
    }
    return nullptr;
}

class CTableCorrection : public ICorrection {
public:
    /// @param[in] pName  of a variant; null: the one that is found to be the fastest.
    CTableCorrection(const ImageLayout& rLayout, CorrectionTable table, const char* pName,
                     const ReferenceOutput& rOutput)
        : m_table(std::move(table)), m_nSamples(rLayout.samples()), m_output(rOutput) {
        const KernelTarget* pTarget = &kernelTargets().front();
        ChosenKernel chosen;
        if (const NamedVariant* const pNamed = findVariant(pName)) {
            pTarget = pNamed->pTarget;
            chosen = {pTarget->fnVariant(m_table.layout, pNamed->way), "as told"};
        } else {
            chosen = CKernelChoice::ofProcess().choose(*pTarget, m_table, m_nSamples);
        }
        m_fnKernel = chosen.variant.fnKernel;
        m_nAhead = chosen.variant.way.blocksAhead(m_table.layout);
        m_strKernel = pTarget->name(chosen.variant.way) + " (" + chosen.strWhy + ")";
    }

    void correct(void* pImage) const noexcept override {
        CChunks oChunks(m_table, static_cast<uint8_t*>(pImage), m_nSamples, m_nAhead);
        m_fnKernel(oChunks);
    }

    std::string description() const override {
        return m_table.layout.description() + ", " + std::to_string(m_table.vecExceptions.size()) + " exceptions, " +
               m_strKernel + ", " + inWords(m_output) + ", " + std::to_string(m_table.oDefects.defects()) + " defects";
    }

private:
    const CorrectionTable m_table;
    const std::size_t m_nSamples;
    const ReferenceOutput m_output;
    Kernel m_fnKernel = nullptr;
    std::size_t m_nAhead = 0;
    std::string m_strKernel;
};

}  // namespace

std::unique_ptr<ICorrection> makeCorrection(const ImageLayout& rLayout, const std::vector<float>* pDark,
                                            const std::vector<float>* pLight, const char* pTarget,
                                            const CorrectionOutput& rOutput) {
    return std::make_unique<CTableCorrection>(rLayout, makeTable(CFormula(rLayout, pDark, pLight, rOutput)), pTarget,
                                              rOutput.output);
}

ClassTargets classTargets(const ImageLayout& rLayout, const std::vector<float>* pDark, const std::vector<float>* pLight,
                          const CorrectionOutput& rOutput) {
    return CFormula(rLayout, pDark, pLight, rOutput).targets();
}

std::vector<double> pairTargets(const ReferenceImage& rDark, const ReferenceImage& rLight) {
    const ClassTargets aTargets =
        classTargets(rLight.layout, &rDark.vecSamples, &rLight.vecSamples, {rLight.output, &rLight.vecDefects});
    return {aTargets.begin(), aTargets.begin() + rLight.layout.classes()};
}

std::vector<const char*> correctionTargets() {
    std::vector<const char*> vecNames;
    for (const NamedVariant& rVariant : namedVariants()) {
        vecNames.push_back(rVariant.strName.c_str());
    }
    return vecNames;
}

}  // namespace StandIn
}  // namespace XAPEL2
